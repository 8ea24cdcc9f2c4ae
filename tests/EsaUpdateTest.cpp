#include <QDir>
#include <QSettings>
#include <QtTest>
#include <sys/stat.h>

#include "screens/UpdaterProgressScreen.h"
#include "simulator/models/esa/EsaBoards.h"
#include "simulator/models/pic/HexRecord.h"
#include "simulator/models/pic/VirtualBoards.h"
#include "tests/DebugLines.h"
#include "tests/Instrument.h"
#include "tests/KeyPresser.h"
#include "tests/Panel.h"
#include "tests/Rows.h"

using namespace simulator;

namespace {

using Faults = EsaBootLoader::Faults;
using Files = Instrument::Files;

const QList<int> receiverTimeout = {30000}; // milliseconds
const QList<int> replyTimeout = {10000};
const int silentPolls = 60; // longer than a busy machine needs for a reply

QByteArray image(int size)
{
    QByteArray bytes;
    for (int index = 0; index < size; ++index)
        bytes.append(static_cast<char>(index * 7 + index / 128));
    return bytes;
}

QByteArray padded(const QByteArray &bytes)
{
    return bytes.leftJustified((bytes.size() + 127) / 128 * 128, '\x1A');
}

/// Ends each wait of the program for a silent board as soon as it is clear that no reply comes.
class TimeoutSkipper : public QObject
{
public:
    explicit TimeoutSkipper(QTimer *replyTimer) : m_ReplyTimer(replyTimer)
    {
        connect(&m_Poll, &QTimer::timeout, this, &TimeoutSkipper::poll);
        m_Poll.start(5);
    }
    QList<int> skipped; ///< the intended durations in milliseconds

private:
    void poll()
    {
        if (!m_ReplyTimer->isActive())
            return;
        const bool sameWait = m_ReplyTimer->remainingTime() <= m_Remaining;
        m_Remaining = m_ReplyTimer->remainingTime();
        m_Polls = sameWait ? m_Polls + 1 : 0;
        if (m_Polls == silentPolls) {
            skipped << m_ReplyTimer->interval();
            m_ReplyTimer->start(0);
        }
    }

    QTimer *m_ReplyTimer;
    QTimer m_Poll;
    int m_Polls = 0; ///< of one silent wait
    int m_Remaining = 0;
};

template <typename Value>
Faults with(Value Faults::*fault, Value value)
{
    Faults faults;
    faults.*fault = value;
    return faults;
}

} // namespace

Q_DECLARE_METATYPE(simulator::EsaBootLoader::Faults)

/// The ESA lines of a command file, against the boot loaders of the two boards.
class EsaUpdateTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void imagesOfAllSizesArrive();
    void eachKeywordReachesItsBoardAndMemory();
    void boardIsEnteredOnlyOnceInARun();
    void boardThatFailsEndsTheUpdate_data();
    void boardThatFailsEndsTheUpdate();
    void replyTimerStartsAnewWithEachBlock();
    void keysScrollDuringATransfer();
    void portThatDisappearsEndsTheUpdate();
    void strayBytesAroundRepliesAreSkipped_data();
    void strayBytesAroundRepliesAreSkipped();
    void boardThatKeepsAskingStartsNothing();
    void imageThatCannotBeReadFails();
    void byteOfTheOtherBoardStartsNothing();
    void picAndEsaLinesOfOnePackage();

private:
    bool update(const QByteArray &commandFile, const Files &files);
    QTimer *replyTimer() const;

    std::unique_ptr<Instrument> m_Instrument;
    std::unique_ptr<EsaBoards> m_Boards;
    std::unique_ptr<Panel> m_Panel;
};

void EsaUpdateTest::initTestCase()
{
    Instrument::useItsSettings();
}

void EsaUpdateTest::init()
{
    QSettings().setValue("AvrEnable", true);
    QSettings().setValue("PicEnable", true);
    VirtualBoards::install();
    m_Instrument = std::make_unique<Instrument>();
    m_Boards = std::make_unique<EsaBoards>(nullptr);
    m_Boards->times = {0, 0, 1000};
    m_Boards->byteNanoseconds = 0;
    m_Panel = std::make_unique<Panel>();
}

void EsaUpdateTest::cleanup()
{
    const QStringList violations = m_Boards->violations() + VirtualBoards::installed().violations();
    m_Panel.reset();
    m_Boards.reset();
    QCOMPARE(violations.join("; "), QString());
}

