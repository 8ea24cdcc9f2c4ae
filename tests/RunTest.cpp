#include <QDir>
#include <QFile>
#include <QPushButton>
#include <QScrollBar>
#include <QTextEdit>
#include <QtTest>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include "tests/Instrument.h"
#include "tests/KeyPresser.h"
#include "tests/Panel.h"
#include "tests/Rows.h"

namespace {

const char packageName[] = "firmware_update.tar.bz2";
const char successMessage[] = "green: Update complete, restart the system or press F1 to return to the main screen";

// The time of day, at this moment of the elapsed time; both pass so many times as fast as the real one.
int timeOfDayRate = 100;
int elapsedRate = 1;
qint64 elapsedAtSetting = 0;
qint64 timeOfDayAtSetting = 0;

qint64 realNanoseconds()
{
    timespec now = {};
    syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &now);
    return now.tv_sec * Q_INT64_C(1000000000) + now.tv_nsec;
}

void setTimeOfDay(const QTime &time)
{
    timeOfDayAtSetting = QDateTime(QDate(2021, 3, 4), time).toMSecsSinceEpoch() * 1000000;
    elapsedAtSetting = realNanoseconds();
}

/// Puts what was painted on the display when an event tells it to, like Qt's frame buffer screen. A painting is late
/// when the next one comes before that event.
class FrameBufferScreen : public QObject
{
    Q_OBJECT

public:
    int paintings = 0;
    int latePaintings = 0;

    bool event(QEvent *event) override
    {
        if (event->type() == QEvent::UpdateRequest)
            m_Painted = false;
        return QObject::event(event);
    }

protected slots:
    void paint()
    {
        ++paintings;
        latePaintings += m_Painted ? 1 : 0;
        m_Painted = true;
        QCoreApplication::postEvent(this, new QEvent(QEvent::UpdateRequest));
    }

private:
    bool m_Painted = false;
};

} // namespace

// The clocks of the C library, which Qt reads.

extern "C" int gettimeofday(struct timeval *time, void *) noexcept
{
    const qint64 now = timeOfDayAtSetting + (realNanoseconds() - elapsedAtSetting) * timeOfDayRate;
    *time = {static_cast<time_t>(now / 1000000000), static_cast<suseconds_t>(now / 1000 % 1000000)};
    return 0;
}

extern "C" int clock_gettime(clockid_t clock, struct timespec *time) noexcept
{
    if (clock != CLOCK_MONOTONIC)
        return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
    const qint64 now = realNanoseconds() * elapsedRate;
    *time = {static_cast<time_t>(now / 1000000000), static_cast<long>(now % 1000000000)};
    return 0;
}

/// From the mounted medium to the final message: finding and unpacking the package, cleaning up, giving the panel back.
class RunTest : public QObject
{
    Q_OBJECT

private slots:
    void packageIsFoundWhateverItsCase_data();
    void packageIsFoundWhateverItsCase();
    void runThatCannotBeginSaysWhy_data();
    void runThatCannotBeginSaysWhy();
    void unpackedFilesOfAnEarlierRunAreExecutedAgain();
    void failedLineTurnsTheEndRed();
    void cardAndStickKeepTheirFiles_data();
    void cardAndStickKeepTheirFiles();
    void storageOfThePcIsEmptied();
    void lastWaitEndsByTheClock_data();
    void lastWaitEndsByTheClock();
    void keysDuringTheRunOnlyScroll();
    void frameBufferIsUpdatedWithEveryMessage();
};

void RunTest::packageIsFoundWhateverItsCase_data()
{
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<bool>("found");
    addRow("plain", QStringList("firmware_update.tar.bz2"), true);
    addRow("something around it", QStringList("unit7_firmware_update_v2.tar.bz2"), true);
    addRow("capitals", QStringList("FIRMWARE_UPDATE.TAR.BZ2"), true);
    addRow("words swapped", QStringList("update_firmware.tar.bz2"), false);
    addRow("hidden", QStringList(".firmware_update.tar.bz2"), false);
    addRow("two", QStringList({"firmware_update.tar.bz2", "old_firmware_update.tar.bz2"}), false);
    addRow("none", QStringList(), false);
}

void RunTest::packageIsFoundWhateverItsCase()
{
    QFETCH(QStringList, names);
    QFETCH(bool, found);
    Instrument instrument;
    const QString card = instrument.insertMedium("mmcblk0p4");
    for (const QString &name : names)
        instrument.makePackage(card + "/" + name, "");
    Panel panel;
    panel.press(Qt::Key_F3);
    panel.press(Qt::Key_F1);
    QCOMPARE(panel.lastMessage(), found ? QString(successMessage)
                                        : QString("red: Could not find update file, press F1 to return to the main "
                                                  "screen"));
}

