#ifndef SIMULATOR_MODELS_ESA_SERIALWIRE_H
#define SIMULATOR_MODELS_ESA_SERIALWIRE_H

#include <QByteArray>
#include <QElapsedTimer>
#include <limits>
#include <queue>

namespace simulator {

/// One direction of a serial line: the bytes follow each other, and each takes its time.
class SerialWire
{
public:
    SerialWire() { m_Clock.start(); }

    void put(const QByteArray &bytes, qint64 byteNanoseconds);
    /// Removes and returns what has arrived, at most `most` bytes.
    QByteArray takeArrived(int most = std::numeric_limits<int>::max());
    bool isEmpty() const { return m_Bytes.empty(); }
    void clear() { m_Bytes = {}; }

private:
    struct Byte
    {
        qint64 arrival;
        char value;
    };

    QElapsedTimer m_Clock;
    std::queue<Byte> m_Bytes;
    qint64 m_LastArrival = 0;
};

} // namespace simulator

#endif
