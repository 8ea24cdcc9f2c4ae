#ifndef TESTS_POWERBOARDPEER_H
#define TESTS_POWERBOARDPEER_H

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include "simulator/models/PseudoTerminal.h"

/// The power board at the far end of its serial line, made from the description of the wire alone. It takes frames
/// apart strictly, answers them, and sends frames of its own; on request it, or the line, misbehaves. Whatever the
/// program sends that is no frame of the protocol is a violation.
class PowerBoardPeer : public QObject
{
    Q_OBJECT

public:
    /// What becomes of a frame from the program.
    enum Answer { Acknowledge, AcknowledgeAnotherId, Refuse, LoseTheAnswer };
    Q_ENUM(Answer)
    /// How a frame to the program goes wrong on its way.
    enum Fault { NoFault, WrongChecksum, WrongId, CutShort, InSingleBytes, MergedWithItsRepetition, Repeated };
    Q_ENUM(Fault)

    struct Packet
    {
        quint8 id;
        QByteArray payload;
    };

    /// Makes the port `device`.
    explicit PowerBoardPeer(const QString &device, QObject *parent = nullptr);

    /// How the next frames are answered, in order; those after them are acknowledged.
    void planAnswers(const QList<Answer> &answers);

    /// Sends a frame with the board's next id. A refused frame is sent again, without the fault.
    void sendPacket(const QByteArray &payload, Fault fault = NoFault);
    /// Sends the last frame again, as the board does when no answer comes.
    void repeatPacket();
    bool isAcknowledged() const;

    /// The data frames received since the last call, resent ones included: taken apart, and as they were on the wire.
    QList<Packet> takePackets();
    QList<QByteArray> takeFrames();
    /// The answers received since the last call, as "ACK 4" or "NAK 200".
    QStringList takeAnswers();
    QStringList violations() const;

    /// The frames of the protocol, for tests that send bytes of their own through line().
    static QByteArray packet(quint8 id, const QByteArray &payload); ///< id to checksum, as it is before the escaping
    static QByteArray frame(quint8 id, const QByteArray &payload);
    static QByteArray acknowledgement(quint8 id);
    static QByteArray refusal(quint8 id);
    simulator::PseudoTerminal &line();

protected slots:
    void receive();

private:
    bool takeFrameApart();
    void answerReceived(quint8 kind, quint8 id);
    void dataFrameReceived(const QByteArray &frame);
    void answer(quint8 id);
    void send(const QByteArray &frame, Fault fault);

    simulator::PseudoTerminal m_Line;
    QByteArray m_Received; ///< not yet taken apart
    QList<Answer> m_PlannedAnswers;
    QList<Packet> m_Packets;
    QList<QByteArray> m_Frames;
    QStringList m_Answers;
    QStringList m_Violations;
    quint8 m_NextId;
    QByteArray m_Payload; ///< of the frame that was sent last
    bool m_IsAcknowledged;
};

#endif
