#ifndef SIMULATOR_MODELS_ESA_SERIALWIRE_H
#define SIMULATOR_MODELS_ESA_SERIALWIRE_H

#include <QByteArray>
#include <QElapsedTimer>
#include <climits>
#include <queue>
#include <utility>

namespace simulator {

/// One direction of a serial line: the bytes follow each other, and each takes its time.
class SerialWire
{
public:
    SerialWire() { m_Clock.start(); }

    void put(const QByteArray &bytes, qint64 byteNanoseconds)
    {
        m_LastArrival = qMax(m_LastArrival, m_Clock.nsecsElapsed());
        for (const char byte : bytes)
            m_Bytes.push({m_LastArrival += byteNanoseconds, byte});
    }
    /// Removes and returns what has arrived, at most `most` bytes.
    QByteArray takeArrived(int most = INT_MAX)
    {
        QByteArray bytes;
        for (; bytes.size() < most && !m_Bytes.empty() && m_Bytes.front().first <= m_Clock.nsecsElapsed();
             m_Bytes.pop())
            bytes.append(m_Bytes.front().second);
        return bytes;
    }
    bool isEmpty() const { return m_Bytes.empty(); }
    void clear() { m_Bytes = {}; }

private:
    QElapsedTimer m_Clock;
    std::queue<std::pair<qint64, char>> m_Bytes; ///< each with its arrival
    qint64 m_LastArrival = 0;
};

} // namespace simulator

#endif
