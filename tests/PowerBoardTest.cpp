#include <QSignalSpy>
#include <QTimer>
#include <QtTest>
#include <memory>

#include "serial/PowerBoardManager.h"
#include "simulator/models/PseudoTerminal.h"
#include "tests/DebugLines.h"
#include "tests/EventLoop.h"
#include "tests/Rows.h"

using namespace simulator;

namespace {

const char port[] = "/dev/ttyAPP2";
const int replyTimeoutMs = 5000;

QByteArray hex(const char *text)
{
    return QByteArray::fromHex(text);
}

QByteArray littleEndian(int value)
{
    return QByteArray(1, static_cast<char>(value)) + static_cast<char>(value >> 8);
}

/// Id, length, payload and checksum, as they are before the escaping.
QByteArray packet(int id, const QByteArray &payload)
{
    const QByteArray content = static_cast<char>(id) + littleEndian(payload.size()) + payload;
    int sum = 1;
    for (const char byte : content)
        sum += static_cast<quint8>(byte);
    return content + littleEndian(sum);
}

QByteArray framed(QByteArray packet)
{
    packet.replace('\x7F', "\x7F\x7F").replace('\x02', "\x7F\xF2").replace('\x03', "\x7F\xF3");
    return '\x02' + packet + '\x03';
}

QByteArray answer(char code, int id)
{
    return QByteArray("\x02") + code + static_cast<char>(id) + '\x03';
}

/// The power board at the other end of the line: answers the frames of the program.
class Board : public QObject
{
    Q_OBJECT

public:
    /// What becomes of a frame: it is acknowledged, as another one too, refused, or its answer is lost.
    enum Answer { Ack, AckOfNextId, Nak, Silence };
    Q_ENUM(Answer)

    Board() : line(port, nullptr) { connect(&line, SIGNAL(readyRead()), this, SLOT(receive())); }

    PseudoTerminal line;
    QList<Answer> plan;       ///< for the next frames; those after them are acknowledged
    QList<QByteArray> frames; ///< of data, in hexadecimal
    QList<QByteArray> answers;

protected slots:
    // An answer has four bytes, whatever its id.
    void receive()
    {
        m_Received += line.readAll();
        for (int end = 0; (end = m_Received.indexOf('\x03', 3)) >= 0; m_Received.remove(0, end + 1)) {
            const QByteArray frame = m_Received.left(end + 1);
            (frame.size() == 4 ? answers : frames) << frame.toHex();
            if (frame.size() > 4)
                reply(frame.at(1));
        }
    }

private:
    void reply(char id)
    {
        const Answer next = plan.isEmpty() ? Ack : plan.takeFirst();
        if (next != Silence)
            line.write(answer(next == Nak ? '\x15' : '\x06', next == AckOfNextId ? id + 1 : id));
    }

    QByteArray m_Received;
};

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
        board.line.deliver(hex("0202")); // abandons what the link before left half received
    }

    /// Lets the five seconds of the reply timer pass.
    void expireReplyTimer() const
    {
        QVERIFY(timer->isActive() && timer->isSingleShot());
        QCOMPARE(timer->timerType(), Qt::PreciseTimer);
        QCOMPARE(timer->interval(), replyTimeoutMs);
        QVERIFY(timer->remainingTime() > replyTimeoutMs - 1000);
        timer->start(0);
    }

    /// Waits until no frame is in flight; true when the link has signalled so often.
    bool isSettled(int completed, int givenUp) const
    {
        return eventually(
            [&] { return complete.count() == completed && failed.count() == givenUp && !timer->isActive(); });
    }

    /// The frames, in hexadecimal, that the board has got since the last call, once there are `count`.
    QList<QByteArray> takeFrames(int count)
    {
        eventually([&] { return board.frames.size() >= count; });
        return std::exchange(board.frames, {});
    }

    Board board;
    PowerBoardManager manager;
    QSignalSpy complete;
    QSignalSpy failed;
    QSignalSpy packets;
    QTimer *timer;
};

