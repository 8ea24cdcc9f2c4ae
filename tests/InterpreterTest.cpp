#include <QDir>
#include <QFile>
#include <QTextEdit>
#include <QtTest>
#include <unistd.h>

#include "tests/Instrument.h"
#include "tests/Panel.h"
#include "tests/Rows.h"

namespace {

const char mainApplication[] = "/usr/local/Trolltech/Qt-Target-version-optimised/mainApp";

using Files = QList<QPair<QString, QByteArray>>;

/// An update from the SD card with this command file; what it showed and ran after the unpacking, up to the last sync.
class Update
{
public:
    explicit Update(Panel *panel, Instrument *instrument, const QByteArray &commandFile, const Files &files = {})
    {
        instrument->makePackage(instrument->insertMedium("mmcblk0p4") + "/firmware_update.tar.bz2", commandFile, files);
        if (!panel->showsMainScreen())
            panel->press(Qt::Key_F1);
        panel->press(Qt::Key_F3);
        instrument->takeCalls();
        const QObject listener;
        QObject::connect(panel->messageWindow(), &QTextEdit::textChanged, &listener, [&] {
            events << instrument->takeCalls().replaceInStrings(QRegExp("^"), "$ ") << panel->lastMessage();
        });
        panel->press(Qt::Key_F1);
        succeeded = panel->lastMessage().startsWith("green: ");
        const int tar = events.indexOf(QRegExp("\\$ tar .*"));
        events = events.mid(tar + 1, events.indexOf("$ sync", tar) - tar);
        for (const QString &event : qAsConst(events)) {
            if (event.startsWith("$ "))
                calls << event.mid(2);
            else
                messages << event;
        }
        calls.removeAll("sync");
        messages.removeAll("Finalising update, please wait");
    }

    QStringList events; ///< messages, and the calls of tools after "$ ", in order
    QStringList messages;
    QStringList calls;
    bool succeeded;
};

} // namespace

/// update_config line by line: what each line shows, runs and changes, and what it leaves to the lines after it.
class InterpreterTest : public QObject
{
    Q_OBJECT

private slots:
    void everyKindOfLineIsExecuted();
    void invalidLinesAreNamedAndTheRestGoesOn();
    void linesEndAtLineFeedWithOrWithoutCarriageReturn();
    void utf16IsDecodedBeforeItsLinesEnd();
    void percentSignsInAnArgumentStayAsTheyAre();
    void systemTypeGovernsTheLinesAfterIt();
    void systemTypeOutlivesTheRun();
    void unknownSystemTypeWritesNothing();
    void applicationIsCopiedEvenIfTheRemountFails();
    void scriptRunsWithItsWordsAndItsExitCodeCounts();
    void toolsAndScriptsHaveAnEmptyStandardInput();
    void writerStopsAtTheFirstToolThatFails_data();
    void writerStopsAtTheFirstToolThatFails();
};

void InterpreterTest::everyKindOfLineIsExecuted()
{
    Instrument instrument;
    Panel panel;
    const QByteArray image = QByteArray("UBI#").leftJustified(128 * 1024, '\xFF');
    const Update update(&panel, &instrument,
                        "SYSTEM:NAND\nAPP:/app\nKERNEL:/uImage\nIMAGE:/root.ubi\nFILE:/etc/limits\nSCRIPT:/done.sh\n",
                        {{"app", "new application"},
                         {"uImage", "new kernel"},
                         {"root.ubi", image},
                         {"etc/limits", "new limits"},
                         {"done.sh", "#!/bin/sh\necho done >/tmp/done\n"}});
    QVERIFY(update.succeeded);
    QCOMPARE(update.events,
             QStringList({"System Type set to: NAND", "Updating Application with file: /app",
                          "$ mount ubi0:rootfs -o remount,rw",
                          "$ cp /tmp/firmware_update/app /usr/local/Trolltech/Qt-Target-version-optimised/mainApp",
                          "Updating kernel with file: /uImage", "$ flash_eraseall /dev/mtd0",
                          "$ nandwrite /dev/mtd0 /tmp/firmware_update/uImage -p",
                          "Updating root image with file: /root.ubi", "$ cp /usr/bin/ubiformat /tmp",
                          "$ cp /tmp/firmware_update/root.ubi /tmp", "$ flash_eraseall /dev/mtd1",
                          "$ /tmp/ubiformat /dev/mtd1 -f /tmp/root.ubi", "Updating root files with folder: /etc/limits",
                          "$ mount ubi0:rootfs -o remount,rw", "$ cp -a /tmp/firmware_update/etc/limits /etc/limits",
                          "Running script file: /done.sh", "Finalising update, please wait", "$ sync"}));
    QCOMPARE(instrument.contentOf(mainApplication), QByteArray("new application"));
    QVERIFY(instrument.contentOf("/dev/mtd0").startsWith("new kernel\xFF"));
    QVERIFY(instrument.contentOf("/dev/mtd1").startsWith(image));
    QCOMPARE(instrument.contentOf("/etc/limits"), QByteArray("new limits"));
    QCOMPARE(instrument.contentOf("/tmp/done"), QByteArray("done\n"));
}

