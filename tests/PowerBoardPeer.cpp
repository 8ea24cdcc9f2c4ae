#include "tests/PowerBoardPeer.h"

#include <numeric>
#include <utility>

using namespace simulator;

namespace {

const char startByte = 0x02;
const char endByte = 0x03;
const char escapeByte = 0x7F;
const quint8 acknowledgeCode = 0x06;
const quint8 refuseCode = 0x15;
const quint8 idAboveTheRange = 200;
const quint8 lowestId = 4;
const quint8 highestId = 126;
const int answerFrameSize = 4;
const int overhead = 5; // of a body: id, two bytes each of length and checksum

quint8 nextIdAfter(quint8 id)
{
    return id < highestId ? static_cast<quint8>(id + 1) : lowestId;
}

QByteArray littleEndian(unsigned value)
{
    const char bytes[] = {static_cast<char>(value % 256), static_cast<char>(value / 256 % 256)};
    return QByteArray(bytes, sizeof bytes);
}

/// `packet` on the wire: everything behind the id escaped, in one pass.
QByteArray framed(const QByteArray &packet)
{
    QByteArray frame;
    frame.append(startByte).append(packet.at(0));
    for (const char byte : packet.mid(1)) {
        if (byte == escapeByte)
            frame.append("\x7F\x7F");
        else if (byte == startByte)
            frame.append("\x7F\xF2");
        else if (byte == endByte)
            frame.append("\x7F\xF3");
        else
            frame.append(byte);
    }
    return frame.append(endByte);
}

/// The packet that `frame` holds; empty when it holds an escape sequence that there is not.
QByteArray unframed(const QByteArray &frame)
{
    QByteArray packet;
    for (int position = 1; position < frame.size() - 1; ++position) {
        char byte = frame.at(position);
        if (byte == escapeByte) {
            switch (static_cast<quint8>(frame.at(++position))) {
            case 0x7F:
                break;
            case 0xF2:
                byte = startByte;
                break;
            case 0xF3:
                byte = endByte;
                break;
            default:
                return QByteArray();
            }
        }
        packet.append(byte);
    }
    return packet;
}

QByteArray answerFrame(quint8 code, quint8 id)
{
    const char bytes[answerFrameSize] = {startByte, static_cast<char>(code), static_cast<char>(id), endByte};
    return QByteArray(bytes, sizeof bytes);
}

} // namespace

PowerBoardPeer::PowerBoardPeer(const QString &device, QObject *parent)
    : QObject(parent), m_Line(device, nullptr), m_NextId(lowestId), m_IsAcknowledged(true)
{
    connect(&m_Line, SIGNAL(readyRead()), this, SLOT(receive()));
}

void PowerBoardPeer::planAnswers(const QList<Answer> &answers)
{
    m_PlannedAnswers = answers;
}

void PowerBoardPeer::sendPacket(const QByteArray &payload, Fault fault)
{
    m_Payload = payload;
    m_IsAcknowledged = false;
    send(frame(m_NextId, payload), fault);
}

void PowerBoardPeer::repeatPacket()
{
    m_Line.deliver(frame(m_NextId, m_Payload));
}

bool PowerBoardPeer::isAcknowledged() const
{
    return m_IsAcknowledged;
}

QList<PowerBoardPeer::Packet> PowerBoardPeer::takePackets()
{
    return std::exchange(m_Packets, {});
}

QList<QByteArray> PowerBoardPeer::takeFrames()
{
    return std::exchange(m_Frames, {});
}

QStringList PowerBoardPeer::takeAnswers()
{
    return std::exchange(m_Answers, {});
}

QStringList PowerBoardPeer::violations() const
{
    return m_Violations;
}

QByteArray PowerBoardPeer::packet(quint8 id, const QByteArray &payload)
{
    const QByteArray content = static_cast<char>(id) + littleEndian(static_cast<unsigned>(payload.size())) + payload;
    const unsigned sum = std::accumulate(content.begin(), content.end(), 1U,
                                         [](unsigned total, char byte) { return total + static_cast<quint8>(byte); });
    return content + littleEndian(sum);
}

QByteArray PowerBoardPeer::frame(quint8 id, const QByteArray &payload)
{
    return framed(packet(id, payload));
}

