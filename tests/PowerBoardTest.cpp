#include <QSignalSpy>
#include <QTimer>
#include <QtTest>
#include <memory>
#include <random>

#include "serial/PowerBoardManager.h"
#include "tests/DebugLines.h"
#include "tests/EventLoop.h"
#include "tests/PowerBoardPeer.h"

using namespace simulator;

namespace {

const char port[] = "/dev/ttyAPP2";
const int replyTimeoutMs = 5000;

QByteArray hex(const char *text)
{
    return QByteArray::fromHex(text);
}

/// A manager with the board at the other end of its line, and what it signals.
class Link
{
public:
    Link()
        : manager(port, nullptr),
          complete(&manager, SIGNAL(txComplete())),
          failed(&manager, SIGNAL(txFailed())),
          packets(&manager, SIGNAL(packetReceived(QByteArray))),
          timer(manager.findChild<QTimer *>())
    {
        // Whatever the link before left half received is abandoned.
        board.line().deliver(hex("0202"));
    }

    /// Lets the five seconds of the reply timer pass.
    void expireReplyTimer() const
    {
        QVERIFY(timer->isActive());
        QVERIFY(timer->isSingleShot());
        QCOMPARE(timer->interval(), replyTimeoutMs);
        QVERIFY(timer->remainingTime() > replyTimeoutMs - 1000);
        timer->start(0);
    }

    bool isSettled(int completed, int given_up) const
    {
        return complete.count() == completed && failed.count() == given_up && !timer->isActive();
    }

    /// The frames that the board has got since the last call, once there are `count`.
    QList<QByteArray> waitForFrames(int count)
    {
        QList<QByteArray> frames;
        eventually([&] { return (frames += board.takeFrames()).size() >= count; });
        return frames;
    }

    QStringList waitForAnswers(int count)
    {
        QStringList answers;
        eventually([&] { return (answers += board.takeAnswers()).size() >= count; });
        return answers;
    }

    QList<QByteArray> takeDelivered()
    {
        QList<QByteArray> delivered;
        while (!packets.isEmpty())
            delivered << packets.takeFirst().at(0).toByteArray();
        return delivered;
    }

    PowerBoardPeer board{port};
    PowerBoardManager manager;
    QSignalSpy complete;
    QSignalSpy failed;
    QSignalSpy packets;
    QTimer *timer;
};

/// Sends another command the moment that one fails.
class Insister : public QObject
{
    Q_OBJECT

public:
    explicit Insister(PowerBoardManager *manager) : m_Manager(manager)
    {
        connect(manager, SIGNAL(txFailed()), this, SLOT(insist()));
    }

protected slots:
    void insist() { m_Manager->sendStopTestCommand(); }

private:
    PowerBoardManager *m_Manager;
};

/// What the line may bring, from a seed.
class RandomTraffic
{
public:
    explicit RandomTraffic(unsigned seed) : m_Random(seed) {}

    int below(int limit) { return static_cast<int>(m_Random() % static_cast<unsigned>(limit)); }

    /// Any but the last that was accepted.
    quint8 idForNewPacket()
    {
        const int id = 4 + below(123);
        return static_cast<quint8>(id == lastId ? 4 + (id - 3) % 123 : id);
    }

    /// A quarter of the bytes are those that the framing is about.
    QByteArray bytes(int count)
    {
        QByteArray any;
        while (any.size() < count)
            any.append(below(4) != 0 ? static_cast<char>(below(256)) : "\x02\x03\x7F\xF2"[below(4)]);
        return any;
    }

    QByteArray payload() { return bytes(below(20) == 0 ? below(601) : below(40)); }

    QList<QByteArray> repeated(const QByteArray &frame) { return QVector<QByteArray>(1 + below(3), frame).toList(); }

    QList<QByteArray> inPieces(const QByteArray &frame)
    {
        QList<QByteArray> pieces;
        for (int from = 0; from < frame.size(); from += pieces.last().size())
            pieces << frame.mid(from, 1 + below(frame.size()));
        return pieces;
    }

    /// Chunks of which nothing may be delivered. The two starts at the end abandon whatever was begun.
    QList<QByteArray> spoiled(const QByteArray &frame)
    {
        QList<QByteArray> chunks;
        const int cut = 1 + below(frame.size() - 1);
        switch (below(5)) {
        case 0:
            chunks << frame + bytes(below(4)) + frame;
            break;
        case 1:
            chunks << frame.left(cut) << frame;
            break; // the second is lost with the first
        case 2:
            chunks << frame.mid(cut);
            break;
        case 3:
            chunks << withWrongBit(frame);
            break;
        default:
            chunks << bytes(1 + below(300));
            break;
        }
        return chunks << hex("0202");
    }