/// Executes the command file from the SD card; true when all its lines succeeded.
bool EsaUpdateTest::update(const QByteArray &commandFile, const Files &files)
{
    m_Instrument->insertPackage("mmcblk0p4", commandFile, files);
    m_Panel->updateFromCard();
    return m_Panel->lastMessage().startsWith("green: ");
}

QTimer *EsaUpdateTest::replyTimer() const
{
    const QObject *screen = m_Panel->window()->findChild<UpdaterProgressScreen *>();
    return screen->findChild<QTimer *>(QString(), Qt::FindDirectChildrenOnly);
}

void EsaUpdateTest::imagesOfAllSizesArrive()
{
    const EsaBootLoader &board = m_Boards->ioBoard();
    for (const int size : {0, 1, 128, 129, 256, 128 * 300 + 5}) {
        const int transfers = board.transferCount();
        QVERIFY(update("ESA_IO_APP:/image\n", {{"image", image(size)}}));
        QCOMPARE(board.application(), padded(image(size)));
        QCOMPARE(board.blockCount(), (size + 127) / 128);
        QCOMPARE(board.transferCount() - transfers, 1);
    }
}

void EsaUpdateTest::eachKeywordReachesItsBoardAndMemory()
{
    QVERIFY(update("ESA_IO_APP:/1\nESA_M_APP_V2:/2\nESA_IO_EEP:/3\nESA_M_EEP:/4\n",
                   {{"1", "one"}, {"2", "two"}, {"3", "three"}, {"4", "four"}}));
    QCOMPARE(m_Boards->ioBoard().application(), padded("one"));
    QCOMPARE(m_Boards->measurementBoard().application(), padded("two"));
    QCOMPARE(m_Boards->ioBoard().eeprom(), padded("three"));
    QCOMPARE(m_Boards->measurementBoard().eeprom(), padded("four"));
    QCOMPARE(m_Panel->messages().filter("ESA"), QStringList({"Updating ESA IO Board Application with file: /1",
                                                             "Updating ESA Measurement Board Application with file: /2",
                                                             "Updating ESA IO Board EEPROM with file: /3",
                                                             "Updating ESA Measurement Board EEPROM with file: /4"}));
}

void EsaUpdateTest::boardIsEnteredOnlyOnceInARun()
{
    QVERIFY(update("ESA_IO_APP:/1\nESA_IO_APP:/2\n", {{"1", "one"}, {"2", "two"}}));
    QVERIFY(update("ESA_M_APP:/1\nESA_IO_EEP:/2\n", {{"1", "one"}, {"2", "two"}}));
    QCOMPARE(m_Boards->ioBoard().entryCount(), 1);
    QCOMPARE(m_Boards->measurementBoard().entryCount(), 1);
    QCOMPARE(m_Boards->ioBoard().application(), padded("two"));
}

void EsaUpdateTest::boardThatFailsEndsTheUpdate_data()
{
    QTest::addColumn<Faults>("faults");
    QTest::addColumn<QString>("debugLine");
    QTest::addColumn<QList<int>>("skipped");
    QTest::addColumn<int>("blocks"); ///< that were sent: none of them again
    QTest::addColumn<bool>("takesTheNext");
    const QString rejected = "ESA NACK received";
    const QString silent = "ESA board does not answer";
    addRow("first block rejected", with(&Faults::rejectedBlock, 0), rejected, QList<int>(), 1, false);
    addRow("last block rejected", with(&Faults::rejectedBlock, 2), rejected, QList<int>(), 3, false);
    addRow("command not answered", with(&Faults::silentAfterCommand, true), silent, receiverTimeout, 0, false);
    addRow("block not answered", with(&Faults::unansweredBlock, 1), silent, replyTimeout, 2, false);
    addRow("transfer cancelled", with(&Faults::cancelledBlock, 1), silent, replyTimeout, 2, true);
}

