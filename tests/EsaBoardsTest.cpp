#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QtTest>

#include "pic/MemoryMappedPinController.h"
#include "pic/PicPins.h"
#include "serial/EsaBoard.h"
#include "serial/TtyHandler.h"
#include "simulator/models/esa/EsaBoards.h"
#include "tests/Instrument.h"

using namespace simulator;

namespace {

const EsaBootLoader::Times noTimes = {0, 0, 60000};

/// A packet with the bytes 0 to 127; the sum is that of another implementation of CRC-16/XMODEM.
QByteArray packet(int number, const QByteArray &sum = "\xE8\x0A")
{
    QByteArray bytes("\x01");
    bytes.append(static_cast<char>(number)).append(static_cast<char>(255 - number));
    for (int byte = 0; byte < 128; ++byte)
        bytes.append(static_cast<char>(byte));
    return bytes + sum;
}

/// Gives the board the chunks, and its time after each.
void feed(EsaBootLoader *board, const QList<QByteArray> &chunks)
{
    for (const QByteArray &chunk : chunks) {
        for (const char byte : chunk)
            board->receive(byte);
        for (int turn = 0; turn < 4; ++turn)
            QCoreApplication::processEvents();
    }
}

void selectBoard(ESA_BOARD_ID board)
{
    MemoryMappedPinController pins(pinControlBlock);
    pins.setDirection(0xB40, 0x400, MemoryMappedPinController::PIN_OUTPUT);
    pins.setValue(0x740, 0x400, board == ESA_IO_BOARD ? 0 : 1);
}

/// The program's end of the line. What it receives waits for readAll().
class Port : public TtyHandler
{
public:
    Port() : TtyHandler("/dev/ttyAPP1", nullptr), m_Receiver(this, SIGNAL(readyRead())) {}

private:
    QSignalSpy m_Receiver; ///< without one the bytes are dropped
};

} // namespace

/// The ESA boards of the virtual instrument at the program's port, without an update.
class EsaBoardsTest : public QObject
{
    Q_OBJECT

private slots:
    void init() { selectBoard(ESA_IO_BOARD); }
    void boardAnswersAsAnXmodemReceiver();
    void powerCutKeepsTheMemories();
    void boardTakesItsTime();
    void byteBelongsToTheBoardThatIsSelectedWhenItArrives();
    void oldBoardAsksUntilThePinMoves();
    void boardHearsItsOwnSettingsOnly();
};

void EsaBoardsTest::boardAnswersAsAnXmodemReceiver()
{
    const QByteArray end("\x04");
    const QByteArray corrupt = packet(0, QByteArray("\xE8\x00", 2));
    QList<QByteArray> large = {"B3"};
    for (int number = 0; number <= EsaBootLoader::eepromSize / 128; ++number)
        large << packet(number);
    const struct
    {
        const char *name;
        QList<QByteArray> chunks;
        QByteArray answers; // A: ACK, N: NAK, X: CAN
        int imageSize;
        const char *violations;
    } rows[] = {
        {"two blocks", {"B2", packet(0), packet(1), end}, "CAAA", 256, ""},
        {"EEPROM", {"B3", packet(0), end}, "CAA", 128, ""},
        {"empty image", {"B2", end}, "CA", 0, ""},
        {"end left out", {"B2", packet(0)}, "CA", 0, ""},
        {"entered twice", {"B", "B2"}, "C", 0, ""},
        {"not entered", {"2"}, "", 0, "byte 0x32 for the measuring program"},
        {"unknown", {"B4"}, "", 0, "byte 0x34 as a boot loader command"},
        {"early", {"B2xy"}, "C", 0, "byte 0x79 for a full receive buffer; byte 0x78 before the board asks"},
        {"corrupt", {"B2", corrupt, "2", packet(0), end}, "CNAA", 128, "corrupt packet in place of block 0"},
        {"counted from 1", {"B2", packet(1)}, "CN", 0, "corrupt packet in place of block 0"},
        {"command in a transfer", {"B2", packet(0), "2"}, "CA", 0, "byte 0x32 between blocks"},
        {"large", large << "3", "C" + QByteArray(32, 'A') + "XXC", 0, "block 32 is beyond the end of the memory"},
    };
    for (const auto &row : rows) {
        EsaBootLoader board(row.name, noTimes);
        QByteArray answers;
        QStringList violations;
        connect(&board, &EsaBootLoader::sends, [&answers](const QByteArray &bytes) { answers += bytes; });
        connect(&board, &EsaBootLoader::violation, [&violations](const QString &text) { violations << text; });
        feed(&board, row.chunks);
        answers.replace('\x06', 'A').replace('\x15', 'N').replace('\x18', 'X');
        QCOMPARE(row.name + (": " + answers), row.name + (": " + row.answers));
        QCOMPARE((board.application() + board.eeprom()).size(), row.imageSize);
        QCOMPARE(violations.join("; ").remove(row.name + QString(": ")), QString(row.violations));
    }
}