    int lastId = 0;

private:
    QByteArray withWrongBit(QByteArray frame)
    {
        const int position = below(frame.size());
        frame[position] = static_cast<char>(frame.at(position) ^ (1 << below(8)));
        return frame;
    }

    std::mt19937 m_Random;
};

} // namespace

/// The power board link against the board at the other end of a pseudo-terminal.
class PowerBoardTest : public QObject
{
    Q_OBJECT

private slots:
    void eachCommandIsItsFrame();
    void idsWrapAndEveryArgumentIsEscaped();
    void commandWaitsForTheFrameInFlight();
    void frameIsGivenUpAfterThreeResends_data();
    void frameIsGivenUpAfterThreeResends();
    void acknowledgementOfAnotherIdOnlyClearsTheCount();
    void nextCommandGoesOutAfterAFailure();
    void answersWithNothingInFlightSendNothing();
    void everyByteIsReceived();
    void longestPayload();
    void frameRecoversFromEachFault_data();
    void frameRecoversFromEachFault();
    void badPacketIsRefused_data();
    void badPacketIsRefused();
    void chunkRules_data();
    void chunkRules();
    void randomChunksDeliverExactlyTheIntactFrames();
};

void PowerBoardTest::eachCommandIsItsFrame()
{
    Link link;
    const DebugLines debug;
    // The time zone of the calibration, 14:05 on 3 March 2021, is nobody's business.
    const QDateTime calibrated(QDate(2021, 3, 3), QTime(14, 5), Qt::OffsetFromUTC, 3600);
    link.manager.sendGetVersionCommand();
    link.manager.sendGetCalDataCommand();
    link.manager.sendSetCalDataCommand(calibrated);
    link.manager.sendStartTestCommand(127);
    link.manager.sendStopTestCommand();
    link.manager.sendSendDataCommand();
    QVERIFY(eventually([&] { return link.isSettled(1, 0); }));
    QCOMPARE(link.board.takeFrames(), QList<QByteArray>()
                                          << hex("02 04 7FF2 00 5356 B0 00 03") << hex("02 05 7FF3 00 535243 F1 00 03")
                                          << hex("02 06 10 00 534344 05 0E 7FF3 7FF3 E507 7FF3000000 414100 7B 7FF2 03")
                                          << hex("02 07 7FF2 00 54 7F7F DD 00 03") << hex("02 08 7FF2 00 5430 8F 00 03")
                                          << hex("02 09 7FF2 00 5344 A3 00 03"));
}

void PowerBoardTest::idsWrapAndEveryArgumentIsEscaped()
{
    Link link;
    const DebugLines debug;
    for (int argument = 0; argument < 256; ++argument)
        link.manager.sendStartTestCommand(static_cast<unsigned char>(argument));
    QVERIFY(eventually([&] { return link.isSettled(1, 0); }));
    const QList<PowerBoardPeer::Packet> packets = link.board.takePackets();
    QCOMPARE(packets.size(), 256);
    for (int argument = 0; argument < 256; ++argument) {
        QCOMPARE(static_cast<int>(packets.at(argument).id), 4 + argument % 123);
        QCOMPARE(packets.at(argument).payload, QByteArray("T") + static_cast<char>(argument));
    }
    QCOMPARE(link.board.violations(), QStringList());
}

void PowerBoardTest::commandWaitsForTheFrameInFlight()
{
    Link link;
    link.board.planAnswers({PowerBoardPeer::LoseTheAnswer, PowerBoardPeer::Refuse});
    link.manager.sendGetVersionCommand();
    link.manager.sendStopTestCommand();
    link.manager.sendSendDataCommand();
    QCOMPARE(link.waitForFrames(1).size(), 1);
    link.expireReplyTimer();
    QVERIFY(eventually([&] { return link.isSettled(1, 0); }));
    QStringList sent;
    const QList<PowerBoardPeer::Packet> packets = link.board.takePackets();
    for (const PowerBoardPeer::Packet &packet : packets)
        sent << QString("%1 %2").arg(packet.id).arg(QString(packet.payload));
    QCOMPARE(sent, QStringList() << "4 SV"
                                 << "4 SV"
                                 << "4 SV"
                                 << "5 T0"
                                 << "6 SD");
}