QByteArray PowerBoardPeer::acknowledgement(quint8 id)
{
    return answerFrame(acknowledgeCode, id);
}

QByteArray PowerBoardPeer::refusal(quint8 id)
{
    return answerFrame(refuseCode, id);
}

PseudoTerminal &PowerBoardPeer::line()
{
    return m_Line;
}

void PowerBoardPeer::receive()
{
    m_Received.append(m_Line.readAll());
    while (takeFrameApart()) {
    }
}

/// False when no whole frame is left. The id in an answer may look like a control byte, so an answer is told by its
/// size: nothing of a data frame that lies so early is an end byte.
bool PowerBoardPeer::takeFrameApart()
{
    if (m_Received.size() < answerFrameSize)
        return false;
    const bool isAnswer = m_Received.at(answerFrameSize - 1) == endByte;
    const int end = isAnswer ? answerFrameSize - 1 : m_Received.indexOf(endByte, 1);
    if (end < 0)
        return false;
    const QByteArray received = m_Received.left(end + 1);
    m_Received.remove(0, end + 1);
    if (received.at(0) != startByte)
        m_Violations << QLatin1String("no frame: ") + QLatin1String(received.toHex());
    else if (isAnswer)
        answerReceived(static_cast<quint8>(received.at(1)), static_cast<quint8>(received.at(2)));
    else
        dataFrameReceived(received);
    return true;
}

void PowerBoardPeer::answerReceived(quint8 kind, quint8 id)
{
    if (kind == acknowledgeCode) {
        m_Answers << QString::fromLatin1("ACK %1").arg(id);
        if (id == m_NextId && !m_IsAcknowledged) {
            m_IsAcknowledged = true;
            m_NextId = nextIdAfter(m_NextId);
        }
    } else if (kind == refuseCode) {
        m_Answers << QString::fromLatin1("NAK %1").arg(id);
        if (!m_IsAcknowledged)
            m_Line.write(frame(m_NextId, m_Payload));
    } else {
        m_Violations << QString::fromLatin1("answer of unknown kind %1").arg(kind);
    }
}

void PowerBoardPeer::dataFrameReceived(const QByteArray &received)
{
    const QByteArray plain = unframed(received);
    const quint8 id = static_cast<quint8>(received.at(1));
    const QByteArray payload = plain.mid(3, plain.size() - overhead);
    if (id < lowestId || id > highestId || plain.size() < overhead || plain != packet(id, payload)) {
        m_Violations << QLatin1String("bad frame: ") + QLatin1String(received.toHex());
        return;
    }
    m_Packets << Packet{id, payload};
    m_Frames << received;
    answer(id);
}

void PowerBoardPeer::answer(quint8 id)
{
    switch (m_PlannedAnswers.isEmpty() ? Acknowledge : m_PlannedAnswers.takeFirst()) {
    case Acknowledge:
        m_Line.write(acknowledgement(id));
        break;
    case AcknowledgeAnotherId:
        m_Line.write(acknowledgement(nextIdAfter(id)));
        break;
    case Refuse:
        m_Line.write(refusal(id));
        break;
    case LoseTheAnswer:
        break;
    }
}

void PowerBoardPeer::send(const QByteArray &frame, Fault fault)
{
    switch (fault) {
    case NoFault:
        m_Line.deliver(frame);
        break;
    case WrongChecksum: {
        QByteArray wrong = packet(m_NextId, m_Payload);
        wrong[wrong.size() - 1] = static_cast<char>(~wrong.at(wrong.size() - 1));
        m_Line.deliver(framed(wrong));
        break;
    }
    case WrongId:
        m_Line.deliver(PowerBoardPeer::frame(idAboveTheRange, m_Payload));
        break;
    case CutShort:
        m_Line.deliver(frame.left(frame.size() - 2));
        break;
    case InSingleBytes:
        for (const char byte : frame)
            m_Line.deliver(QByteArray(1, byte));
        break;
    case MergedWithItsRepetition:
        m_Line.deliver(frame + frame);
        break;
    case Repeated:
        m_Line.deliver(frame);
        m_Line.deliver(frame);
        break;
    }
}