void RunTest::runThatCannotBeginSaysWhy_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("message");
    addRow("no archive", "text", "red: Failed to extract update files, press F1 to return to the main screen");
    addRow("folder of that name", "folder",
           "red: Failed to extract update files, press F1 to return to the main "
           "screen");
    addRow("blank in the name", "blank", "red: Failed to extract update files, press F1 to return to the main screen");
    addRow("command file that cannot be read", "unreadable",
           "red: Failed to open update file, press F1 to return to the main screen");
    addRow("FIFO in place of the command file", "fifo",
           "red: Failed to open update file, press F1 to return to the main screen");
    addRow("other top folder", "top", "red: Failed to open update file, press F1 to return to the main screen");
}

void RunTest::runThatCannotBeginSaysWhy()
{
    QFETCH(QString, kind);
    QFETCH(QString, message);
    Instrument instrument;
    const QString package = instrument.insertMedium("mmcblk0p4") + "/" + packageName;
    if (kind == "text")
        instrument.write(package, "this is no archive");
    else if (kind == "folder")
        QDir().mkpath(package);
    else if (kind == "blank")
        instrument.makePackage(QFileInfo(package).path() + "/my firmware_update.tar.bz2", "");
    else
        instrument.makePackage(package, "", {}, "update");
    // What an earlier run unpacked stays beside the folder of this package.
    QDir().mkpath("/tmp/firmware_update");
    if (kind == "unreadable")
        QVERIFY(QFile::link("/proc/self/mem", "/tmp/firmware_update/update_config")); // no byte at address 0
    else if (kind == "fifo")
        QCOMPARE(mkfifo("/tmp/firmware_update/update_config", S_IRUSR | S_IWUSR), 0);

    Panel panel;
    panel.press(Qt::Key_F3);
    panel.press(Qt::Key_F1);
    QCOMPARE(panel.lastMessage(), message);
    QVERIFY(panel.button("F1Button")->isEnabled());
    QVERIFY(instrument.takeCalls().last().startsWith("tar "));
    panel.press(Qt::Key_F1);
    QVERIFY(panel.showsMainScreen());
    QVERIFY2(!QFileInfo("/mnt/update").isSymLink(), "the medium is released by the F1 that follows");
}

void RunTest::unpackedFilesOfAnEarlierRunAreExecutedAgain()
{
    Instrument instrument;
    const QString card = instrument.insertMedium("mmcblk0p4");
    instrument.makePackage(card + "/" + packageName, "SYSTEM:NAND\n", {{"left", "behind"}});
    Panel panel;
    panel.press(Qt::Key_F3);
    panel.press(Qt::Key_F1);
    panel.press(Qt::Key_F1);
    instrument.makePackage(card + "/" + packageName, "", {}, "update");
    panel.press(Qt::Key_F3);
    panel.press(Qt::Key_F1);
    QVERIFY(panel.messages().contains("System Type set to: NAND"));
    QCOMPARE(panel.lastMessage(), QString(successMessage));
    QCOMPARE(instrument.contentOf("/tmp/firmware_update/left"), QByteArray("behind"));
}

void RunTest::failedLineTurnsTheEndRed()
{
    Instrument instrument;
    instrument.makePackage(instrument.insertMedium("mmcblk0p4") + "/" + packageName, "NONSENSE:/x\nSYSTEM:NAND\n");
    Panel panel;
    panel.press(Qt::Key_F3);
    panel.press(Qt::Key_F1);
    QCOMPARE(panel.redMessages(), QStringList({"red: Unknown command: NONSENSE:/x",
                                               "red: Some of the updates failed, press F1 to return to the main "
                                               "screen"}));
    QCOMPARE(panel.lastMessage(), panel.redMessages().last());
}

void RunTest::cardAndStickKeepTheirFiles_data()
{
    QTest::addColumn<int>("key");
    QTest::addColumn<QString>("device");
    addRow("card", static_cast<int>(Qt::Key_F3), "mmcblk0p4");
    addRow("stick", static_cast<int>(Qt::Key_F2), "sda1");
}

void RunTest::cardAndStickKeepTheirFiles()
{
    QFETCH(int, key);
    QFETCH(QString, device);
    Instrument instrument;
    const QString medium = instrument.insertMedium(device);
    instrument.makePackage(medium + "/" + packageName, "");
    instrument.write(medium + "/notes.txt", "mine");
    instrument.write(medium + "/firmware_update/notes.txt", "mine too");
    Panel panel;
    panel.press(static_cast<Qt::Key>(key));
    panel.press(Qt::Key_F1);
    QCOMPARE(panel.lastMessage(), QString(successMessage));
    const QStringList calls = instrument.takeCalls();
    QCOMPARE(calls.mid(calls.size() - 2), QStringList({"sync", "umount /mnt/update"}));
    QCOMPARE(QDir(medium).entryList(QDir::NoDotAndDotDot | QDir::AllEntries),
             QStringList({"firmware_update", packageName, "notes.txt"}));
    QVERIFY(QFile::exists(medium + "/firmware_update/notes.txt"));
    QVERIFY(!QFileInfo("/mnt/update").isSymLink());
}

