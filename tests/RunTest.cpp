#include <QDir>
#include <QFile>
#include <QPushButton>
#include <QScrollBar>
#include <QTextEdit>
#include <QtTest>
#include <sys/stat.h>

#include "tests/Instrument.h"
#include "tests/Panel.h"

namespace {

const char packageName[] = "firmware_update.tar.bz2";
const char successMessage[] = "green: Update complete, restart the system or press F1 to return to the main screen";

/// Stands beside the panel during the wait at the end of a run: presses F1 and scrolls up as soon as the events of the
/// program are processed again.
class ImpatientOperator : public QObject
{
    Q_OBJECT

public:
    explicit ImpatientOperator(Panel *panel) : m_Panel(panel) { QTimer::singleShot(0, this, SLOT(meddle())); }

    bool f1WasEnabled = true;
    int scrollPosition = -1;

protected slots:
    void meddle()
    {
        if (m_Panel->lastMessage() != "Finalising update, please wait") {
            QTimer::singleShot(0, this, SLOT(meddle()));
            return;
        }
        f1WasEnabled = m_Panel->button("F1Button")->isEnabled();
        QTest::keyClick(m_Panel->window()->windowHandle(), Qt::Key_F1);
        QMetaObject::invokeMethod(m_Panel->button("F1Button"), "clicked"); // of a key pressed before the run
        m_Panel->press(Qt::Key_F3);
        scrollPosition = m_Panel->messageWindow()->verticalScrollBar()->value();
    }

private:
    Panel *m_Panel;
};

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

/// From the mounted medium to the final message: finding and unpacking the package, cleaning up, giving the panel back.
class RunTest : public QObject
{
    Q_OBJECT

private slots:
    void packageIsFoundWhateverItsCase_data();
    void packageIsFoundWhateverItsCase();
    void runThatCannotBeginSaysWhy_data();
    void runThatCannotBeginSaysWhy();
    void unpackedFilesOfAnEarlierRunAreCarriedOutAgain();
    void failedLineTurnsTheEndRed();
    void cardAndStickKeepTheirFiles_data();
    void cardAndStickKeepTheirFiles();
    void storageOfThePcIsEmptied();
    void failedStartFromPcFreesTheLoopDeviceForTheNextAttempt();
    void keysDuringTheRunOnlyScroll();
    void frameBufferIsUpdatedWithEveryMessage();
};

void RunTest::packageIsFoundWhateverItsCase_data()
{
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<bool>("found");
    QTest::newRow("plain") << QStringList("firmware_update.tar.bz2") << true;
    QTest::newRow("something around it") << QStringList("unit7_firmware_update_v2.tar.bz2") << true;
    QTest::newRow("capitals") << QStringList("FIRMWARE_UPDATE.TAR.BZ2") << true;
    QTest::newRow("words swapped") << QStringList("update_firmware.tar.bz2") << false;
    QTest::newRow("hidden") << QStringList(".firmware_update.tar.bz2") << false;
    QTest::newRow("two") << (QStringList() << "firmware_update.tar.bz2"
                                           << "old_firmware_update.tar.bz2")
                         << false;
    QTest::newRow("none") << QStringList() << false;
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
    QTest::newRow("no archive") << "rubbish"
                                << "red: Failed to extract update files, press F1 to return to the main screen";
    QTest::newRow("folder of that name") << "folder"
                                         << "red: Failed to extract update files, press F1 to return to the main "
                                            "screen";
    QTest::newRow("blank in the name") << "blank"
                                       << "red: Failed to extract update files, press F1 to return to the main screen";
    QTest::newRow("command file that cannot be read")
        << "unreadable"
        << "red: Failed to open update file, press F1 to return to the main screen";
    QTest::newRow("FIFO in place of the command file")
        << "fifo"
        << "red: Failed to open update file, press F1 to return to the main screen";
    QTest::newRow("other top folder") << "top"
                                      << "red: Failed to open update file, press F1 to return to the main screen";
}

void RunTest::runThatCannotBeginSaysWhy()
{
    QFETCH(QString, kind);
    QFETCH(QString, message);
    Instrument instrument;
    const QString package = instrument.insertMedium("mmcblk0p4") + "/" + packageName;
    if (kind == "rubbish")
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

void RunTest::unpackedFilesOfAnEarlierRunAreCarriedOutAgain()
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
    QCOMPARE(panel.redMessages(), QStringList() << "red: Unknown command: NONSENSE:/x"
                                                << "red: Some of the updates failed, press F1 to return to the main "
                                                   "screen");
    QCOMPARE(panel.lastMessage(), panel.redMessages().last());
}

void RunTest::cardAndStickKeepTheirFiles_data()
{
    QTest::addColumn<int>("key");
    QTest::addColumn<QString>("device");
    QTest::newRow("card") << static_cast<int>(Qt::Key_F3) << "mmcblk0p4";
    QTest::newRow("stick") << static_cast<int>(Qt::Key_F2) << "sda1";
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
    QCOMPARE(calls.mid(calls.size() - 2), QStringList() << "sync"
                                                        << "umount /mnt/update");
    QCOMPARE(QDir(medium).entryList(QDir::NoDotAndDotDot | QDir::AllEntries),
             QStringList() << "firmware_update" << packageName << "notes.txt");
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
    QCOMPARE(calls.mid(calls.size() - 4), QStringList() << "sync"
                                                        << "sync"
                                                        << "umount /mnt/update"
                                                        << "losetup -d /dev/loop0");
}

void RunTest::failedStartFromPcFreesTheLoopDeviceForTheNextAttempt()
{
    Instrument instrument;
    const QString storage = instrument.insertMedium("backfile");
    Panel panel;
    for (const bool copied : {false, true}) {
        panel.press(Qt::Key_F1);
        panel.press(Qt::Key_F1);
        if (copied)
            instrument.makePackage(storage + "/" + packageName, "");
        panel.press(Qt::Key_F1);
        QCOMPARE(panel.lastMessage() == QString(successMessage), copied);
        panel.press(Qt::Key_F1);
        QVERIFY(panel.showsMainScreen());
    }
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

void RunTest::keysDuringTheRunOnlyScroll()
{
    Instrument instrument;
    QByteArray lines;
    for (int line = 0; line < 30; ++line)
        lines += "SYSTEM:NAND\n";
    instrument.makePackage(instrument.insertMedium("mmcblk0p4") + "/" + packageName, lines);
    Panel panel;
    panel.press(Qt::Key_F3);
    const ImpatientOperator impatient(&panel);
    panel.press(Qt::Key_F1);

    QVERIFY(!impatient.f1WasEnabled);
    QVERIFY2(!panel.showsMainScreen(), "the F1 pressed during the run is not acted on");
    QCOMPARE(instrument.takeCalls().filter("tar ").size(), 1);
    const QScrollBar *scrollBar = panel.messageWindow()->verticalScrollBar();
    QVERIFY(impatient.scrollPosition < scrollBar->maximum());
    QCOMPARE(scrollBar->value(), impatient.scrollPosition); // new lines leave the view where the operator put it
    QVERIFY(panel.messageWindow()->hasFocus());
}

QTEST_MAIN(RunTest)

#include "RunTest.moc"
