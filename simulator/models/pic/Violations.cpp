#include "simulator/models/pic/Violations.h"

#include "simulator/models/pic/VirtualClock.h"

namespace simulator {

namespace {

const int mostKept = 100;

} // namespace

void Violations::record(const QString &who, const QString &text)
{
    if (m_List.size() == mostKept)
        return;
    const QString microseconds = QString::number(static_cast<double>(m_Clock.now()) / 1000, 'f', 3);
    m_List << QString::fromLatin1("%1 us: %2: %3").arg(microseconds, who, text);
}

} // namespace simulator