void EsaUpdateTest::boardThatFailsEndsTheUpdate()
{
    QFETCH(Faults, faults);
    QFETCH(QString, debugLine);
    QFETCH(QList<int>, skipped);
    QFETCH(int, blocks);
    QFETCH(bool, takesTheNext);
    EsaBootLoader &board = m_Boards->measurementBoard();
    board.faults = faults;
    const TimeoutSkipper skipper(replyTimer());
    const DebugLines debug;
    QVERIFY(!update("ESA_M_EEP:/image\nSYSTEM:NAND\n", {{"image", image(300)}}));
    QVERIFY(DebugLines::take().contains(debugLine));
    QCOMPARE(skipper.skipped, skipped);
    QCOMPARE(m_Panel->redMessages().first(),
             QString("red: Failed - Updating ESA Measurement Board EEPROM with file: /image"));
    QVERIFY(m_Panel->messages().contains("System Type set to: NAND"));
    QCOMPARE(board.blockCount(), blocks);
    QCOMPARE(board.transferCount(), 0);

    // A board that has not cancelled the transfer is still in it.
    board.faults = Faults();
    QCOMPARE(update("ESA_M_EEP:/image\n", {{"image", image(300)}}), takesTheNext);
    QCOMPARE(skipper.skipped, takesTheNext ? skipped : skipped + receiverTimeout);
    QCOMPARE(board.eeprom(), takesTheNext ? padded(image(300)) : QByteArray());
    QCOMPARE(board.entryCount(), 1);
}

void EsaUpdateTest::replyTimerStartsAnewWithEachBlock()
{
    QList<int> intervals;
    m_Boards->onMoment = [&](const QString &moment) {
        if (moment != "esa io block")
            return;
        intervals << replyTimer()->interval();
        replyTimer()->start(100000);
    };
    QVERIFY(update("ESA_IO_APP:/image\n", {{"image", image(500)}}));
    QCOMPARE(intervals, replyTimeout + replyTimeout + replyTimeout + replyTimeout);
}

void EsaUpdateTest::keysScrollDuringATransfer()
{
    const QString announcement = "Updating ESA IO Board Application with file: /image";
    const KeyPresser presser(m_Panel.get(), announcement);
    QVERIFY(update("ESA_IO_APP:/image\nSYSTEM:NAND\n", {{"image", image(20000)}}));
    QCOMPARE(presser.messages().isEmpty() ? QString() : presser.messages().last(), announcement);
}

void EsaUpdateTest::portThatDisappearsEndsTheUpdate()
{
    m_Boards->unplugAfter(2);
    const TimeoutSkipper skipper(replyTimer());
    QVERIFY(!update("ESA_IO_APP:/image\nSYSTEM:NAND\n", {{"image", image(1000)}}));
    QCOMPARE(skipper.skipped, replyTimeout);
    QVERIFY(m_Panel->messages().contains("System Type set to: NAND"));
}

void EsaUpdateTest::strayBytesAroundRepliesAreSkipped_data()
{
    QTest::addColumn<QByteArray>("strayBytes");
    QTest::addColumn<bool>("split");
    addRow("none, split", QByteArray(), true);
    addRow("in one read", QByteArray("\x00\xFFzC", 4), false);
    addRow("in reads of its own", QByteArray("\x00\xFFzC", 4), true);
    addRow("a NAK beside the acknowledgement", QByteArray("\x15"), false);
}

void EsaUpdateTest::strayBytesAroundRepliesAreSkipped()
{
    QFETCH(QByteArray, strayBytes);
    QFETCH(bool, split);
    m_Boards->ioBoard().faults.garbageBeforeReply = strayBytes;
    m_Boards->ioBoard().faults.garbageAfterCommand = split ? "\x06\x15" : "";
    if (split)
        m_Boards->splitReplies();
    QVERIFY(update("ESA_IO_APP:/image\n", {{"image", image(1000)}}));
    QCOMPARE(m_Boards->ioBoard().application(), padded(image(1000)));
}

void EsaUpdateTest::boardThatKeepsAskingStartsNothing()
{
    m_Boards->ioBoard().faults.asksOnAfterTheEnd = true;
    const DebugLines debug;
    QVERIFY(update("ESA_IO_APP:/1\nESA_M_APP:/2\nESA_IO_EEP:/3\n", {{"1", image(500)}, {"2", image(600)}, {"3", "3"}}));
    QVERIFY(!DebugLines::take().filter(QRegExp("unknown received: (06)?43")).isEmpty()); // asked, and was ignored
    QCOMPARE(m_Boards->ioBoard().application(), padded(image(500)));
    QCOMPARE(m_Boards->measurementBoard().application(), padded(image(600)));
    QCOMPARE(m_Boards->ioBoard().eeprom(), padded("3"));
    m_Boards->ioBoard().faults.asksOnAfterTheEnd = false;
    QCoreApplication::processEvents();
    m_Boards->line().deliver("C"); // between updates
    QCoreApplication::processEvents();
    QCOMPARE(DebugLines::take().last(), QString("unknown received: 43"));
}

