#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QtTest>
#include <fcntl.h>
#include <unistd.h>

#include "pic/MemoryMappedPinController.h"
#include "pic/PicPins.h"
#include "serial/EsaBoard.h"
#include "simulator/models/esa/EsaBoards.h"
#include "simulator/models/pic/VirtualBoards.h"
#include "tests/Instrument.h"

using namespace simulator;
using Faults = EsaBootLoader::Faults;

Q_DECLARE_METATYPE(Faults)

namespace {

const EsaBootLoader::Times noTimes = {0, 0, 60000};
const int settleMs = 20;

/// A packet with the bytes 0 to 127; the sum is that of another implementation of CRC-16/XMODEM.
QByteArray packet(int number, const QByteArray &sum = "\xE8\x0A")
{
    QByteArray bytes("\x01");
    bytes.append(static_cast<char>(number)).append(static_cast<char>(255 - number));
    for (int byte = 0; byte < 128; ++byte)
        bytes.append(static_cast<char>(byte));
    return bytes + sum;
}

QList<QByteArray> packets(int count)
{
    QList<QByteArray> list;
    for (int number = 0; number < count; ++number)
        list << packet(number);
    return list;
}

template <typename Value>
Faults with(Value Faults::*fault, Value value)
{
    Faults faults;
    faults.*fault = value;
    return faults;
}

void selectBoard(ESA_BOARD_ID board)
{
    MemoryMappedPinController pins(pinControlBlock);
    pins.setDirection(0xB40, 0x400, MemoryMappedPinController::PIN_OUTPUT);
    pins.setValue(0x740, 0x400, board == ESA_IO_BOARD ? 0 : 1);
}

/// The program's end of the line.
class Port
{
public:
    explicit Port(tcflag_t controlFlags = B115200 | CS8 | CLOCAL | CREAD)
        : m_Descriptor(open("/dev/ttyAPP1", O_RDWR | O_NOCTTY | O_NONBLOCK))
    {
        struct termios settings = {};
        settings.c_cflag = controlFlags;
        tcsetattr(m_Descriptor, TCSANOW, &settings);
    }
    ~Port() { close(m_Descriptor); }

    void send(const QByteArray &bytes) const
    {
        QCOMPARE(write(m_Descriptor, bytes.constData(), static_cast<size_t>(bytes.size())), ssize_t(bytes.size()));
    }
    void drain() const { tcdrain(m_Descriptor); }
    QByteArray received() const
    {
        char buffer[100];
        const ssize_t count = read(m_Descriptor, buffer, sizeof buffer);
        return QByteArray(buffer, qMax(0, static_cast<int>(count)));
    }

private:
    Q_DISABLE_COPY(Port)

    int m_Descriptor;
};

} // namespace

/// The ESA boards of the virtual instrument, without the program.
class EsaBoardsTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void boardAnswersAsAnXmodemReceiver_data();
    void boardAnswersAsAnXmodemReceiver();
    void powerCutKeepsTheMemories_data();
    void powerCutKeepsTheMemories();
    void boardTakesItsTime();
    void byteBelongsToTheBoardThatIsSelectedWhenItArrives_data();
    void byteBelongsToTheBoardThatIsSelectedWhenItArrives();
    void oldBoardAsksUntilThePinMoves();
    void boardHearsItsOwnSettingsOnly_data();
    void boardHearsItsOwnSettingsOnly();
};

void EsaBoardsTest::init()
{
    VirtualBoards::install(
        {&Pic18Device::pic18f4620, &Pic18Device::pic18f4680, &Pic18Device::pic18f4682, &Pic18Device::pic18f4685});
}

