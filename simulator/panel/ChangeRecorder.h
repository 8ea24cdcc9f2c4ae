#ifndef SIMULATOR_PANEL_CHANGERECORDER_H
#define SIMULATOR_PANEL_CHANGERECORDER_H

#include <map>
#include <string>
#include <sys/stat.h>

namespace simulator {

/// Puts into the journal which files changed on the instrument, by a comparison of the whole root file system, the
/// flash and the media.
class ChangeRecorder
{
public:
    ChangeRecorder() : m_Files(snapshot()) {}

    /// What changed since the last call.
    void record();

private:
    using Files = std::map<std::string, struct stat>;

    static Files snapshot();

    Files m_Files;
};

} // namespace simulator

#endif
