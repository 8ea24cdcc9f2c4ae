#include <QApplication>
#include <QDir>
#include <QFile>
#include <QSettings>
#include <QTextEdit>
#include <QtTest>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

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

using Files = QList<QPair<QString, QByteArray>>;

const int receiverTimeoutMs = 30000;
const int replyTimeoutMs = 10000;
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

/// Skips the wait for a board that stays silent: ends the program's wait of `timeoutMs` as soon as it is clear that no
/// reply comes.
class TimeoutSkipper : public QObject
{
    Q_OBJECT

public:
    TimeoutSkipper(QTimer *replyTimer, int timeoutMs) : m_ReplyTimer(replyTimer), m_TimeoutMs(timeoutMs)
    {
        m_Poll.start(5);
        connect(&m_Poll, SIGNAL(timeout()), this, SLOT(poll()));
    }
    bool skipped = false;

protected slots:
    void poll()
    {
        if (!m_ReplyTimer->isActive() || m_ReplyTimer->interval() != m_TimeoutMs)
            return;
        const bool sameWait = m_ReplyTimer->remainingTime() <= m_Remaining;
        m_Remaining = m_ReplyTimer->remainingTime();
        m_Polls = sameWait ? m_Polls + 1 : 0;
        skipped |= m_Polls == silentPolls;
        if (m_Polls == silentPolls)
            m_ReplyTimer->start(0);
    }

private:
    QTimer *m_ReplyTimer;
    int m_TimeoutMs;
    int m_Polls = 0; ///< of one silent wait
    int m_Remaining = 0;
    QTimer m_Poll;
};

} // namespace

/// The ESA lines of a command file, against the boot loaders of the two boards.
class EsaUpdateTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void imagesOfAllSizesArrive_data();
    void imagesOfAllSizesArrive();
    void eachKeywordReachesItsBoardAndMemory();
    void boardIsEnteredOnlyOnceInARun();
    void refusedBlockFailsTheUpdate_data();
    void refusedBlockFailsTheUpdate();
    void boardThatCancelledTakesTheNextUpdate();
    void silentBoardEndsTheUpdate_data();
    void silentBoardEndsTheUpdate();
    void replyTimerStartsAnewWithEachBlock();
    void keysScrollDuringATransfer();
    void portThatDisappearsEndsTheUpdate();
    void strayBytesAroundRepliesAreSkipped_data();
    void strayBytesAroundRepliesAreSkipped();
    void boardThatKeepsAskingStartsNothing();
    void disabledUpdateTouchesNeitherPinNorPort();
    void missingImageIsNamed();
    void imageThatCannotBeReadFails();
    void fifoInPlaceOfAnImageIsNotOpened();
    void byteOfTheOtherBoardStartsNothing();
    void picAndEsaLinesOfOnePackage_data();
    void picAndEsaLinesOfOnePackage();

private:
    void startAgain();
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
    VirtualBoards::install(
        {&Pic18Device::pic18f4620, &Pic18Device::pic18f4680, &Pic18Device::pic18f4682, &Pic18Device::pic18f4685});
    m_Instrument = std::make_unique<Instrument>();
    m_Boards = std::make_unique<EsaBoards>(nullptr);
    m_Boards->times = {0, 0, 1000};
    m_Boards->byteNanoseconds = 0;
    startAgain();
}

void EsaUpdateTest::cleanup()
{
    m_Panel.reset();
    m_Boards.reset();
}

/// Ends the program and starts it again, with the settings as they are now.
void EsaUpdateTest::startAgain()
{
    m_Panel.reset();
    m_Panel = std::make_unique<Panel>();
}

/// Executes the command file from the SD card; true when all its lines succeeded.
bool EsaUpdateTest::update(const QByteArray &commandFile, const Files &files)
{
    m_Instrument->makePackage(m_Instrument->insertMedium("mmcblk0p4") + "/firmware_update.tar.bz2", commandFile, files);
    if (!m_Panel->showsMainScreen())
        m_Panel->press(Qt::Key_F1);
    m_Panel->press(Qt::Key_F3);
    m_Panel->press(Qt::Key_F1);
    return m_Panel->lastMessage().startsWith("green: ");
}

QTimer *EsaUpdateTest::replyTimer() const
{
    const QObject *screen = m_Panel->window()->findChild<UpdaterProgressScreen *>();
    return screen->findChild<QTimer *>(QString(), Qt::FindDirectChildrenOnly);
}

