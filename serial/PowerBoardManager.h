#ifndef SERIAL_POWERBOARDMANAGER_H
#define SERIAL_POWERBOARDMANAGER_H

#include <QByteArray>
#include <QDateTime>
#include <QObject>
#include <QQueue>
#include <QString>

class QTimer;
class TtyHandler;

/// The link to the power board: short commands out, frames of data in, each frame acknowledged by the other side.
///
/// A data frame is STX, packet id (4 to 126), escaped body, ETX. The body is the length of the payload (16 bits), the
/// payload, and the checksum (16 bits), all little-endian; the checksum is 1 plus the sum of the id, the two length
/// bytes and the payload. An answer is STX, ACK or NAK, the id of the frame that it answers, ETX, without escaping.
///
/// One frame is in flight at a time; commands given meanwhile wait in a queue. A frame is sent again on a NAK and after
/// five seconds without an answer, three times at most.
///
/// Whether a frame has begun is shared by all objects of the class: a process has one power board.
class PowerBoardManager : public QObject
{
    Q_OBJECT

public:
    /// `device` is the path of the serial port.
    PowerBoardManager(QString device, QObject *parent);

    virtual void sendGetVersionCommand();
    virtual void sendGetCalDataCommand();
    /// Sets the calibration date to `dateTime` without conversion of its time zone.
    virtual void sendSetCalDataCommand(QDateTime dateTime);
    virtual void sendStartTestCommand(unsigned char test);
    void sendStopTestCommand();
    void sendSendDataCommand();

signals:
    /// The last command is acknowledged and no other is waiting.
    void txComplete();
    /// A command was given up after three resends. The next one in the queue, if any, goes out after this signal.
    void txFailed();
    /// A new, valid frame has come from the board: id, length (2 bytes), payload, checksum (2 bytes), not escaped.
    void packetReceived(QByteArray packetData);

protected slots:
    void processRxData();
    void txTimeOut();

private:
    // Sending
    void queueCommand(const QByteArray &payload);
    bool frameIsInFlight() const;
    void sendNextCommand();
    void sendPowerBoardCommand(QByteArray payload);
    void reSendPowerBoardCommand();
    void reSendOrGiveUp();
    void packetiseMessageBuffer();
    void escapeMessageBuffer();

    // Receiving
    void lineReceived(const QByteArray &body);
    void ackReceived(quint8 id);
    void nakReceived(quint8 id);
    void packetArrived(const QByteArray &packet);
    static QByteArray deEscapeMessageBuffer(const QByteArray &body);
    static bool rxCheckSumIsOk(const QByteArray &packet);
    void sendAck(char id);
    void sendNak(char id);

    QQueue<QByteArray> m_CommandQueue; ///< payloads
    TtyHandler *m_TtyHandler;
    QByteArray m_RxBuffer;   ///< body of the frame being received
    quint8 m_TxPacketId;     ///< of the frame in flight, or of the next one
    int m_RetryCount;        ///< NAKs and time-outs of the frame in flight
    quint8 m_LastRxPacketId; ///< of the last frame accepted from the board; no valid id until there was one
    QByteArray m_TxBuffer;   ///< the last frame sent
    QTimer *m_TxTimer;       ///< runs exactly while a frame is in flight
};

#endif