void PowerBoardTest::frameIsGivenUpAfterThreeResends_data()
{
    const PowerBoardPeer::Answer nak = PowerBoardPeer::Refuse;
    const PowerBoardPeer::Answer silence = PowerBoardPeer::LoseTheAnswer;
    QTest::addColumn<QList<PowerBoardPeer::Answer>>("answers");
    QTest::newRow("refused") << QList<PowerBoardPeer::Answer>{nak, nak, nak, nak};
    QTest::newRow("not answered") << QList<PowerBoardPeer::Answer>{silence, silence, silence, silence};
    QTest::newRow("both in turn, silent at last") << QList<PowerBoardPeer::Answer>{nak, silence, nak, silence};
    QTest::newRow("both in turn, refused at last") << QList<PowerBoardPeer::Answer>{silence, nak, silence, nak};
}

void PowerBoardTest::frameIsGivenUpAfterThreeResends()
{
    QFETCH(QList<PowerBoardPeer::Answer>, answers);
    Link link;
    link.board.planAnswers(answers);
    link.manager.sendGetVersionCommand();
    const QByteArray frame = hex("02 04 7FF2 00 5356 B0 00 03");
    for (const PowerBoardPeer::Answer answer : answers) {
        QCOMPARE(link.failed.count(), 0);
        QCOMPARE(link.waitForFrames(1), QList<QByteArray>() << frame);
        if (answer == PowerBoardPeer::LoseTheAnswer)
            link.expireReplyTimer();
    }
    QVERIFY(eventually([&] { return link.isSettled(0, 1); }));

    // The id was not used up, the count starts anew, and nothing of the old frame is left.
    link.board.planAnswers({PowerBoardPeer::Refuse, PowerBoardPeer::Refuse, PowerBoardPeer::Refuse});
    link.manager.sendStopTestCommand();
    QVERIFY(eventually([&] { return link.isSettled(1, 1); }));
    QCOMPARE(link.waitForFrames(4),
             QList<QByteArray>(QVector<QByteArray>(4, hex("02 04 7FF2 00 5430 8B 00 03")).toList()));
}

void PowerBoardTest::acknowledgementOfAnotherIdOnlyClearsTheCount()
{
    Link link;
    const PowerBoardPeer::Answer nak = PowerBoardPeer::Refuse;
    link.board.planAnswers({nak, nak, nak, PowerBoardPeer::AcknowledgeAnotherId, nak, nak});
    DebugLines debug;
    link.manager.sendGetVersionCommand();
    QVERIFY(eventually([&] { return debug.take().contains("received ack: 5"); }));
    QVERIFY(link.timer->isActive());
    QCOMPARE(link.complete.count(), 0);
    link.expireReplyTimer();
    QVERIFY(eventually([&] { return link.isSettled(1, 0); }));
    QCOMPARE(link.waitForFrames(7).size(), 7);

    // The board's second answer to a frame that was sent twice is no news.
    QVERIFY(link.board.line().deliver(PowerBoardPeer::acknowledgement(4)));
    QVERIFY(link.isSettled(1, 0));
}

void PowerBoardTest::nextCommandGoesOutAfterAFailure()
{
    const PowerBoardPeer::Answer nak = PowerBoardPeer::Refuse;
    for (const bool insists : {false, true}) {
        Link link;
        const auto insister = insists ? std::make_unique<Insister>(&link.manager) : nullptr;
        link.board.planAnswers({nak, nak, nak, nak});
        link.manager.sendGetVersionCommand();
        link.manager.sendSendDataCommand();
        QVERIFY(eventually([&] { return link.isSettled(1, 1); }));
        const QList<PowerBoardPeer::Packet> packets = link.board.takePackets();
        QCOMPARE(packets.size(), insists ? 6 : 5);
        QCOMPARE(packets.at(4).payload, QByteArray("SD"));
        QCOMPARE(static_cast<int>(packets.at(4).id), 4);
        QCOMPARE(packets.last().payload, QByteArray(insists ? "T0" : "SD"));
        QCOMPARE(static_cast<int>(packets.last().id), insists ? 5 : 4);
    }
}

void PowerBoardTest::answersWithNothingInFlightSendNothing()
{
    Link link;
    link.manager.sendGetVersionCommand();
    QVERIFY(eventually([&] { return link.isSettled(1, 0); }));
    for (int answer = 0; answer < 5; ++answer)
        QVERIFY(link.board.line().deliver(PowerBoardPeer::refusal(4)));
    QVERIFY(link.board.line().deliver(hex("02 07 05 03")));
    QVERIFY(link.isSettled(1, 0));
    link.manager.sendStopTestCommand();
    QVERIFY(eventually([&] { return link.isSettled(2, 0); }));
    QCOMPARE(link.waitForFrames(2).size(), 2);
}

