#ifndef SIMULATOR_MODELS_PIC_VIRTUALCLOCK_H
#define SIMULATOR_MODELS_PIC_VIRTUALCLOCK_H

#include <QtGlobal>

namespace simulator {

/// The time on the bench. It passes only by what the updater does to its pins and by the delays it makes.
class VirtualClock
{
public:
    qint64 now() const { return m_Now; } ///< nanoseconds since the bench was switched on
    void advance(qint64 nanoseconds) { m_Now += nanoseconds; }

private:
    qint64 m_Now = 0;
};

} // namespace simulator

#endif