/// Sends another command the moment that one fails.
class Resender : public QObject
{
    Q_OBJECT

public:
    explicit Resender(PowerBoardManager *manager) : m_Manager(manager)
    {
        connect(manager, SIGNAL(txFailed()), this, SLOT(send()));
    }

protected slots:
    void send() { m_Manager->sendStopTestCommand(); }

private:
    PowerBoardManager *m_Manager;
};

const QByteArray getVersion = "02047ff2005356b00003";
const QByteArray stopTest = "02047ff20054308b0003";

} // namespace

/// The power board link against the board at the other end of a pseudo-terminal.
class PowerBoardTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<DebugLines> m_Lines;

private slots:
    void init() { m_Lines = std::make_unique<DebugLines>(); }
    void cleanup() { m_Lines.reset(); }
    void eachCommandIsItsFrame();
    void idsWrapAndEveryArgumentIsEscaped();
    void commandWaitsForTheFrameInFlight();
    void frameIsGivenUpAfterThreeResends_data();
    void frameIsGivenUpAfterThreeResends();
    void acknowledgementOfAnotherIdOnlyClearsTheCount();
    void nextCommandGoesOutAfterAFailure();
    void answersWithNothingInFlightSendNothing();
    void chunksAreReceived_data();
    void chunksAreReceived();
};

void PowerBoardTest::eachCommandIsItsFrame()
{
    Link link;
    // The time zone of the calibration, 14:05 on 3 February 2021, does not count.
    const QDateTime calibrated(QDate(2021, 2, 3), QTime(14, 5), Qt::OffsetFromUTC, 3600);
    link.manager.sendGetVersionCommand();
    link.manager.sendGetCalDataCommand();
    link.manager.sendSetCalDataCommand(calibrated);
    link.manager.sendStartTestCommand(127);
    link.manager.sendStopTestCommand();
    link.manager.sendSendDataCommand();
    QVERIFY(link.isSettled(1, 0));
    QCOMPARE(link.board.frames,
             QList<QByteArray>({getVersion, "02057ff300535243f10003",
                                "02061000534344050e7ff37ff2e5077ff30000004141007a7ff203", "02077ff200547f7fdd0003",
                                "02087ff20054308f0003", "02097ff2005344a30003"}));
}

void PowerBoardTest::idsWrapAndEveryArgumentIsEscaped()
{
    Link link;
    QList<QByteArray> expected;
    for (int argument = 0; argument < 256; ++argument) {
        link.manager.sendStartTestCommand(static_cast<unsigned char>(argument));
        expected << framed(packet(4 + argument % 123, QByteArray("T") + static_cast<char>(argument))).toHex();
    }
    QVERIFY(link.isSettled(1, 0));
    QCOMPARE(link.board.frames, expected);
}

void PowerBoardTest::commandWaitsForTheFrameInFlight()
{
    Link link;
    link.board.plan = {Board::Silence, Board::Nak};
    link.manager.sendGetVersionCommand();
    link.manager.sendStopTestCommand();
    QCOMPARE(link.takeFrames(1), QList<QByteArray>({getVersion}));
    link.expireReplyTimer();
    QVERIFY(link.isSettled(1, 0));
    QCOMPARE(link.board.frames, QList<QByteArray>({getVersion, getVersion, "02057ff20054308c0003"}));
}

void PowerBoardTest::frameIsGivenUpAfterThreeResends_data()
{
    using Answers = QList<Board::Answer>;
    QTest::addColumn<Answers>("answers");
    addRow("refused", Answers{Board::Nak, Board::Nak, Board::Nak, Board::Nak});
    addRow("not answered", Answers{Board::Silence, Board::Silence, Board::Silence, Board::Silence});
    addRow("both in turn, silent at last", Answers{Board::Nak, Board::Silence, Board::Nak, Board::Silence});
    addRow("both in turn, refused at last", Answers{Board::Silence, Board::Nak, Board::Silence, Board::Nak});
}