void EsaUpdateTest::imageThatCannotBeReadFails()
{
    QDir().mkpath("/tmp/firmware_update");
    QCOMPARE(mkfifo("/tmp/firmware_update/fifo", S_IRUSR | S_IWUSR), 0);
    const DebugLines debug;
    QVERIFY(!update("ESA_IO_APP:/fifo\nESA_IO_APP:/missing\n", {}));
    QCOMPARE(m_Panel->redMessages().filter("Failed - Updating ESA").size(), 2);
    QCOMPARE(DebugLines::take().filter("Failed to"),
             QStringList({"Failed to open ESA file: /tmp/firmware_update/fifo",
                          "Failed to find file: /tmp/firmware_update/missing"}));
    QVERIFY(!VirtualBoards::installed().pins().isOutput(VirtualBoards::selectPin));
    m_Boards->line().deliver("C"); // no update runs
    QCOMPARE(DebugLines::take(), QStringList("unknown received: 43"));

    QVERIFY(QFile::link(Instrument::unreadableFile(), "/tmp/firmware_update/image"));
    QVERIFY(!update("ESA_IO_APP:/image\n", {}));
    QVERIFY(DebugLines::take().contains("Failed to read ESA file: /tmp/firmware_update/image"));
    QCOMPARE(m_Boards->ioBoard().transferCount(), 0);
}

void EsaUpdateTest::byteOfTheOtherBoardStartsNothing()
{
    m_Boards->ioBoard().faults.asksOnAfterTheEnd = true; // last at the moment at which the select pin leaves it
    m_Boards->measurementBoard().faults.silentAfterCommand = true;
    const TimeoutSkipper skipper(replyTimer());
    QVERIFY(!update("ESA_IO_APP:/image\nESA_M_APP:/image\n", {{"image", image(300)}}));
    QCOMPARE(skipper.skipped, receiverTimeout);
}

void EsaUpdateTest::picAndEsaLinesOfOnePackage()
{
    const QByteArray record = hexRecord(0x00, 0, "0123456789abcdef") + hexRecord(0x01, 0, "");
    for (const auto &[picEnabled, avrEnabled] :
         {qMakePair(false, false), qMakePair(true, false), qMakePair(false, true), qMakePair(true, true)}) {
        cleanup();
        init();
        QSettings().setValue("PicEnable", picEnabled);
        QSettings().setValue("AvrEnable", avrEnabled);
        m_Panel.reset();
        m_Panel = std::make_unique<Panel>(); // which reads the settings when it starts
        const bool all = update("PIC1:/pic.hex\nESA_M_APP:/image\nPIC4:/pic.hex\nESA_IO_APP:/image\n",
                                {{"pic.hex", record}, {"image", "image"}});
        QCOMPARE(all, picEnabled && avrEnabled);
        QCOMPARE(m_Panel->redMessages().count("red: Failed - PIC updates not enabled"), picEnabled ? 0 : 2);
        QCOMPARE(m_Panel->redMessages().count("red: Failed - AVR updates not enabled"), avrEnabled ? 0 : 2);
        QCOMPARE(m_Panel->redMessages().filter("Failed - Updating ESA").size(), avrEnabled ? 0 : 2);
        VirtualBoards &pics = VirtualBoards::installed();
        for (const int picNumber : {1, 4})
            QCOMPARE(pics.pic(picNumber).memory().programMemory().bytes().startsWith("0123456789abcdef"), picEnabled);
        // The select pin is a pin of PIC1, too.
        QCOMPARE(pics.pins().isOutput(VirtualBoards::selectPin), picEnabled || avrEnabled);
        for (EsaBootLoader *board : {&m_Boards->ioBoard(), &m_Boards->measurementBoard()}) {
            QCOMPARE(board->entryCount(), avrEnabled ? 1 : 0);
            QCOMPARE(board->application(), avrEnabled ? padded("image") : QByteArray());
        }
    }
}

QTEST_MAIN(EsaUpdateTest)

#include "EsaUpdateTest.moc"