/// Each moment sees the files as a power cut there would leave them; boards that start from those go on from there.
void EsaBoardsTest::powerCutKeepsTheMemories()
{
    const struct
    {
        QByteArray command;
        QString lastMoment;
        int storedBlocks;
        bool startsInItsBootLoader;
    } cuts[] = {
        {"2", "esa measurement boot loader", 0, false}, {"2", "esa measurement erase", 0, true},
        {"2", "esa measurement block", 1, true},        {"2", "esa measurement end", 2, false},
        {"3", "esa measurement block", 1, false},
    };
    const QStringList names = {"esa-measurement.application", "esa-measurement.eeprom", "esa-measurement.complete"};
    for (const auto &cut : cuts) {
        const QTemporaryDir before;
        const QTemporaryDir after;
        EsaBootLoader board("esa measurement", noTimes);
        board.keepIn(before.path());
        connect(&board, &EsaBootLoader::moment, [&](const QString &moment) {
            for (const QString &name : names) {
                if (moment == cut.lastMoment) // a copy does not replace the first one
                    QFile::copy(before.filePath(name), after.filePath(name));
            }
        });
        feed(&board, {"B" + cut.command, packet(0), packet(1), "\x04"});
        const QByteArray memory = Instrument::contentOf(after.filePath(names.at(cut.command == "2" ? 0 : 1)));
        const QByteArray stored = packet(0).mid(3, 128).repeated(cut.storedBlocks);
        QCOMPARE(memory.size(), cut.command == "2" ? EsaBootLoader::applicationSize : EsaBootLoader::eepromSize);
        QCOMPARE(memory, stored.leftJustified(memory.size(), '\xFF'));

        EsaBootLoader restarted("esa measurement", noTimes);
        restarted.keepIn(after.path());
        const QSignalSpy sent(&restarted, SIGNAL(sends(QByteArray)));
        feed(&restarted, {"3"});
        QCOMPARE(sent.count(), cut.startsInItsBootLoader ? 1 : 0);
    }
}

void EsaBoardsTest::boardTakesItsTime()
{
    EsaBoards boards(nullptr);
    boards.times = {50, 100, 50};
    Port port;
    QElapsedTimer timer;
    timer.start();
    port.sendByteArray("B2");
    for (const int askedAfter : {150, 200}) {
        while (port.readAll().isEmpty())
            QCoreApplication::processEvents();
        QVERIFY(timer.elapsed() >= askedAfter);
    }
    timer.start();
    port.sendByteArray(packet(0));
    port.drain();
    QVERIFY(timer.nsecsElapsed() >= 133LL * 10 * (1000000000LL / 115200));
    QCOMPARE(boards.ioBoard().blockCount(), 1);
    QCOMPARE(boards.violations(), QStringList());
}

void EsaBoardsTest::byteBelongsToTheBoardThatIsSelectedWhenItArrives()
{
    for (const bool drained : {true, false}) {
        selectBoard(ESA_IO_BOARD);
        EsaBoards boards(nullptr);
        boards.byteNanoseconds = 100000000;
        QStringList reported;
        boards.onViolation = [&reported](const QString &text) {
            reported << text;
        };
        Port port;
        port.sendByteArray("B");
        if (drained)
            port.drain();
        selectBoard(ESA_MEASUREMENT_BOARD);
        QTRY_COMPARE(boards.ioBoard().entryCount() + boards.measurementBoard().entryCount(), 1);
        QCOMPARE(boards.ioBoard().entryCount(), drained ? 1 : 0);
        QCOMPARE(reported.join("; "), QString(drained ? "" : "the board select pin moves before the port is drained"));
        QCOMPARE(boards.violations(), reported);
    }
}

void EsaBoardsTest::oldBoardAsksUntilThePinMoves()
{
    EsaBoards boards(nullptr);
    boards.times = noTimes;
    Port port;
    port.sendByteArray("B3");
    port.drain();
    QByteArray received;
    QTRY_COMPARE(received += port.readAll(), QByteArray("C"));
    selectBoard(ESA_MEASUREMENT_BOARD);
    QCOMPARE(port.readAll(), QByteArray("C"));
    selectBoard(ESA_IO_BOARD);
    QCOMPARE(port.readAll(), QByteArray());
}

void EsaBoardsTest::boardHearsItsOwnSettingsOnly()
{
    const tcflag_t others[] = {B9600 | CS8, B115200 | CS8 | PARENB, B115200 | CS8 | CSTOPB, B115200 | CS8 | CRTSCTS};
    for (const tcflag_t flags : others) {
        EsaBoards boards(nullptr);
        Port port;
        struct termios settings = boards.line().settings();
        settings.c_cflag = flags;
        boards.line().setSettings(settings);
        port.sendByteArray("B");
        port.drain();
        QCOMPARE(boards.ioBoard().entryCount(), 0);
        QCOMPARE(boards.violations().size(), 1);
    }
}

QTEST_GUILESS_MAIN(EsaBoardsTest)

#include "EsaBoardsTest.moc"