void RunTest::storageOfThePcIsEmptied()
{
    Instrument instrument;
    const QString storage = instrument.insertMedium("backfile");
    Panel panel;
    panel.press(Qt::Key_F1);
    panel.press(Qt::Key_F1);
    QCOMPARE(panel.lastMessage(), QString("Copy the firmware_update_tar.bz2 file to the unit and press F1"));
    instrument.makePackage(storage + "/" + packageName, "");
    instrument.write(storage + "/notes.txt", "goes as well");
    instrument.write(storage + "/firmware_update/old", "goes with its folder");
    instrument.write(storage + "/kept/file", "folders stay");
    panel.press(Qt::Key_F1);

    QCOMPARE(panel.lastMessage(), QString(successMessage));
    QCOMPARE(QDir(storage).entryList(QDir::NoDotAndDotDot | QDir::AllEntries), QStringList("kept"));
    const QStringList calls = instrument.takeCalls();
    QCOMPARE(calls.mid(calls.size() - 4), QStringList({"sync", "sync", "umount /mnt/update", "losetup -d /dev/loop0"}));
}

void RunTest::frameBufferIsUpdatedWithEveryMessage()
{
    Instrument instrument;
    instrument.makePackage(instrument.insertMedium("mmcblk0p4") + "/" + packageName, "SYSTEM:NAND\nbad\n");
    Panel panel;
    panel.press(Qt::Key_F3);
    FrameBufferScreen screen;
    connect(panel.messageWindow(), SIGNAL(textChanged()), &screen, SLOT(paint()));
    panel.press(Qt::Key_F1);
    QCOMPARE(screen.paintings, 7);
    QCOMPARE(screen.latePaintings, 0);
}

void RunTest::lastWaitEndsByTheClock_data()
{
    QTest::addColumn<QTime>("begin");
    QTest::addColumn<QTime>("jump"); ///< of the clock, during the wait
    QTest::addColumn<int>("leastMs");
    addRow("five seconds", QTime(12, 0), QTime(), 5000);
    addRow("clock set back", QTime(12, 0), QTime(11, 0), 10000);
    addRow("clock passes midnight", QTime(23, 59, 54), QTime(0, 0), 10000);
}

void RunTest::lastWaitEndsByTheClock()
{
    QFETCH(QTime, begin);
    QFETCH(QTime, jump);
    QFETCH(int, leastMs);
    Instrument instrument;
    instrument.makePackage(instrument.insertMedium("mmcblk0p4") + "/" + packageName, "");
    Panel panel;
    panel.press(Qt::Key_F3);
    elapsedRate = 10;
    QElapsedTimer elapsed;
    bool late = false;
    const QObject listener;
    connect(panel.messageWindow(), &QTextEdit::textChanged, &listener, [&] {
        if (panel.lastMessage() != "Finalising update, please wait")
            return;
        elapsed.start();
        timeOfDayRate = 0; // until the wait has begun
        setTimeOfDay(begin);
        QTimer::singleShot(0, &listener, [&] {
            timeOfDayRate = 10;
            setTimeOfDay(jump.isValid() ? jump : begin);
        });
        QTimer::singleShot(60000, &listener, [&] {
            late = true;
            setTimeOfDay(QTime(23, 59, 59, 500)); // after each end of the wait
        });
    });
    panel.press(Qt::Key_F1);
    const qint64 waited = elapsed.elapsed();
    timeOfDayRate = 100;
    elapsedRate = 1;
    QVERIFY(!late);
    QVERIFY2(waited >= leastMs, qPrintable(QString("only %1 ms").arg(waited)));
}

void RunTest::keysDuringTheRunOnlyScroll()
{
    Instrument instrument;
    instrument.makePackage(instrument.insertMedium("mmcblk0p4") + "/" + packageName,
                           QByteArray("SYSTEM:NAND\n").repeated(30));
    Panel panel;
    panel.press(Qt::Key_F3);
    timeOfDayRate = 10; // the keys act after a tenth of a second
    const QString lastMessage = "Finalising update, please wait";
    const KeyPresser presser(&panel, lastMessage, {Qt::Key_F1, Qt::Key_F3});
    const QPushButton *const f1 = panel.button("F1Button");
    bool f1WasEnabled = true;
    const QObject listener;
    connect(panel.messageWindow(), &QTextEdit::textChanged, &listener, [&] {
        if (panel.lastMessage() != lastMessage || !f1WasEnabled)
            return;
        f1WasEnabled = f1->isEnabled();
        QMetaObject::invokeMethod(const_cast<QPushButton *>(f1), "clicked"); // of a key pressed before the run
    });
    panel.press(Qt::Key_F1);
    timeOfDayRate = 100;

    QVERIFY(!f1WasEnabled);
    QVERIFY2(!panel.showsMainScreen(), "the F1 pressed during the run acts");
    QCOMPARE(instrument.takeCalls().filter("tar ").size(), 1);
    QCOMPARE(presser.messages().value(presser.messages().size() - 1), lastMessage);
    const QScrollBar *scrollBar = panel.messageWindow()->verticalScrollBar();
    QVERIFY2(scrollBar->value() < scrollBar->maximum() - scrollBar->singleStep(),
             "new lines leave the view where the operator put it");
    QVERIFY(panel.messageWindow()->hasFocus());
}

QTEST_MAIN(RunTest)

#include "RunTest.moc"
