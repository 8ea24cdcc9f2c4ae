#include <QFileInfo>
#include <QProcess>
#include <QPushButton>
#include <QScrollBar>
#include <QTextEdit>
#include <QtTest>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include "tests/Instrument.h"
#include "tests/KeyPresser.h"
#include "tests/Panel.h"
#include "tests/Rows.h"

namespace {

const char successMessage[] = "green: Update complete, restart the system or press F1 to return to the main screen";
const char lastWaitMessage[] = "Finalising update, please wait";

// The simulated time of day passes so many times as fast as the real one; some elapsed time is skipped, but not in the
// thread in which QTest limits the time of a test.
int timeOfDayRate = 100;
thread_local qint64 elapsedSkipped = 0;
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

/// Puts what was painted on the display when its event arrives, like Qt's frame buffer screen.
class FrameBufferScreen : public QObject
{
public:
    bool painted = false; ///< and not yet on the display

    bool event(QEvent *event) override
    {
        painted = painted && event->type() != QEvent::UpdateRequest;
        return QObject::event(event);
    }
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
    const qint64 now = realNanoseconds() + elapsedSkipped;
    *time = {static_cast<time_t>(now / 1000000000), static_cast<long>(now % 1000000000)};
    return 0;
}

/// From the mounted medium to the final message: finding and unpacking the package, the last wait, the panel meanwhile.
class RunTest : public QObject
{
    Q_OBJECT

private slots:
    void packageIsFoundUnpackedAndOpened_data();
    void packageIsFoundUnpackedAndOpened();
    void lastWaitEndsByTheClock_data();
    void lastWaitEndsByTheClock();
    void keysDuringTheRunOnlyScroll();
    void frameBufferIsUpdatedWithEveryMessage();
};

void RunTest::packageIsFoundUnpackedAndOpened_data()
{
    QTest::addColumn<QString>("topFolder");   ///< in firmware_update.tar.bz2, the only file of the card
    QTest::addColumn<QString>("preparation"); ///< a shell command, in the folder of the card
    QTest::addColumn<QString>("message");
    const QString notFound = "red: Could not find update file, press F1 to return to the main screen";
    const QString notUnpacked = "red: Failed to extract update files, press F1 to return to the main screen";
    const QString notOpened = "red: Failed to open update file, press F1 to return to the main screen";
    addRow("something around the name", "firmware_update", "mv * unit7_firmware_update_v2.tar.bz2", successMessage);
    addRow("capitals", "firmware_update", "mv * FIRMWARE_UPDATE.TAR.BZ2", successMessage);
    addRow("words swapped", "firmware_update", "mv * update_firmware.tar.bz2", notFound);
    addRow("hidden", "firmware_update", "mv * .firmware_update.tar.bz2", notFound);
    addRow("two packages", "firmware_update", "cp * old_firmware_update.tar.bz2", notFound);
    addRow("empty card", "firmware_update", "rm *", notFound);
    addRow("not an archive", "firmware_update", "echo text >firmware_update.tar.bz2", notUnpacked);
    addRow("folder of that name", "firmware_update", "rm *; mkdir firmware_update.tar.bz2", notUnpacked);
    addRow("blank in the name", "firmware_update", "mv * 'my firmware_update.tar.bz2'", notUnpacked);
    // What an earlier run unpacked stays beside the folder of this package.
    addRow("other top folder", "update", "mkdir /tmp/firmware_update", notOpened);
    addRow("command file of an earlier run", "update",
           "mkdir /tmp/firmware_update; touch /tmp/firmware_update/update_config", successMessage);
    addRow(
        "command file that cannot be read", "update",
        "mkdir /tmp/firmware_update; ln -s /proc/self/mem /tmp/firmware_update/update_config", // no byte at address 0
        notOpened);
    addRow("FIFO in place of the command file", "update",
           "mkdir /tmp/firmware_update; mkfifo /tmp/firmware_update/update_config", notOpened);
}

void RunTest::packageIsFoundUnpackedAndOpened()
{
    QFETCH(QString, topFolder);
    QFETCH(QString, preparation);
    QFETCH(QString, message);
    const Instrument instrument;
    const QString card = instrument.insertPackage("mmcblk0p4", "", {}, topFolder);
    QCOMPARE(QProcess::execute("sh", {"-c", "cd " + card + "; " + preparation}), 0);
    Panel panel;
    panel.press({Qt::Key_F3, Qt::Key_F1});
    QCOMPARE(panel.lastMessage(), message);
    QVERIFY(panel.button("F1Button")->isEnabled());
    QVERIFY2(QFileInfo("/mnt/update").isSymLink() == (message != successMessage), "only a run releases the medium");
    panel.press(Qt::Key_F1);
    QVERIFY(panel.showsMainScreen());
    QVERIFY2(!QFileInfo("/mnt/update").isSymLink(), "the F1 that follows releases it");
}

void RunTest::frameBufferIsUpdatedWithEveryMessage()
{
    const Instrument instrument;
    instrument.insertPackage("mmcblk0p4", "SYSTEM:NAND\nbad\n");
    Panel panel;
    panel.press(Qt::Key_F3);
    FrameBufferScreen screen;
    int messages = 0;
    int lateMessages = 0;
    connect(panel.messageWindow(), &QTextEdit::textChanged, &screen, [&] {
        ++messages;
        lateMessages += screen.painted ? 1 : 0;
        screen.painted = true;
        QCoreApplication::postEvent(&screen, new QEvent(QEvent::UpdateRequest));
    });
    panel.press(Qt::Key_F1);
    QCOMPARE(messages, 7);
    QCOMPARE(lateMessages, 0);
}

void RunTest::lastWaitEndsByTheClock_data()
{
    QTest::addColumn<QTime>("begin");
    QTest::addColumn<QTime>("jump"); ///< of the clock, during the wait
    QTest::addColumn<int>("leastMs");
    addRow("five seconds", QTime(12, 0), QTime(12, 0), 5000);
    addRow("clock set back", QTime(12, 0), QTime(11, 0), 10000);
    addRow("clock passes midnight", QTime(23, 59, 54), QTime(0, 0), 10000);
}

void RunTest::lastWaitEndsByTheClock()
{
    QFETCH(QTime, begin);
    QFETCH(QTime, jump);
    QFETCH(int, leastMs);
    const Instrument instrument;
    instrument.insertPackage("mmcblk0p4", "");
    Panel panel;
    panel.press(Qt::Key_F3);
    QElapsedTimer elapsed;
    QTimer tenths; // of a second, each in a turn of the event loop
    int count = 0;
    qint64 waited = 0;
    const QObject listener;
    connect(panel.messageWindow(), &QTextEdit::textChanged, &listener, [&] {
        if (panel.lastMessage() == lastWaitMessage) {
            elapsed.start();
            timeOfDayRate = 0;
            setTimeOfDay(begin);
            tenths.start(0);
        } else if (tenths.isActive()) {
            tenths.stop();
            waited = elapsed.elapsed();
        }
    });
    connect(&tenths, &QTimer::timeout, &listener, [&] {
        ++count;
        elapsedSkipped += 100000000;
        setTimeOfDay(count < 600 ? jump.addMSecs(100 * count) : QTime(23, 59, 59, 500)); // which ends each wait
    });
    panel.press(Qt::Key_F1);
    timeOfDayRate = 100;
    QVERIFY(count < 600);
    QVERIFY2(waited >= leastMs, qPrintable(QString("only %1 ms").arg(waited)));
}

void RunTest::keysDuringTheRunOnlyScroll()
{
    Instrument instrument;
    instrument.insertPackage("mmcblk0p4", QByteArray("SYSTEM:NAND\n").repeated(30));
    Panel panel;
    panel.press(Qt::Key_F3);
    timeOfDayRate = 10; // the keys act after a tenth of a second
    const KeyPresser presser(&panel, lastWaitMessage, {Qt::Key_F1, Qt::Key_F3});
    QPushButton *const f1 = panel.button("F1Button");
    bool f1WasEnabled = true;
    const QObject listener;
    connect(panel.messageWindow(), &QTextEdit::textChanged, &listener, [&] {
        if (panel.lastMessage() != lastWaitMessage || !f1WasEnabled)
            return;
        f1WasEnabled = f1->isEnabled();
        QMetaObject::invokeMethod(f1, "clicked"); // of a key pressed before the run
    });
    panel.press(Qt::Key_F1);
    timeOfDayRate = 100;

    QVERIFY(!f1WasEnabled);
    QVERIFY2(!panel.showsMainScreen(), "the F1 pressed during the run acts");
    QCOMPARE(instrument.takeCalls().filter("tar ").size(), 1);
    QCOMPARE(presser.messages().value(presser.messages().size() - 1), QString(lastWaitMessage));
    const QScrollBar *scrollBar = panel.messageWindow()->verticalScrollBar();
    QVERIFY2(scrollBar->value() < scrollBar->maximum() - scrollBar->singleStep(),
             "new lines leave the view where the operator put it");
    QVERIFY(panel.messageWindow()->hasFocus());
}

QTEST_MAIN(RunTest)

#include "RunTest.moc"
