#include "serial/PowerBoardManager.h"

#include <QDataStream>
#include <QTimer>
#include <QtDebug>
#include <algorithm>

#include "platform/Qt5.h"
#include "serial/TtyHandler.h"

namespace {

const char stx = '\x02';
const char etx = '\x03';
const char ack = '\x06';
const char nak = '\x15';
const char escape = '\x7F';

// The bytes that are escaped in a body, and what follows the escape byte in place of each.
struct EscapedByte
{
    char byte;
    char code;
};
const EscapedByte escapedBytes[] = {{escape, escape}, {stx, '\xF2'}, {etx, '\xF3'}};

// The range keeps clear of the control bytes that frame a packet; ids are not escaped.
const quint8 firstPacketId = 4;
const quint8 lastPacketId = 126;

const int answerSize = 2; // ACK or NAK, id
const int headerSize = 3; // id, length
const int checkSumSize = 2;
const int maxPayloadLength = 600; // the board sends no more
const int maxRetries = 3;
const int replyTimeoutMs = 5000;

const QString cmdGetVersion = QLatin1String("SV");
const QString cmdGetCalData = QLatin1String("SRC");
const QString cmdSetCalData = QLatin1String("SCD");
const QString cmdStartTest = QLatin1String("T");
const QString cmdStopTest = QLatin1String("T0");
const QString cmdSendData = QLatin1String("SD");

// Missing bytes count as 0: a frame that was cut short may end anywhere.
quint8 byteAt(const QByteArray &bytes, int position)
{
    return position < bytes.size() ? static_cast<quint8>(bytes.at(position)) : quint8(0);
}

int littleEndian16At(const QByteArray &bytes, int position)
{
    return byteAt(bytes, position) + 256 * byteAt(bytes, position + 1);
}

void appendLittleEndian16(QByteArray &bytes, int value)
{
    bytes.append(static_cast<char>(value & 0xFF));
    bytes.append(static_cast<char>((value >> 8) & 0xFF));
}

int checkSumOf(const QByteArray &bytes, int count)
{
    int sum = 1;
    for (int position = 0; position < count; ++position)
        sum += byteAt(bytes, position);
    return sum & 0xFFFF;
}

} // namespace

PowerBoardManager::PowerBoardManager(QString device, QObject *parent)
    : QObject(parent),
      m_TtyHandler(new TtyHandler(device, this)),
      m_TxPacketId(firstPacketId),
      m_RetryCount(0),
      m_LastRxPacketId(0),
      m_TxTimer(new QTimer(this))
{
    connect(m_TtyHandler, SIGNAL(readyRead()), this, SLOT(processRxData()));
    m_TxTimer->setSingleShot(true);
    makePrecise(m_TxTimer);
    connect(m_TxTimer, SIGNAL(timeout()), this, SLOT(txTimeOut()));
}

void PowerBoardManager::sendGetVersionCommand()
{
    queueCommand(cmdGetVersion.toLatin1());
}

void PowerBoardManager::sendGetCalDataCommand()
{
    queueCommand(cmdGetCalData.toLatin1());
}

void PowerBoardManager::sendSetCalDataCommand(QDateTime dateTime)
{
    const QDate date = dateTime.date();
    const QTime time = dateTime.time();
    QByteArray payload = cmdSetCalData.toLatin1();
    QDataStream stream(&payload, QIODevice::Append);
    stream.setByteOrder(QDataStream::LittleEndian);
    stream << static_cast<quint8>(time.minute()) << static_cast<quint8>(time.hour());
    stream << static_cast<quint8>(date.day()) << static_cast<quint8>(date.month());
    stream << static_cast<quint16>(date.year());
    stream << "AA"; // as length (32 bits), text and terminating zero
    queueCommand(payload);
}

void PowerBoardManager::sendStartTestCommand(unsigned char test)
{
    queueCommand(cmdStartTest.toLatin1() + static_cast<char>(test));
}

void PowerBoardManager::sendStopTestCommand()
{
    queueCommand(cmdStopTest.toLatin1());
}

void PowerBoardManager::sendSendDataCommand()
{
    queueCommand(cmdSendData.toLatin1());
}

void PowerBoardManager::queueCommand(const QByteArray &payload)
{
    m_CommandQueue.enqueue(payload);
    if (!frameIsInFlight())
        sendNextCommand();
}

bool PowerBoardManager::frameIsInFlight() const
{
    return m_TxTimer->isActive();
}

void PowerBoardManager::sendNextCommand()
{
    if (m_CommandQueue.isEmpty())
        emit txComplete();
    else
        sendPowerBoardCommand(m_CommandQueue.dequeue());
}

void PowerBoardManager::sendPowerBoardCommand(QByteArray payload)
{
    m_TxBuffer = payload;
    packetiseMessageBuffer();
    reSendPowerBoardCommand();
}

void PowerBoardManager::reSendPowerBoardCommand()
{
    m_TxTimer->start(replyTimeoutMs);
    m_TtyHandler->sendByteArray(m_TxBuffer);
}

/// What follows a NAK or a time-out of the frame in flight.
void PowerBoardManager::reSendOrGiveUp()
{
    m_TxTimer->stop();
    ++m_RetryCount;
    if (m_RetryCount <= maxRetries) {
        reSendPowerBoardCommand();
        return;
    }
    m_RetryCount = 0;
    emit txFailed();
    // A receiver of the signal may have given a command that is already in flight.
    if (!frameIsInFlight() && !m_CommandQueue.isEmpty())
        sendNextCommand();
}