void EsaBoardsTest::boardAnswersAsAnXmodemReceiver_data()
{
    QTest::addColumn<Faults>("faults");
    QTest::addColumn<QList<QByteArray>>("chunks");
    QTest::addColumn<QByteArray>("answers"); // A: ACK, N: NAK, X: CAN
    QTest::addColumn<int>("imageSize");
    QTest::addColumn<QString>("violations");
    const QByteArray end("\x04");
    const struct
    {
        const char *name;
        Faults faults;
        QList<QByteArray> chunks; // the board gets its time after each
        QByteArray answers;
        int imageSize;
        const char *violations;
    } rows[] = {
        {"two blocks", {}, {"B2", packet(0), packet(1), end}, "CAAA", 256, ""},
        {"EEPROM", {}, {"B3", packet(0), end}, "CAA", 128, ""},
        {"empty image", {}, {"B2", end}, "CA", 0, ""},
        {"end left out", {}, {"B2", packet(0)}, "CA", 0, ""},
        {"entered twice", {}, {"B", "B2"}, "C", 0, ""},
        {"not entered", {}, {"2"}, "", 0, "byte 0x32 for the measuring program"},
        {"unknown command", {}, {"B4"}, "", 0, "byte 0x34 as a boot loader command"},
        {"bytes before the start",
         {},
         {"B2xy"},
         "C",
         0,
         "byte 0x79 for a full receive buffer; byte 0x78 before the board asks"},
        {"wrong CRC, then again",
         {},
         {"B2", packet(0, QByteArray("\xE8\x00", 2)), "2", packet(0), end},
         "CNAA",
         128,
         "unsound packet where block 0 is due"},
        {"counted from 1", {}, {"B2", packet(1)}, "CN", 0, "unsound packet where block 0 is due"},
        {"command in a transfer", {}, {"B2", packet(0), "2"}, "CA", 0, "byte 0x32 between blocks"},
        {"larger than the memory",
         {},
         QList<QByteArray>{"B3"} + packets(33) + QList<QByteArray>{"3"},
         "C" + QByteArray(32, 'A') + "XXC",
         0,
         "block 32 is beyond the end of the memory"},
        {"refused block", with(&Faults::refusedBlock, 0), {"B2", packet(0), "2", packet(0), end}, "CNAA", 128, ""},
        {"unanswered block", with(&Faults::unansweredBlock, 0), {"B2", packet(0), "2", packet(1)}, "CA", 0, ""},
        {"cancelled block", with(&Faults::cancelledBlock, 0), {"B2", packet(0), "2"}, "CXXC", 0, ""},
        {"refused end", with(&Faults::refusedEnd, true), {"B2", packet(0), end, "2"}, "CAN", 0, ""},
        {"silent", with(&Faults::silentAfterCommand, true), {"B2", "2"}, "", 0, ""},
        {"rubbish", with(&Faults::rubbishAfterReply, QByteArray("x")), {"B2", packet(0)}, "CAx", 0, ""},
    };
    for (const auto &row : rows)
        QTest::newRow(row.name) << row.faults << row.chunks << row.answers << row.imageSize << row.violations;
}

void EsaBoardsTest::boardAnswersAsAnXmodemReceiver()
{
    QFETCH(Faults, faults);
    QFETCH(QList<QByteArray>, chunks);
    QFETCH(QByteArray, answers);
    QFETCH(int, imageSize);
    QFETCH(QString, violations);
    EsaBootLoader board("board", noTimes);
    board.faults = faults;
    QByteArray sent;
    QStringList reported;
    connect(&board, &EsaBootLoader::sends, [&sent](const QByteArray &bytes) { sent += bytes; });
    connect(&board, &EsaBootLoader::violation, [&reported](const QString &text) { reported << text; });
    for (const QByteArray &chunk : chunks) {
        for (const char byte : chunk)
            board.receive(byte);
        for (int turn = 0; turn < 4; ++turn)
            QCoreApplication::processEvents();
    }
    QCOMPARE(sent.replace('\x06', 'A').replace('\x15', 'N').replace('\x18', 'X'), answers);
    QCOMPARE((board.application() + board.eeprom()).size(), imageSize);
    QCOMPARE(reported.join("; ").remove("board: "), violations);
}

void EsaBoardsTest::powerCutKeepsTheMemories_data()
{
    QTest::addColumn<QByteArray>("command");
    QTest::addColumn<QString>("lastMoment");
    QTest::addColumn<int>("storedBlocks");
    QTest::addColumn<bool>("startsInItsBootLoader");
    QTest::newRow("boot loader") << QByteArray("2") << "esa measurement boot loader" << 0 << false;
    QTest::newRow("erase") << QByteArray("2") << "esa measurement erase" << 0 << true;
    QTest::newRow("block") << QByteArray("2") << "esa measurement block" << 1 << true;
    QTest::newRow("end") << QByteArray("2") << "esa measurement end" << 2 << false;
    QTest::newRow("EEPROM block") << QByteArray("3") << "esa measurement block" << 1 << false;
}

