#ifndef BENCHMARKS_PACEDLINE_H
#define BENCHMARKS_PACEDLINE_H

#include <QByteArray>

/// The far end of a serial port at 115200 baud, in a process or thread of its own: bytes take their time on the line in
/// both directions, ten bits for each. Times are nanoseconds of the monotonic clock.
class PacedLine
{
public:
    /// Makes the port `name` in place of one that may be there.
    explicit PacedLine(const char *name);
    ~PacedLine();

    /// Waits for bytes and returns them when the last of them has arrived; empty when the port is closed.
    QByteArray receive();
    /// Returns when the last byte has arrived at the port.
    void send(const QByteArray &bytes);
    /// Hands over bytes that have taken their time on the line already.
    void deliver(const QByteArray &bytes);

    qint64 lastBegin() const { return m_LastBegin; } ///< when the bytes last received were written to the port
    qint64 lastSent() const { return m_LastSent; }   ///< when the bytes last sent had arrived

    static qint64 now();

private:
    PacedLine(const PacedLine &) = delete;
    PacedLine &operator=(const PacedLine &) = delete;

    QByteArray m_Name;
    int m_Master;
    int m_Port; ///< held open, so that the line stays up while nobody uses it
    qint64 m_LastBegin = 0;
    qint64 m_LastSent = 0;
    qint64 m_ReceiveFree = 0; ///< when the line towards this end is free again
};

#endif