void InterpreterTest::invalidLinesAreNamedAndTheRestGoesOn()
{
    Instrument instrument;
    Panel panel;
    const Update update(&panel, &instrument,
                        "\nKERNEL\nFILE:/a:b\nkernel:/uImage\nSYSTEM :NAND\nSYSTEM2:NAND\nAPPS:/a\nKERNEL2:/a\n"
                        "IMAGES:/a\nPROFILE:/a\nSCRIPTS:/a\nSYSTEM:NAND\n");
    QCOMPARE(update.messages, QStringList({"red: Bad command format.", "red: Bad command format.",
                                           "red: Bad command format.", "red: Unknown command: kernel:/uImage",
                                           "red: Unknown command: SYSTEM :NAND", "red: Unknown command: SYSTEM2:NAND",
                                           "red: Unknown command: APPS:/a", "red: Unknown command: KERNEL2:/a",
                                           "red: Unknown command: IMAGES:/a", "red: Unknown command: PROFILE:/a",
                                           "red: Unknown command: SCRIPTS:/a", "System Type set to: NAND"}));
    QVERIFY(!update.succeeded);
    QVERIFY(update.calls.isEmpty());
}

void InterpreterTest::linesEndAtLineFeedWithOrWithoutCarriageReturn()
{
    // Two carriage returns are what a second conversion to the line ends of DOS leaves.
    Instrument instrument;
    Panel panel;
    const Update update(&panel, &instrument, "SYSTEM:NAND\r\r\nSYSTEM: NAND\nSYSTEM:SDCARD\r\n");
    QCOMPARE(update.messages, QStringList({"System Type set to: NAND", "System Type error: Unknown Type:  NAND",
                                           "System Type set to: SDCARD"}));
    QVERIFY(update.succeeded);
}

void InterpreterTest::utf16IsDecodedBeforeItsLinesEnd()
{
    Instrument instrument;
    Panel panel;
    const QString lines = QString(QChar(QChar::ByteOrderMark)) + "SYSTEM:SDCARD\r\nSYSTEM:NAND\r\n";
    const Update update(&panel, &instrument,
                        QByteArray(reinterpret_cast<const char *>(lines.utf16()), 2 * lines.size()));
    QCOMPARE(update.messages, QStringList({"System Type set to: SDCARD", "System Type set to: NAND"}));
}

void InterpreterTest::percentSignsInAnArgumentStayAsTheyAre()
{
    Instrument instrument;
    Panel panel;
    const Update update(&panel, &instrument, "FILE:/etc/100%1\nA%2:%1\n", {{"etc/100%1", "full"}});
    QCOMPARE(update.messages,
             QStringList({"Updating root files with folder: /etc/100%1", "red: Unknown command: A%2:%1"}));
    QCOMPARE(update.calls.last(), QString("cp -a /tmp/firmware_update/etc/100%1 /etc/100%1"));
    QCOMPARE(instrument.contentOf("/etc/100%1"), QByteArray("full"));
}