void PowerBoardManager::txTimeOut()
{
    reSendOrGiveUp();
}

/// Turns the payload in m_TxBuffer into its frame.
void PowerBoardManager::packetiseMessageBuffer()
{
    QByteArray body;
    appendLittleEndian16(body, m_TxBuffer.size());
    body.append(m_TxBuffer);
    appendLittleEndian16(body, (m_TxPacketId + checkSumOf(body, body.size())) & 0xFFFF);
    m_TxBuffer = body;
    escapeMessageBuffer();
    m_TxBuffer.append(etx);
    m_TxBuffer.prepend(static_cast<char>(m_TxPacketId));
    m_TxBuffer.prepend(stx);
}

void PowerBoardManager::escapeMessageBuffer()
{
    // The escape byte is the first of the table: the ones put in for the others must not be doubled.
    for (const EscapedByte &escaped : escapedBytes)
        m_TxBuffer.replace(QByteArray(1, escaped.byte), QByteArray(1, escape) + escaped.code);
}

void PowerBoardManager::processRxData()
{
    enum { WaitingForFrame, InsideFrame };
    static int rx_state = WaitingForFrame;

    const QByteArray chunk = m_TtyHandler->readAll();
    if (rx_state == WaitingForFrame) {
        if (chunk.count(stx) != 1)
            return;
        m_RxBuffer = chunk.mid(chunk.indexOf(stx) + 1);
    } else if (chunk.contains(stx)) {
        rx_state = WaitingForFrame;
        return;
    } else {
        m_RxBuffer += chunk;
    }

    const int end = m_RxBuffer.indexOf(etx);
    rx_state = end < 0 ? InsideFrame : WaitingForFrame;
    if (end >= 0)
        lineReceived(m_RxBuffer.left(end));
}

/// `body` is what stood between STX and ETX.
void PowerBoardManager::lineReceived(const QByteArray &body)
{
    if (body.size() != answerSize)
        packetArrived(deEscapeMessageBuffer(body));
    else if (body.at(0) == ack)
        ackReceived(byteAt(body, 1));
    else if (body.at(0) == nak)
        nakReceived(byteAt(body, 1));
}

void PowerBoardManager::ackReceived(quint8 id)
{
    qDebug().nospace() << "received ack: " << id;
    m_RetryCount = 0;
    if (id != m_TxPacketId)
        return;
    m_TxPacketId = id == lastPacketId ? firstPacketId : static_cast<quint8>(id + 1);
    m_TxTimer->stop();
    sendNextCommand();
}

void PowerBoardManager::nakReceived(quint8 id)
{
    qDebug().nospace() << "received nak: " << id;
    // With no frame in flight there is nothing to send again: the last one is acknowledged or given up.
    if (frameIsInFlight())
        reSendOrGiveUp();
}

void PowerBoardManager::packetArrived(const QByteArray &packet)
{
    const quint8 id = byteAt(packet, 0);
    const int length = littleEndian16At(packet, 1);
    if (id < firstPacketId || id > lastPacketId) {
        qDebug().nospace() << "invalid id: " << id;
        sendNak(static_cast<char>(id));
    } else if (length > maxPayloadLength) {
        qDebug().nospace() << "invalid length: " << length;
        sendNak(static_cast<char>(id));
    } else if (!rxCheckSumIsOk(packet)) {
        qDebug().nospace() << "invalid checksum: " << littleEndian16At(packet, headerSize + length);
        sendNak(static_cast<char>(id));
    } else if (id == m_LastRxPacketId) {
        qDebug().nospace() << "same packet: " << id;
        sendAck(static_cast<char>(id));
    } else {
        m_LastRxPacketId = id;
        sendAck(static_cast<char>(id));
        emit packetReceived(packet);
    }
}

QByteArray PowerBoardManager::deEscapeMessageBuffer(const QByteArray &body)
{
    QByteArray plain;
    plain.reserve(body.size());
    for (int position = 0; position < body.size(); ++position) {
        const char next = position + 1 < body.size() ? body.at(position + 1) : '\0';
        const EscapedByte *const end = std::end(escapedBytes);
        const EscapedByte *escaped = end;
        if (body.at(position) == escape)
            escaped = std::find_if(std::begin(escapedBytes), end,
                                   [next](const EscapedByte &candidate) { return candidate.code == next; });
        plain.append(escaped == end ? body.at(position) : escaped->byte);
        if (escaped != end)
            ++position;
    }
    return plain;
}

/// False also for a packet that ends before its checksum does.
bool PowerBoardManager::rxCheckSumIsOk(const QByteArray &packet)
{
    const int checkSumPosition = headerSize + littleEndian16At(packet, 1);
    return packet.size() >= checkSumPosition + checkSumSize &&
           checkSumOf(packet, checkSumPosition) == littleEndian16At(packet, checkSumPosition);
}

void PowerBoardManager::sendAck(char id)
{
    m_TtyHandler->sendByteArray(QByteArray() + stx + ack + id + etx);
}

void PowerBoardManager::sendNak(char id)
{
    m_TtyHandler->sendByteArray(QByteArray() + stx + nak + id + etx);
    qDebug().nospace() << "sent Nak: " << static_cast<quint8>(id);
}