void EsaUpdateTest::imagesOfAllSizesArrive_data()
{
    QTest::addColumn<int>("size");
    for (const int size : {0, 1, 128, 129, 256, 128 * 300 + 5})
        addRow(QByteArray::number(size).constData(), size);
}

void EsaUpdateTest::imagesOfAllSizesArrive()
{
    QFETCH(int, size);
    QVERIFY(update("ESA_IO_APP:/image.bin\n", {{"image.bin", image(size)}}));
    QCOMPARE(m_Boards->ioBoard().application(), padded(image(size)));
    QCOMPARE(m_Boards->ioBoard().blockCount(), (size + 127) / 128);
    QCOMPARE(m_Boards->ioBoard().transferCount(), 1);
    QCOMPARE(m_Boards->violations().join("; "), QString());
    QVERIFY(m_Panel->messages().contains("Updating ESA IO Board Application with file: /image.bin"));
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
    QCOMPARE(m_Boards->violations().join("; "), QString());
}

void EsaUpdateTest::boardIsEnteredOnlyOnceInARun()
{
    QVERIFY(update("ESA_IO_APP:/1\nESA_IO_APP:/2\n", {{"1", "one"}, {"2", "two"}}));
    QVERIFY(update("ESA_M_APP:/1\nESA_IO_EEP:/2\n", {{"1", "one"}, {"2", "two"}}));
    QCOMPARE(m_Boards->ioBoard().entryCount(), 1);
    QCOMPARE(m_Boards->measurementBoard().entryCount(), 1);
    QCOMPARE(m_Boards->ioBoard().application(), padded("two"));
    QCOMPARE(m_Boards->violations().join("; "), QString());
}

void EsaUpdateTest::refusedBlockFailsTheUpdate_data()
{
    QTest::addColumn<int>("block");
    addRow("first", 0);
    addRow("last", 2);
}

void EsaUpdateTest::refusedBlockFailsTheUpdate()
{
    QFETCH(int, block);
    m_Boards->measurementBoard().faults.refusedBlock = block;
    const DebugLines debug;
    QVERIFY(!update("ESA_M_EEP:/image\nSYSTEM:NAND\n", {{"image", image(300)}}));
    QVERIFY(DebugLines::take().contains("ESA NACK received"));
    QCOMPARE(m_Panel->redMessages().first(),
             QString("red: Failed - Updating ESA Measurement Board EEPROM with file: /image"));
    QVERIFY(m_Panel->messages().contains("System Type set to: NAND"));
    QCOMPARE(m_Boards->measurementBoard().blockCount(), block + 1); // not sent again
    QVERIFY(m_Boards->measurementBoard().eeprom().isEmpty());
    QCOMPARE(m_Boards->measurementBoard().transferCount(), 0);

    const TimeoutSkipper skipper(replyTimer(), receiverTimeoutMs);
    QVERIFY(!update("ESA_M_EEP:/image\n", {{"image", image(300)}})); // the board is still in the first transfer
    QVERIFY(skipper.skipped);
    QCOMPARE(m_Boards->violations().join("; "), QString());
}

void EsaUpdateTest::boardThatCancelledTakesTheNextUpdate()
{
    m_Boards->ioBoard().faults.cancelledBlock = 1;
    const TimeoutSkipper skipper(replyTimer(), replyTimeoutMs);
    QVERIFY(!update("ESA_IO_EEP:/image\n", {{"image", image(300)}}));
    m_Boards->ioBoard().faults.cancelledBlock = -1;
    QVERIFY(update("ESA_IO_EEP:/image\n", {{"image", image(300)}}));
    QCOMPARE(m_Boards->ioBoard().eeprom(), padded(image(300)));
    QCOMPARE(m_Boards->ioBoard().entryCount(), 1);
    QCOMPARE(m_Boards->violations().join("; "), QString());
}

void EsaUpdateTest::silentBoardEndsTheUpdate_data()
{
    QTest::addColumn<bool>("fromTheStart");
    QTest::addColumn<int>("timeoutMs");
    addRow("after the command", true, receiverTimeoutMs);
    addRow("after a block", false, replyTimeoutMs);
}

