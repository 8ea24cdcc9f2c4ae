#include <QTimer>
#include <QtTest>

#include "serial/PowerBoardManager.h"
#include "simulator/models/PseudoTerminal.h"
#include "tests/DebugLines.h"
#include "tests/EventLoop.h"
#include "tests/Rows.h"

using namespace simulator;

namespace {

using Chunks = QList<QByteArray>;

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

/// What becomes of a frame: it is acknowledged, as another one too, rejected, or its answer is lost.
enum Answer { Ack, AckOfNextId, Nak, Silence };
using Answers = QList<int>;

/// A manager, what it signals, and the power board at the other end of its line, which answers its frames.
class Link
{
public:
    Link()
    {
        QObject::connect(&line, &PseudoTerminal::readyRead, &line, [this] { receive(); });
        line.deliver(hex("0202")); // abandons what the link before left half received
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

    const DebugLines debug;
    PseudoTerminal line{port, nullptr};
    Answers plan;             ///< of the board for the next frames; those after them are acknowledged
    QList<QByteArray> frames; ///< of data, in hexadecimal
    QStringList answers;      ///< code and id, in hexadecimal
    PowerBoardManager manager{port, nullptr};
    QSignalSpy complete{&manager, SIGNAL(txComplete())};
    QSignalSpy failed{&manager, SIGNAL(txFailed())};
    QSignalSpy packets{&manager, SIGNAL(packetReceived(QByteArray))};
    QTimer *timer = manager.findChild<QTimer *>();

private:
    // An answer has four bytes, whatever its id.
    void receive()
    {
        m_Received += line.readAll();
        for (int end = 0; (end = m_Received.indexOf('\x03', 3)) >= 0; m_Received.remove(0, end + 1)) {
            const QByteArray frame = m_Received.left(end + 1);
            if (frame.size() == 4)
                answers << frame.mid(1, 2).toHex();
            else
                takeFrame(frame);
        }
    }

    void takeFrame(const QByteArray &frame)
    {
        frames << frame.toHex();
        const int next = plan.isEmpty() ? Ack : plan.takeFirst();
        if (next != Silence)
            line.write(answer(next == Nak ? '\x15' : '\x06', frame.at(1) + (next == AckOfNextId ? 1 : 0)));
    }

    QByteArray m_Received;
};

const QByteArray getVersion = "02047ff2005356b00003";
const QByteArray stopTest = "02047ff20054308b0003";

} // namespace

/// The power board link against the board at the other end of a pseudo-terminal.
class PowerBoardTest : public QObject
{
    Q_OBJECT

private slots:
    void eachCommandIsItsFrame();
    void idsWrapAndEveryArgumentIsEscaped();
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
    link.manager.sendGetVersionCommand();
    link.manager.sendGetCalDataCommand();
    // The time zone does not count.
    link.manager.sendSetCalDataCommand(QDateTime(QDate(2021, 2, 3), QTime(14, 5), Qt::OffsetFromUTC, 3600));
    link.manager.sendStartTestCommand(127);
    link.manager.sendStopTestCommand();
    link.manager.sendSendDataCommand();
    QVERIFY(link.isSettled(1, 0));
    QCOMPARE(link.frames,
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
    QCOMPARE(link.frames, expected);
}

void PowerBoardTest::frameIsGivenUpAfterThreeResends_data()
{
    QTest::addColumn<Answers>("answers");
    addRow("rejected", Answers{Nak, Nak, Nak, Nak});
    addRow("not answered", Answers{Silence, Silence, Silence, Silence});
    addRow("both in turn, silent at last", Answers{Nak, Silence, Nak, Silence});
    addRow("both in turn, rejected at last", Answers{Silence, Nak, Silence, Nak});
}

void PowerBoardTest::frameIsGivenUpAfterThreeResends()
{
    QFETCH(Answers, answers);
    Link link;
    link.plan = answers;
    link.manager.sendGetVersionCommand();
    for (int sent = 1; sent <= answers.size(); ++sent) {
        QCOMPARE(link.failed.count(), 0);
        QVERIFY(eventually([&] { return link.frames.size() == sent; }));
        if (answers.at(sent - 1) == Silence)
            link.expireReplyTimer();
    }
    QVERIFY(link.isSettled(0, 1));

    // The id was not used up, the count starts anew, and nothing of the old frame is left.
    link.plan = {Nak, Nak, Nak};
    link.manager.sendStopTestCommand();
    QVERIFY(link.isSettled(1, 1));
    QCOMPARE(link.frames, QList<QByteArray>({getVersion, getVersion, getVersion, getVersion, stopTest, stopTest,
                                             stopTest, stopTest}));
}

void PowerBoardTest::acknowledgementOfAnotherIdOnlyClearsTheCount()
{
    Link link;
    link.plan = {Nak, Nak, Nak, AckOfNextId, Nak, Nak};
    link.manager.sendGetVersionCommand();
    QVERIFY(eventually([] { return DebugLines::take().contains("received ack: 5"); }));
    QVERIFY(link.timer->isActive());
    QCOMPARE(link.complete.count(), 0);
    link.expireReplyTimer();
    QVERIFY(link.isSettled(1, 0));
    QCOMPARE(link.frames.size(), 7);
}

void PowerBoardTest::nextCommandGoesOutAfterAFailure()
{
    for (const bool resends : {false, true}) {
        Link link;
        if (resends)
            connect(&link.manager, &PowerBoardManager::txFailed, [&] { link.manager.sendStopTestCommand(); });
        link.plan = {Nak, Nak, Nak, Nak};
        link.manager.sendGetVersionCommand();
        link.manager.sendSendDataCommand();
        QVERIFY(link.isSettled(1, 1));
        QList<QByteArray> expected = {getVersion, getVersion, getVersion, getVersion, "02047ff20053449e0003"};
        if (resends)
            expected << "02057ff20054308c0003";
        QCOMPARE(link.frames, expected);
    }
}

void PowerBoardTest::answersWithNothingInFlightSendNothing()
{
    Link link;
    link.manager.sendGetVersionCommand();
    QVERIFY(link.isSettled(1, 0));
    const QByteArray ack = answer('\x06', 4);
    const QByteArray nak = answer('\x15', 4);
    for (const QByteArray &bytes : {ack, nak, nak, nak, nak, nak, hex("02 07 05 03")}) // the last is of neither kind
        QVERIFY(link.line.deliver(bytes));
    QVERIFY(link.isSettled(1, 0));
    link.manager.sendStopTestCommand();
    QVERIFY(link.isSettled(2, 0));
    QCOMPARE(link.frames.size(), 2);
}

void PowerBoardTest::chunksAreReceived_data()
{
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

    const auto accepted = [](const char *name, const Chunks &chunks, const QByteArray &packet) {
        addRow(name, chunks, Chunks{packet}, QStringList("0609"), QStringList());
    };
    accepted("every byte", {framed(packet(9, everyByte))}, packet(9, everyByte));
    accepted("longest payload", {framed(packet(9, longest))}, packet(9, longest));
    accepted("escape byte without a code", {hex("02 09 7FF2 00 7F41 CC 00 03")}, hex("09 0200 7F41 CC00"));
    accepted("single bytes", {hex("02"), hex("09"), hex("01"), hex("00"), hex("41"), hex("4C"), hex("00"), hex("03")},
             good);
    accepted("stray bytes around the frame", {hex("00FF03") + frame + hex("7FFF03")}, good);
    accepted("end byte before the start", {hex("03 02 09 0100"), hex("41 4C00 03 FF")}, good);
    accepted("chunk without a start", {hex("41 03"), frame}, good);
    accepted("two starts in a chunk", {frame + frame, frame}, good);
    accepted("cut short, repeated", {frame.left(6), frame, frame}, good);

    const auto ignored = [](const char *name, const Chunks &chunks) {
        addRow(name, chunks, Chunks(), QStringList(), QStringList());
    };
    ignored("a start inside a frame", {frame.left(3), hex("4102"), frame.mid(3), frame.left(4), frame});
    ignored("an answer and a frame in a chunk", {answer('\x06', 99) + frame});

    addRow("repeated", Chunks{frame, frame, framed(packet(10, "B"))}, Chunks{good, packet(10, "B")},
           QStringList{"0609", "0609", "060a"}, QStringList("same packet: 9"));

    const auto rejected = [&](const char *name, const QByteArray &body, int id, const QString &reason) {
        addRow(name, Chunks{framed(body), frame}, Chunks{good},
               QStringList{QString("15%1").arg(id, 2, 16, QChar('0')), "0609"},
               QStringList{reason, QString("sent Nak: %1").arg(id)});
    };
    rejected("empty body", "", 0, "invalid id: 0");
    rejected("id 3", packet(3, "A"), 3, "invalid id: 3");
    rejected("id 127", packet(127, "A"), 127, "invalid id: 127");
    rejected("id 255, too long as well", hex("FF FFFF"), 255, "invalid id: 255");
    rejected("length 601", packet(5, QByteArray(601, 'x')), 5, "invalid length: 601");
    rejected("length 65535", hex("04 FFFF"), 4, "invalid length: 65535");
    rejected("id alone", hex("04"), 4, "invalid checksum: 0");
    rejected("wrong high byte", hex("05 0000 06 01"), 5, "invalid checksum: 262");
    rejected("last byte missing", hex("05 0000 06"), 5, "invalid checksum: 6"); // a zero, which missing bytes count as
    rejected("rest missing", hex("05 5802 41"), 5, "invalid checksum: 0");
}

void PowerBoardTest::chunksAreReceived()
{
    QFETCH(Chunks, chunks);
    QFETCH(Chunks, delivered);
    QFETCH(QStringList, answers);
    QFETCH(QStringList, debugLines);
    Link link;
    for (const QByteArray &chunk : chunks)
        QVERIFY(link.line.deliver(chunk));
    QCOMPARE(DebugLines::take(), debugLines);
    Chunks packets;
    for (const QList<QVariant> &arguments : link.packets)
        packets << arguments.at(0).toByteArray();
    QCOMPARE(packets, delivered);
    eventually([&] { return link.answers.size() >= answers.size(); });
    QCOMPARE(link.answers, answers);
}

QTEST_GUILESS_MAIN(PowerBoardTest)

#include "PowerBoardTest.moc"