void PowerBoardTest::everyByteIsReceived()
{
    Link link;
    QByteArray payload;
    for (int value = 0; value < 256; ++value)
        payload.append(static_cast<char>(value));
    // What looks like an escape sequence, and the bytes that such sequences are made of.
    payload.append(hex("7F7FF2 7FF2 7FF3 7F7F 7F02 7F03 F2F3 7F"));
    link.board.sendPacket(payload);
    QVERIFY(eventually([&] { return link.board.isAcknowledged(); }));
    QCOMPARE(link.takeDelivered(), QList<QByteArray>() << PowerBoardPeer::packet(4, payload));

    // What follows an escape byte and is no code stays as it is: 1 + 5 + 2 + 7F + 41 = C8.
    QVERIFY(link.board.line().deliver(hex("02 05 7FF2 00 7F41 C8 00 03")));
    QCOMPARE(link.takeDelivered(), QList<QByteArray>() << hex("05 0200 7F41 C800"));
}

void PowerBoardTest::longestPayload()
{
    Link link;
    const QByteArray longest(600, '\xFF'); // whose sum exceeds 16 bits
    link.board.sendPacket(longest);
    QCOMPARE(link.waitForAnswers(1), QStringList("ACK 4"));
    QCOMPARE(link.takeDelivered(), QList<QByteArray>() << PowerBoardPeer::packet(4, longest));
}

void PowerBoardTest::frameRecoversFromEachFault_data()
{
    QTest::addColumn<PowerBoardPeer::Fault>("fault");
    QTest::addColumn<int>("repetitions"); // by the board, when no answer came
    QTest::addColumn<QStringList>("answers");
    QTest::newRow("none") << PowerBoardPeer::NoFault << 0 << QStringList("ACK 4");
    QTest::newRow("wrong checksum") << PowerBoardPeer::WrongChecksum << 0
                                    << (QStringList() << "NAK 4"
                                                      << "ACK 4");
    QTest::newRow("wrong id") << PowerBoardPeer::WrongId << 0
                              << (QStringList() << "NAK 200"
                                                << "ACK 4");
    // The start of the first repetition ends the frame that was cut short.
    QTest::newRow("cut short") << PowerBoardPeer::CutShort << 2 << QStringList("ACK 4");
    QTest::newRow("in single bytes") << PowerBoardPeer::InSingleBytes << 0 << QStringList("ACK 4");
    QTest::newRow("merged with its repetition") << PowerBoardPeer::MergedWithItsRepetition << 1 << QStringList("ACK 4");
    QTest::newRow("repeated") << PowerBoardPeer::Repeated << 0
                              << (QStringList() << "ACK 4"
                                                << "ACK 4");
}

void PowerBoardTest::frameRecoversFromEachFault()
{
    QFETCH(PowerBoardPeer::Fault, fault);
    QFETCH(int, repetitions);
    QFETCH(QStringList, answers);
    Link link;
    const QByteArray payload = hex("41 02 03 7F FF 00");
    link.board.sendPacket(payload, fault);
    for (int repetition = 0; repetition < repetitions; ++repetition) {
        QVERIFY(!link.board.isAcknowledged());
        link.board.repeatPacket();
    }
    QCOMPARE(link.waitForAnswers(answers.size()), answers);
    QVERIFY(link.board.isAcknowledged());
    link.board.sendPacket("next");
    QCOMPARE(link.waitForAnswers(1), QStringList("ACK 5"));
    QCOMPARE(link.takeDelivered(), QList<QByteArray>()
                                       << PowerBoardPeer::packet(4, payload) << PowerBoardPeer::packet(5, "next"));
    QCOMPARE(link.board.violations(), QStringList());
}

void PowerBoardTest::badPacketIsRefused_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("debugLine");
    QTest::addColumn<QString>("answer");
    QTest::newRow("empty body") << QByteArray() << "invalid id: 0"
                                << "NAK 0";
    QTest::newRow("id alone") << hex("04") << "invalid checksum: 0"
                              << "NAK 4";
    QTest::newRow("id 127") << PowerBoardPeer::packet(127, "A") << "invalid id: 127"
                            << "NAK 127";
    QTest::newRow("id 255, too long as well") << hex("FF FFFF") << "invalid id: 255"
                                              << "NAK 255";
    QTest::newRow("length 601") << PowerBoardPeer::packet(5, QByteArray(601, 'x')) << "invalid length: 601"
                                << "NAK 5";
    QTest::newRow("length 65535") << hex("04 FFFF") << "invalid length: 65535"
                                  << "NAK 4";
    QTest::newRow("wrong high byte") << hex("05 0000 06 01") << "invalid checksum: 262"
                                     << "NAK 5";
    // Its sum is 0x0006, so the byte that is missing would have been a zero.
    QTest::newRow("last byte missing") << hex("05 0000 06") << "invalid checksum: 6"
                                       << "NAK 5";
    QTest::newRow("rest missing") << hex("05 5802 41") << "invalid checksum: 0"
                                  << "NAK 5";
}

