#include "simulator/models/pic/BoardMonitor.h"

namespace simulator {

namespace {

const int mostRecorded = 100;

} // namespace

void BoardMonitor::violation(const QString &who, const QString &what)
{
    if (m_Violations.size() == mostRecorded)
        return;
    const QString microseconds = QString::number(static_cast<double>(m_Now) / 1000, 'f', 3);
    m_Violations << QString::fromLatin1("%1 us: %2: %3").arg(microseconds, who, what);
    if (onViolation)
        onViolation(m_Violations.last());
}

void BoardMonitor::moment(const QString &name)
{
    if (onMoment)
        onMoment(name);
}

} // namespace simulator