void InterpreterTest::systemTypeGovernsTheLinesAfterIt()
{
    Instrument instrument;
    Panel panel;
    const Update update(&panel, &instrument,
                        "SYSTEM:SDCARD\nAPP:/app\nKERNEL:/uImage\nFILE:/etc/limits\nIMAGE:/root.ubi\n",
                        {{"app", "a"}, {"uImage", "kernel for the card"}, {"etc/limits", "l"}, {"root.ubi", "r"}});
    QCOMPARE(update.calls,
             QStringList({"mount / -o remount,rw",
                          "cp /tmp/firmware_update/app /usr/local/Trolltech/Qt-Target-version-optimised/mainApp",
                          "sdimage -f /tmp/firmware_update/uImage -d /dev/mmcblk0", "mount / -o remount,rw",
                          "cp -a /tmp/firmware_update/etc/limits /etc/limits"}));
    QCOMPARE(instrument.contentOf("/dev/mmcblk0"), QByteArray("kernel for the card"));
    QCOMPARE(update.messages.last(),
             QString("red: Failed - Updating root image with file: /root.ubi Wrong System type"));
    QVERIFY(!update.succeeded);
}

void InterpreterTest::systemTypeOutlivesTheRun()
{
    Instrument instrument;
    Panel panel;
    const Files kernel{{"uImage", "kernel"}};
    QCOMPARE(Update(&panel, &instrument, "KERNEL:/uImage\n", kernel).calls.first(),
             QString("flash_eraseall /dev/mtd0"));
    const Update card(&panel, &instrument, "SYSTEM:SDCARD\n");
    QVERIFY(Update(&panel, &instrument, "KERNEL:/uImage\n", kernel).calls.first().startsWith("sdimage "));
}

void InterpreterTest::unknownSystemTypeWritesNothing()
{
    Instrument instrument;
    Panel panel;
    const Update kernelOnly(&panel, &instrument, "SYSTEM:nand\nKERNEL:/uImage\n", {{"uImage", "kernel"}});
    QCOMPARE(kernelOnly.messages,
             QStringList({"System Type error: Unknown Type: nand", "Updating kernel with file: /uImage"}));
    QVERIFY(kernelOnly.succeeded);
    QVERIFY(kernelOnly.calls.isEmpty());

    const Update others(&panel, &instrument, "IMAGE:/root.ubi\nFILE:/etc/limits\nAPP:/app\n",
                        {{"app", "a"}, {"etc/limits", "l"}, {"root.ubi", "r"}});
    QCOMPARE(others.messages, QStringList({"Updating root image with file: /root.ubi",
                                           "red: Failed - Updating root image with file: /root.ubi Wrong System type",
                                           "Updating root files with folder: /etc/limits",
                                           "red: Failed - Updating root files with folder: /etc/limits",
                                           "Updating Application with file: /app",
                                           "red: Failed - Updating Application with file: /app"}));
    QCOMPARE(others.calls, QStringList(QString("cp /tmp/firmware_update/app ") + mainApplication));
}

void InterpreterTest::applicationIsCopiedEvenIfTheRemountFails()
{
    Instrument instrument;
    Panel panel;
    const QString announcement = "Updating Application with file: /app";
    const QString failure = "red: Failed - " + announcement;
    instrument.failTool("mount ubi0", 32);
    const Update remountFails(&panel, &instrument, "APP:/app\n", {{"app", "copied all the same"}});
    QCOMPARE(remountFails.messages, QStringList({announcement, failure}));
    QVERIFY(!remountFails.succeeded);
    QCOMPARE(instrument.contentOf(mainApplication), QByteArray("copied all the same"));

    instrument.failTool("cp /tmp");
    const Update bothFail(&panel, &instrument, "APP:/app\n", {{"app", "never there"}});
    QCOMPARE(bothFail.messages, QStringList({announcement, failure, failure}));

    instrument.mendTools();
    QCOMPARE(Update(&panel, &instrument, "APP:/missing\n").messages,
             QStringList({"Updating Application with file: /missing",
                          "red: Failed - Updating Application with file: /missing"}));
}