void PowerBoardTest::frameIsGivenUpAfterThreeResends()
{
    QFETCH(QList<Board::Answer>, answers);
    Link link;
    link.board.plan = answers;
    link.manager.sendGetVersionCommand();
    for (const Board::Answer given : answers) {
        QCOMPARE(link.failed.count(), 0);
        QCOMPARE(link.takeFrames(1), QList<QByteArray>({getVersion}));
        if (given == Board::Silence)
            link.expireReplyTimer();
    }
    QVERIFY(link.isSettled(0, 1));

    // The id was not used up, the count starts anew, and nothing of the old frame is left.
    link.board.plan = {Board::Nak, Board::Nak, Board::Nak};
    link.manager.sendStopTestCommand();
    QVERIFY(link.isSettled(1, 1));
    QCOMPARE(link.board.frames, QList<QByteArray>({stopTest, stopTest, stopTest, stopTest}));
}

void PowerBoardTest::acknowledgementOfAnotherIdOnlyClearsTheCount()
{
    Link link;
    link.board.plan = {Board::Nak, Board::Nak, Board::Nak, Board::AckOfNextId, Board::Nak, Board::Nak};
    link.manager.sendGetVersionCommand();
    QVERIFY(eventually([] { return DebugLines::take().contains("received ack: 5"); }));
    QVERIFY(link.timer->isActive());
    QCOMPARE(link.complete.count(), 0);
    link.expireReplyTimer();
    QVERIFY(link.isSettled(1, 0));
    QCOMPARE(link.board.frames.size(), 7);

    // The board's second answer to a frame that was sent twice.
    QVERIFY(link.board.line.deliver(answer('\x06', 4)));
    QVERIFY(link.isSettled(1, 0));
}

void PowerBoardTest::nextCommandGoesOutAfterAFailure()
{
    for (const bool resends : {false, true}) {
        Link link;
        const auto resender = resends ? std::make_unique<Resender>(&link.manager) : nullptr;
        link.board.plan = {Board::Nak, Board::Nak, Board::Nak, Board::Nak};
        link.manager.sendGetVersionCommand();
        link.manager.sendSendDataCommand();
        QVERIFY(link.isSettled(1, 1));
        const QList<QByteArray> others = link.board.frames.mid(4);
        QCOMPARE(others.first(), framed(packet(4, "SD")).toHex());
        QCOMPARE(others.mid(1), resends ? QList<QByteArray>({framed(packet(5, "T0")).toHex()}) : QList<QByteArray>());
    }
}

void PowerBoardTest::answersWithNothingInFlightSendNothing()
{
    Link link;
    link.manager.sendGetVersionCommand();
    QVERIFY(link.isSettled(1, 0));
    for (int count = 0; count < 5; ++count)
        QVERIFY(link.board.line.deliver(answer('\x15', 4)));
    QVERIFY(link.board.line.deliver(hex("02 07 05 03"))); // neither kind of answer
    QVERIFY(link.isSettled(1, 0));
    link.manager.sendStopTestCommand();
    QVERIFY(link.isSettled(2, 0));
    QCOMPARE(link.board.frames.size(), 2);
}