void EsaUpdateTest::silentBoardEndsTheUpdate()
{
    QFETCH(bool, fromTheStart);
    QFETCH(int, timeoutMs);
    m_Boards->ioBoard().faults.silentAfterCommand = fromTheStart;
    m_Boards->ioBoard().faults.unansweredBlock = 1;
    const TimeoutSkipper skipper(replyTimer(), timeoutMs);
    const DebugLines debug;
    QVERIFY(!update("ESA_IO_APP:/image\n", {{"image", image(1000)}}));
    QVERIFY(skipper.skipped);
    QVERIFY(DebugLines::take().contains("ESA board does not answer"));
    QCOMPARE(m_Boards->ioBoard().blockCount(), fromTheStart ? 0 : 2);
    QCOMPARE(m_Boards->ioBoard().transferCount(), 0);
    QCOMPARE(m_Boards->violations().join("; "), QString());
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
    QCOMPARE(intervals, QList<int>({replyTimeoutMs, replyTimeoutMs, replyTimeoutMs, replyTimeoutMs}));
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
    const TimeoutSkipper skipper(replyTimer(), replyTimeoutMs);
    QVERIFY(!update("ESA_IO_APP:/image\nSYSTEM:NAND\n", {{"image", image(1000)}}));
    QVERIFY(skipper.skipped);
    QVERIFY(m_Panel->messages().contains("System Type set to: NAND"));
}

void EsaUpdateTest::strayBytesAroundRepliesAreSkipped_data()
{
    QTest::addColumn<QByteArray>("strayBytes");
    QTest::addColumn<bool>("split");
    addRow("none, split", QByteArray(), true);
    addRow("in one read", QByteArray("\x00\xFFzC", 4), false);
    addRow("in reads of its own", QByteArray("\x00\xFFzC", 4), true);
    addRow("a refusal beside the acknowledgement", QByteArray("\x15"), false);
}

void EsaUpdateTest::strayBytesAroundRepliesAreSkipped()
{
    QFETCH(QByteArray, strayBytes);
    QFETCH(bool, split);
    m_Boards->ioBoard().faults.rubbishBeforeReply = strayBytes;
    m_Boards->ioBoard().faults.rubbishAfterCommand = split ? "\x06\x15" : "";
    if (split)
        m_Boards->splitReplies();
    QVERIFY(update("ESA_IO_APP:/image\n", {{"image", image(1000)}}));
    QCOMPARE(m_Boards->ioBoard().application(), padded(image(1000)));
    QCOMPARE(m_Boards->violations().join("; "), QString());
}

void EsaUpdateTest::boardThatKeepsAskingStartsNothing()
{
    m_Boards->ioBoard().faults.asksOnAfterTheEnd = true;
    const DebugLines debug;
    QVERIFY(
        update("ESA_IO_APP:/1\nESA_M_APP:/2\nESA_IO_EEP:/3\n", {{"1", image(500)}, {"2", image(600)}, {"3", "three"}}));
    QVERIFY(!DebugLines::take().filter(QRegExp("unknown received: (06)?43")).isEmpty()); // asked, and was ignored
    QCOMPARE(m_Boards->ioBoard().application(), padded(image(500)));
    QCOMPARE(m_Boards->measurementBoard().application(), padded(image(600)));
    QCOMPARE(m_Boards->ioBoard().eeprom(), padded("three"));
    m_Boards->ioBoard().faults.asksOnAfterTheEnd = false;
    QCoreApplication::processEvents();
    m_Boards->line().deliver("C"); // between updates
    QCoreApplication::processEvents();
    QCOMPARE(DebugLines::take().last(), QString("unknown received: 43"));
    QCOMPARE(m_Boards->violations().join("; "), QString());
}

void EsaUpdateTest::disabledUpdateTouchesNeitherPinNorPort()
{
    QSettings().setValue("AvrEnable", false);
    startAgain();
    QVERIFY(!update("ESA_IO_APP:/image\n", {{"image", "image"}}));
    QCOMPARE(m_Panel->messages().filter("AVR"), QStringList("red: Failed - AVR updates not enabled"));
    QCOMPARE(m_Panel->messages().filter("ESA"),
             QStringList({"Updating ESA IO Board Application with file: /image",
                          "red: Failed - Updating ESA IO Board Application with file: /image"}));
    QVERIFY(!VirtualBoards::installed().pins().isOutput(VirtualBoards::selectPin));
    QCoreApplication::processEvents();
    QCOMPARE(m_Boards->ioBoard().entryCount(), 0);
    QCOMPARE(m_Boards->violations().join("; "), QString());
}