void InterpreterTest::scriptRunsWithItsWordsAndItsExitCodeCounts()
{
    Instrument instrument;
    Panel panel;
    const Update update(&panel, &instrument,
                        "SCRIPT:/args.sh one  two\nSCRIPT:/fails.sh\nSCRIPT:/plain.txt\nSCRIPT:/gone.sh\n"
                        "SCRIPT:/crash.sh\n",
                        {{"args.sh", "#!/bin/sh\necho \"$#:$1:$2\" >/tmp/args\n"},
                         {"fails.sh", "#!/bin/sh\nexit 3\n"},
                         {"plain.txt", "not executable"},
                         {"crash.sh", "#!/bin/sh\nkill -9 $$\n"}});
    QCOMPARE(instrument.contentOf("/tmp/args"), QByteArray("2:one:two\n"));
    QCOMPARE(update.messages,
             QStringList({"Running script file: /args.sh one  two", "Running script file: /fails.sh",
                          "red: Failed - Running script file: /fails.sh", "Running script file: /plain.txt",
                          "red: Failed - Running script file: /plain.txt", "Running script file: /gone.sh",
                          "red: Failed - Running script file: /gone.sh", "Running script file: /crash.sh",
                          "red: Failed - Running script file: /crash.sh"}));
}

void InterpreterTest::toolsAndScriptsHaveAnEmptyStandardInput()
{
    int ends[2] = {};
    QCOMPARE(pipe(ends), 0);
    const int standardInput = dup(STDIN_FILENO);
    dup2(ends[0], STDIN_FILENO);
    QCOMPARE(::write(ends[1], "typed\n", 6), ssize_t(6));
    Instrument instrument;
    Panel panel;
    const Update update(&panel, &instrument, "SCRIPT:/ask.sh\n",
                        {{"ask.sh", "#!/bin/sh\nread answer\necho \"[$answer]\" >/tmp/answer\n"}});
    dup2(standardInput, STDIN_FILENO);
    QVERIFY(update.succeeded);
    QCOMPARE(instrument.contentOf("/tmp/answer"), QByteArray("[]\n"));
    close(ends[0]);
    close(ends[1]);
    close(standardInput);
}

void InterpreterTest::writerStopsAtTheFirstToolThatFails_data()
{
    QTest::addColumn<QByteArray>("lines");
    QTest::addColumn<QString>("failingTool");
    QTest::addColumn<QString>("message");
    const QByteArray nand = "SYSTEM:NAND\n";
    const QByteArray card = "SYSTEM:SDCARD\n";
    const QString kernel = "red: Failed - Updating kernel with file: /f";
    const QString image = "red: Failed - Updating root image with file: /f";
    const QString files = "red: Failed - Updating root files with folder: /f";
    addRow("erasing the kernel", nand + "KERNEL:/f", "flash_eraseall", kernel);
    addRow("writing the kernel", nand + "KERNEL:/f", "nandwrite", kernel);
    addRow("writing the kernel to the card", card + "KERNEL:/f", "sdimage", kernel);
    addRow("saving the formatting tool", nand + "IMAGE:/f", "cp /usr", image);
    addRow("saving the image", nand + "IMAGE:/f", "cp /tmp", image);
    addRow("erasing the root", nand + "IMAGE:/f", "flash_eraseall", image);
    addRow("formatting the root", nand + "IMAGE:/f", "/tmp/ubiformat", image);
    addRow("remounting the NAND root", nand + "FILE:/f", "mount ubi0", files);
    addRow("remounting the card's root", card + "FILE:/f", "mount /", files);
    addRow("copying", nand + "FILE:/f", "cp -a", files);
}

void InterpreterTest::writerStopsAtTheFirstToolThatFails()
{
    QFETCH(QByteArray, lines);
    QFETCH(QString, failingTool);
    QFETCH(QString, message);
    Instrument instrument;
    Panel panel;
    instrument.makePackage(instrument.insertMedium("mmcblk0p4") + "/firmware_update.tar.bz2", "");
    // "mount /dev/mmcblk0p4" must work, so only the remount of the root is told to fail.
    instrument.failTool(failingTool == "mount /" ? QString("mount / ") : failingTool);
    const Update update(&panel, &instrument, lines, {{"f", "payload"}});
    QVERIFY(!update.succeeded);
    QCOMPARE(update.messages.last(), message);
    QVERIFY2(update.calls.last().startsWith(failingTool), "a tool ran after the one that failed");
}

QTEST_MAIN(InterpreterTest)

#include "InterpreterTest.moc"
