#ifndef SIMULATOR_PANEL_CHANGERECORDER_H
#define SIMULATOR_PANEL_CHANGERECORDER_H

#include <map>
#include <string>
#include <sys/stat.h>

/// Writes down what changes on the instrument between two messages, so that the report can tell which line did it:
/// files by a comparison of the whole root file system, the flash and the media, and the stand-in tools that were
/// called. Goes to /run/instrument/changes, a line each: message, "changed" and what, or "called", exit code and
/// command line; the message is the index of the one that was the last when it happened, -1 before the first.
class ChangeRecorder
{
public:
    void begin();
    /// The message window holds this many messages now. A message more ends what the one before stood for.
    void messagesShown(int count);

private:
    using Files = std::map<std::string, struct stat>;

    static Files takeStock();
    void write(const std::string &kind, const std::string &what) const;
    void writeFiles(const Files &now) const;
    void writeCalls();

    Files m_Files;
    size_t m_CallsSeen = 0;
    int m_MessageCount = 0;
};

#endif