void EsaUpdateTest::missingImageIsNamed()
{
    const DebugLines debug;
    QVERIFY(!update("ESA_IO_APP:/gone\n", {}));
    QVERIFY(DebugLines::take().contains("Failed to find file: /tmp/firmware_update/gone"));
    QVERIFY(!VirtualBoards::installed().pins().isOutput(VirtualBoards::selectPin));
    m_Boards->line().deliver("C"); // no update runs
    QCOMPARE(DebugLines::take(), QStringList("unknown received: 43"));
}

void EsaUpdateTest::imageThatCannotBeReadFails()
{
    QDir().mkpath("/tmp/firmware_update");
    QVERIFY(QFile::link(Instrument::unreadableFile(), "/tmp/firmware_update/image"));
    const DebugLines debug;
    QVERIFY(!update("ESA_IO_APP:/image\n", {}));
    QVERIFY(DebugLines::take().contains("Failed to read ESA file: /tmp/firmware_update/image"));
    QCOMPARE(m_Boards->ioBoard().transferCount(), 0);
}

void EsaUpdateTest::fifoInPlaceOfAnImageIsNotOpened()
{
    QDir().mkpath("/tmp/firmware_update");
    QCOMPARE(mkfifo("/tmp/firmware_update/fifo", S_IRUSR | S_IWUSR), 0);
    const DebugLines debug;
    QVERIFY(!update("ESA_IO_APP:/fifo\n", {}));
    QVERIFY(DebugLines::take().contains("Failed to open ESA file: /tmp/firmware_update/fifo"));
}

// The IO board asks for an image until the moment at which the select pin leaves it.
void EsaUpdateTest::byteOfTheOtherBoardStartsNothing()
{
    std::function<void()> &beforeSelectChange = VirtualBoards::installed().beforeSelectChange;
    beforeSelectChange = [this, catchUp = beforeSelectChange] {
        catchUp();
        m_Boards->line().write("C");
        pollfd port = {open("/dev/ttyAPP1", O_RDONLY | O_NOCTTY), POLLIN, 0};
        QCOMPARE(poll(&port, 1, receiverTimeoutMs), 1); // it has arrived
        close(port.fd);
    };
    m_Boards->measurementBoard().faults.silentAfterCommand = true;
    const TimeoutSkipper skipper(replyTimer(), receiverTimeoutMs);
    const DebugLines debug;
    QVERIFY(!update("ESA_M_APP:/image\n", {{"image", image(300)}}));
    QVERIFY(skipper.skipped);
    QVERIFY(!DebugLines::take().filter("unknown received: 43").isEmpty());
}

void EsaUpdateTest::picAndEsaLinesOfOnePackage_data()
{
    QTest::addColumn<bool>("picEnabled");
    QTest::addColumn<bool>("avrEnabled");
    addRow("both", true, true);
    addRow("PIC only", true, false);
    addRow("AVR only", false, true);
    addRow("neither", false, false);
}

void EsaUpdateTest::picAndEsaLinesOfOnePackage()
{
    QFETCH(bool, picEnabled);
    QFETCH(bool, avrEnabled);
    QSettings().setValue("PicEnable", picEnabled);
    QSettings().setValue("AvrEnable", avrEnabled);
    startAgain();
    const QByteArray record = hexRecord(0x00, 0, "0123456789abcdef") + hexRecord(0x01, 0, "");
    const bool all = update("PIC1:/pic.hex\nESA_M_APP:/image\nPIC4:/pic.hex\nESA_IO_APP:/image\n",
                            {{"pic.hex", record}, {"image", "image"}});
    QCOMPARE(all, picEnabled && avrEnabled);
    QCOMPARE(m_Panel->redMessages().filter("PIC updates not enabled").size(), picEnabled ? 0 : 2);
    QCOMPARE(m_Panel->redMessages().filter("AVR updates not enabled").size(), avrEnabled ? 0 : 2);
    for (const int picNumber : {1, 4}) {
        const QByteArray program = VirtualBoards::installed().pic(picNumber).memory().programMemory().bytes();
        QCOMPARE(program.startsWith("0123456789abcdef"), picEnabled);
    }
    QCOMPARE(m_Boards->ioBoard().application(), avrEnabled ? padded("image") : QByteArray());
    QCOMPARE(m_Boards->measurementBoard().application(), avrEnabled ? padded("image") : QByteArray());
    QCOMPARE((m_Boards->violations() + VirtualBoards::installed().violations()).join("; "), QString());
}

QTEST_MAIN(EsaUpdateTest)

#include "EsaUpdateTest.moc"