void PowerBoardTest::badPacketIsRefused()
{
    QFETCH(QByteArray, body);
    QFETCH(QString, debugLine);
    QFETCH(QString, answer);
    Link link;
    DebugLines debug;
    body.replace('\x7F', "\x7F\x7F").replace('\x02', "\x7F\xF2");
    QVERIFY(link.board.line().deliver(hex("02") + body + hex("03")));
    QCOMPARE(debug.take(), QStringList() << debugLine << "sent Nak: " + answer.mid(4));
    QCOMPARE(link.waitForAnswers(1), QStringList(answer));
    QVERIFY(link.takeDelivered().isEmpty());
}

void PowerBoardTest::chunkRules_data()
{
    // A frame with id 9 and the payload "A" has the body 09 01 00 41 4C 00.
    QTest::addColumn<QList<QByteArray>>("chunks");
    QTest::addColumn<int>("delivered");
    const QByteArray frame = hex("02 09 0100 41 4C00 03");
    QTest::newRow("rubbish around the frame") << QList<QByteArray>{hex("00FF03") + frame + hex("7FFF03")} << 1;
    QTest::newRow("end byte before the start, end in the next chunk")
        << QList<QByteArray>{hex("03 02 09 0100"), hex("41 4C00 03 FF")} << 1;
    QTest::newRow("start byte alone") << QList<QByteArray>{frame.left(1), frame.mid(1)} << 1;
    QTest::newRow("chunk without a start") << QList<QByteArray>{hex("41 03"), frame} << 1;
    QTest::newRow("two starts in a chunk") << QList<QByteArray>{hex("02") + frame, frame} << 1;
    QTest::newRow("a start inside a frame")
        << QList<QByteArray>{frame.left(3), hex("4102"), frame.mid(3), frame.left(4), frame} << 0;
    QTest::newRow("an answer and a frame in a chunk")
        << QList<QByteArray>{PowerBoardPeer::acknowledgement(99) + frame} << 0;
}

void PowerBoardTest::chunkRules()
{
    QFETCH(QList<QByteArray>, chunks);
    QFETCH(int, delivered);
    Link link;
    DebugLines debug;
    for (const QByteArray &chunk : chunks)
        QVERIFY(link.board.line().deliver(chunk));
    QCOMPARE(link.takeDelivered().size(), delivered);
    QCOMPARE(debug.take(), QStringList());
}

void PowerBoardTest::randomChunksDeliverExactlyTheIntactFrames()
{
    const int chunkCount = 100000;
    RandomTraffic traffic(20210303);
    Link link;
    DebugLines debug;
    int chunksSent = 0;
    int acknowledgementsDue = 0;
    while (chunksSent < chunkCount) {
        const quint8 id = traffic.idForNewPacket();
        const QByteArray payload = traffic.payload();
        const QByteArray frame = PowerBoardPeer::frame(id, payload);
        const int kind = traffic.below(7);
        const QList<QByteArray> chunks = kind == 0   ? traffic.repeated(frame)
                                         : kind == 1 ? traffic.inPieces(frame)
                                                     : traffic.spoiled(frame);
        for (const QByteArray &chunk : chunks)
            QVERIFY(link.board.line().deliver(chunk));
        chunksSent += chunks.size();

        const bool isIntact = kind <= 1;
        QList<QByteArray> expected;
        if (isIntact) {
            expected << PowerBoardPeer::packet(id, payload);
            acknowledgementsDue += kind == 0 ? chunks.size() : 1;
            traffic.lastId = id;
        }
        QCOMPARE(link.takeDelivered(), expected);
        debug.take();
    }
    int acknowledgements = 0;
    eventually(
        [&] { return (acknowledgements += link.board.takeAnswers().filter("ACK").size()) >= acknowledgementsDue; });
    QCOMPARE(acknowledgements, acknowledgementsDue);
    QCOMPARE(link.board.violations(), QStringList());
}

QTEST_GUILESS_MAIN(PowerBoardTest)

#include "PowerBoardTest.moc"