/// Each moment sees the files as a power cut there would leave them; boards that start from those go on from there.
void EsaBoardsTest::powerCutKeepsTheMemories()
{
    QFETCH(QByteArray, command);
    QFETCH(QString, lastMoment);
    QFETCH(int, storedBlocks);
    QFETCH(bool, startsInItsBootLoader);
    QTemporaryDir before;
    QTemporaryDir after;
    const QStringList names = {"esa-measurement.application", "esa-measurement.eeprom", "esa-measurement.complete"};
    {
        EsaBootLoader board("esa measurement", noTimes);
        board.keepIn(before.path());
        connect(&board, &EsaBootLoader::moment, [&](const QString &moment) {
            if (moment != lastMoment || QFile::exists(after.filePath(names.first())))
                return;
            for (const QString &name : names)
                QFile::copy(before.filePath(name), after.filePath(name));
        });
        for (const QByteArray &chunk : QList<QByteArray>{"B" + command, packet(0), packet(1), "\x04"}) {
            for (const char byte : chunk)
                board.receive(byte);
            QTest::qWait(settleMs);
        }
    }
    const QByteArray memory = Instrument::contentOf(after.filePath(names.at(command == "2" ? 0 : 1)));
    QCOMPARE(memory.size(), command == "2" ? EsaBootLoader::applicationSize : EsaBootLoader::eepromSize);
    QCOMPARE(memory, packet(0).mid(3, 128).repeated(storedBlocks).leftJustified(memory.size(), '\xFF'));

    EsaBootLoader board("esa measurement", noTimes);
    board.keepIn(after.path());
    const QSignalSpy sent(&board, SIGNAL(sends(QByteArray)));
    const QSignalSpy violations(&board, SIGNAL(violation(QString)));
    board.receive('3');
    QTest::qWait(settleMs);
    QCOMPARE(sent.count(), startsInItsBootLoader ? 1 : 0);
    QCOMPARE(violations.count(), startsInItsBootLoader ? 0 : 1);
}

void EsaBoardsTest::boardTakesItsTime()
{
    selectBoard(ESA_IO_BOARD);
    EsaBoards boards(nullptr);
    boards.times = {50, 100, 50};
    const Port port;
    QElapsedTimer timer;
    timer.start();
    port.send("B2");
    while (port.received().isEmpty())
        QCoreApplication::processEvents();
    QVERIFY(timer.elapsed() >= 150);
    while (port.received().isEmpty())
        QCoreApplication::processEvents();
    QVERIFY(timer.elapsed() >= 200);

    timer.start();
    port.send(packet(0));
    port.drain();
    QVERIFY(timer.nsecsElapsed() >= 133LL * 10 * (1000000000LL / 115200));
    QCOMPARE(boards.ioBoard().blockCount(), 1);
    QCOMPARE(boards.violations(), QStringList());
}

void EsaBoardsTest::byteBelongsToTheBoardThatIsSelectedWhenItArrives_data()
{
    QTest::addColumn<bool>("drained");
    QTest::newRow("drained") << true;
    QTest::newRow("not drained") << false;
}

void EsaBoardsTest::byteBelongsToTheBoardThatIsSelectedWhenItArrives()
{
    QFETCH(bool, drained);
    EsaBoards boards(nullptr);
    boards.byteNanoseconds = 10000000;
    QStringList reported;
    boards.onViolation = [&reported](const QString &text) {
        reported << text;
    };
    selectBoard(ESA_IO_BOARD);
    const Port port;
    port.send("B");
    if (drained)
        port.drain();
    selectBoard(ESA_MEASUREMENT_BOARD);
    QTRY_COMPARE(boards.ioBoard().entryCount() + boards.measurementBoard().entryCount(), 1);
    QCOMPARE(boards.ioBoard().entryCount(), drained ? 1 : 0);
    QCOMPARE(reported, drained ? QStringList() : QStringList("the board select pin moves before the port is drained"));
    QCOMPARE(boards.violations(), reported);
}

void EsaBoardsTest::oldBoardAsksUntilThePinMoves()
{
    EsaBoards boards(nullptr);
    boards.times = noTimes;
    selectBoard(ESA_IO_BOARD);
    const Port port;
    port.send("B3");
    port.drain();
    QByteArray received;
    QTRY_COMPARE(received += port.received(), QByteArray("C"));
    selectBoard(ESA_MEASUREMENT_BOARD);
    QCOMPARE(port.received(), QByteArray("C"));
    selectBoard(ESA_IO_BOARD);
    QCOMPARE(port.received(), QByteArray());
}

void EsaBoardsTest::boardHearsItsOwnSettingsOnly_data()
{
    QTest::addColumn<unsigned int>("controlFlags");
    QTest::newRow("another speed") << tcflag_t(B9600 | CS8 | CLOCAL | CREAD);
    QTest::newRow("parity") << tcflag_t(B115200 | CS8 | PARENB | CLOCAL | CREAD);
    QTest::newRow("two stop bits") << tcflag_t(B115200 | CS8 | CSTOPB | CLOCAL | CREAD);
    QTest::newRow("flow control") << tcflag_t(B115200 | CS8 | CRTSCTS | CLOCAL | CREAD);
}

void EsaBoardsTest::boardHearsItsOwnSettingsOnly()
{
    QFETCH(unsigned int, controlFlags);
    selectBoard(ESA_IO_BOARD);
    EsaBoards boards(nullptr);
    const Port port(controlFlags);
    port.send("B");
    port.drain();
    QCOMPARE(boards.ioBoard().entryCount(), 0);
    QCOMPARE(boards.violations().size(), 1);
}

QTEST_GUILESS_MAIN(EsaBoardsTest)

#include "EsaBoardsTest.moc"