void PowerBoardTest::chunksAreReceived_data()
{
    using Chunks = QList<QByteArray>;
    QTest::addColumn<Chunks>("chunks");
    QTest::addColumn<Chunks>("delivered");
    QTest::addColumn<QStringList>("answers"); ///< code and id
    QTest::addColumn<QStringList>("debugLines");
    QByteArray everyByte;
    for (int value = 0; value < 256; ++value)
        everyByte.append(static_cast<char>(value));
    everyByte.append(hex("7F7FF2 7FF2 7FF3 7F7F 7F02 7F03 F2F3 7F")); // like escape sequences, and their bytes
    const QByteArray longest(600, '\xFF');                            // whose sum exceeds 16 bits
    const QByteArray good = packet(9, "A");
    const QByteArray frame = hex("02 09 0100 41 4C00 03");
    const auto ack = [](int count) {
        return QStringList(QVector<QString>(count, "0609").toList());
    };
    const Chunks once = {good};
    const Chunks none;
    const QStringList quiet;

    addRow("every byte", Chunks{framed(packet(9, everyByte))}, Chunks{packet(9, everyByte)}, ack(1), quiet);
    addRow("longest payload", Chunks{framed(packet(9, longest))}, Chunks{packet(9, longest)}, ack(1), quiet);
    addRow("escape byte without a code", Chunks{hex("02 09 7FF2 00 7F41 CC 00 03")}, Chunks{hex("09 0200 7F41 CC00")},
           ack(1), quiet);
    addRow("single bytes",
           Chunks{hex("02"), hex("09"), hex("01"), hex("00"), hex("41"), hex("4C"), hex("00"), hex("03")}, once, ack(1),
           quiet);
    addRow("stray bytes around the frame", Chunks{hex("00FF03") + frame + hex("7FFF03")}, once, ack(1), quiet);
    addRow("end byte before the start", Chunks{hex("03 02 09 0100"), hex("41 4C00 03 FF")}, once, ack(1), quiet);
    addRow("chunk without a start", Chunks{hex("41 03"), frame}, once, ack(1), quiet);
    addRow("two starts in a chunk", Chunks{frame + frame, frame}, once, ack(1), quiet);
    addRow("a start inside a frame", Chunks{frame.left(3), hex("4102"), frame.mid(3), frame.left(4), frame}, none,
           ack(0), quiet);
    addRow("cut short, repeated", Chunks{frame.left(6), frame, frame}, once, ack(1), quiet);
    addRow("an answer and a frame in a chunk", Chunks{answer('\x06', 99) + frame}, none, ack(0), quiet);
    addRow("repeated", Chunks{frame, frame, framed(packet(10, "B"))}, Chunks{good, packet(10, "B")},
           QStringList{"0609", "0609", "060a"}, QStringList("same packet: 9"));

    const auto refused = [](const char *name, const QByteArray &body, int id, const QString &reason) {
        addRow(name, Chunks{framed(body), framed(packet(9, "A"))}, Chunks{packet(9, "A")},
               QStringList{QString("15%1").arg(id, 2, 16, QChar('0')), "0609"},
               QStringList{reason, QString("sent Nak: %1").arg(id)});
    };
    refused("empty body", "", 0, "invalid id: 0");
    refused("id 3", packet(3, "A"), 3, "invalid id: 3");
    refused("id 127", packet(127, "A"), 127, "invalid id: 127");
    refused("id 255, too long as well", hex("FF FFFF"), 255, "invalid id: 255");
    refused("length 601", packet(5, QByteArray(601, 'x')), 5, "invalid length: 601");
    refused("length 65535", hex("04 FFFF"), 4, "invalid length: 65535");
    refused("id alone", hex("04"), 4, "invalid checksum: 0");
    refused("wrong high byte", hex("05 0000 06 01"), 5, "invalid checksum: 262");
    refused("last byte missing", hex("05 0000 06"), 5, "invalid checksum: 6"); // a zero, which missing bytes count as
    refused("rest missing", hex("05 5802 41"), 5, "invalid checksum: 0");
}

void PowerBoardTest::chunksAreReceived()
{
    QFETCH(QList<QByteArray>, chunks);
    QFETCH(QList<QByteArray>, delivered);
    QFETCH(QStringList, answers);
    QFETCH(QStringList, debugLines);
    Link link;
    for (const QByteArray &chunk : chunks)
        QVERIFY(link.board.line.deliver(chunk));
    QCOMPARE(DebugLines::take(), debugLines);
    QList<QByteArray> packets;
    for (const QList<QVariant> &arguments : link.packets)
        packets << arguments.at(0).toByteArray();
    QCOMPARE(packets, delivered);
    eventually([&] { return link.board.answers.size() >= answers.size(); });
    QStringList sent;
    for (const QByteArray &frame : link.board.answers)
        sent << frame.mid(2, 4);
    QCOMPARE(sent, answers);
}

QTEST_GUILESS_MAIN(PowerBoardTest)

#include "PowerBoardTest.moc"
