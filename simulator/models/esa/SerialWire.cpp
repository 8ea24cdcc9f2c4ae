#include "simulator/models/esa/SerialWire.h"

namespace simulator {

void SerialWire::put(const QByteArray &bytes, qint64 byteNanoseconds)
{
    m_LastArrival = qMax(m_LastArrival, m_Clock.nsecsElapsed());
    for (const char byte : bytes)
        m_Bytes.push({m_LastArrival += byteNanoseconds, byte});
}

QByteArray SerialWire::takeArrived(int most)
{
    QByteArray bytes;
    for (; !m_Bytes.empty() && m_Bytes.front().arrival <= m_Clock.nsecsElapsed() && bytes.size() < most; m_Bytes.pop())
        bytes.append(m_Bytes.front().value);
    return bytes;
}

} // namespace simulator
