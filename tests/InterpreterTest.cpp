#include <QTextEdit>
#include <QtTest>
#include <cstdio>

#include "tests/Instrument.h"
#include "tests/Panel.h"
#include "tests/Rows.h"

namespace {

using Files = Instrument::Files;

const QString mainApplication = "/usr/local/Trolltech/Qt-Target-version-optimised/mainApp";
const QString copyApplication = "$ cp /tmp/firmware_update/app " + mainApplication;
const QString remountNand = "$ mount ubi0:rootfs -o remount,rw";

} // namespace

/// update_config line by line: what each line shows, runs and changes, and what it leaves to the lines after it.
class InterpreterTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void linesShowAndRunAndChange_data();
    void linesShowAndRunAndChange();
    void systemTypeOutlivesTheRun();
    void writerStopsAtTheFirstToolThatFails_data();
    void writerStopsAtTheFirstToolThatFails();

private:
    void update(const QByteArray &commandFile, const Files &files, bool succeeds);
    void recordEvents();

    std::unique_ptr<Instrument> m_Instrument;
    std::unique_ptr<Panel> m_Panel;
    QStringList m_Events; ///< messages, and the calls of tools after "$ ", in order
};

void InterpreterTest::init()
{
    Instrument::write("/tmp/typed", "typed, which no script may read\n");
    QVERIFY(std::freopen("/tmp/typed", "r", stdin) != nullptr);
    m_Instrument = std::make_unique<Instrument>();
    m_Panel.reset(); // only one can be on the display
    m_Panel = std::make_unique<Panel>();
    connect(m_Panel->messageWindow(), &QTextEdit::textChanged, this, &InterpreterTest::recordEvents);
}

void InterpreterTest::recordEvents()
{
    m_Events << m_Instrument->takeCalls().replaceInStrings(QRegExp("^"), "$ ") << m_Panel->lastMessage();
}

/// An update from the SD card, which leaves the events of its lines.
void InterpreterTest::update(const QByteArray &commandFile, const Files &files, bool succeeds)
{
    m_Instrument->insertPackage("mmcblk0p4", commandFile, files);
    m_Events.clear();
    m_Panel->updateFromCard();
    QCOMPARE(m_Events.takeLast(),
             QString(succeeds ? "green: Update complete, restart the system or press F1 to return to the main screen"
                              : "red: Some of the updates failed, press F1 to return to the main screen"));
    const int begin = m_Events.indexOf(QRegExp("\\$ tar .*")) + 1;
    const int end = m_Events.indexOf("Finalising update, please wait");
    QCOMPARE(m_Events.value(end + 1), QString("$ sync"));
    m_Events = m_Events.mid(begin, end - begin);
}

void InterpreterTest::linesShowAndRunAndChange_data()
{
    QTest::addColumn<QByteArray>("lines");
    QTest::addColumn<Files>("files");
    QTest::addColumn<QStringList>("events");
    QTest::addColumn<bool>("succeeds");
    QTest::addColumn<Files>("contents"); ///< afterwards
    QTest::addColumn<QStringList>("failingTools");
    const auto add = [](const char *name, const QByteArray &lines, const Files &files, const QStringList &events,
                        bool succeeds, const Files &contents = {}, const QStringList &failingTools = {}) {
        addRow(name, lines, files, events, succeeds, contents, failingTools);
    };

    const QByteArray image = QByteArray("UBI#").leftJustified(128 * 1024, '\xFF');
    add("every kind of line, NAND",
        "SYSTEM:NAND\nAPP:/app\nKERNEL:/uImage\nIMAGE:/root.ubi\nFILE:/etc/limits\nSCRIPT:/done.sh\n",
        {{"app", "new application"},
         {"uImage", "new kernel"},
         {"root.ubi", image},
         {"etc/limits", "new limits"},
         {"done.sh", "#!/bin/sh\necho done >/tmp/done\n"}},
        {"System Type set to: NAND", "Updating Application with file: /app", remountNand, copyApplication,
         "Updating kernel with file: /uImage", "$ flash_eraseall /dev/mtd0",
         "$ nandwrite /dev/mtd0 /tmp/firmware_update/uImage -p", "Updating root image with file: /root.ubi",
         "$ cp /usr/bin/ubiformat /tmp", "$ cp /tmp/firmware_update/root.ubi /tmp", "$ flash_eraseall /dev/mtd1",
         "$ /tmp/ubiformat /dev/mtd1 -f /tmp/root.ubi", "Updating root files with folder: /etc/limits", remountNand,
         "$ cp -a /tmp/firmware_update/etc/limits /etc/limits", "Running script file: /done.sh"},
        true,
        {{mainApplication, "new application"},
         {"/dev/mtd0", "new kernel"},
         {"/dev/mtd1", image},
         {"/etc/limits", "new limits"},
         {"/tmp/done", "done\n"}});
    add("every kind of writer, SD card", "SYSTEM:SDCARD\nAPP:/app\nKERNEL:/uImage\nFILE:/etc/limits\nIMAGE:/root.ubi\n",
        {{"app", "a"}, {"uImage", "kernel for the card"}, {"etc/limits", "l"}, {"root.ubi", "r"}},
        {"System Type set to: SDCARD", "Updating Application with file: /app", "$ mount / -o remount,rw",
         copyApplication, "Updating kernel with file: /uImage",
         "$ sdimage -f /tmp/firmware_update/uImage -d /dev/mmcblk0", "Updating root files with folder: /etc/limits",
         "$ mount / -o remount,rw", "$ cp -a /tmp/firmware_update/etc/limits /etc/limits",
         "Updating root image with file: /root.ubi",
         "red: Failed - Updating root image with file: /root.ubi Wrong System type"},
        false, {{"/dev/mmcblk0", "kernel for the card"}});
    add("unknown system type writes nothing, which fails no kernel",
        "SYSTEM:nand\nKERNEL:/uImage\nIMAGE:/root.ubi\nFILE:/etc/limits\nAPP:/app\n",
        {{"app", "a"}, {"uImage", "k"}, {"etc/limits", "l"}, {"root.ubi", "r"}},
        {"System Type error: Unknown Type: nand", "Updating kernel with file: /uImage",
         "Updating root image with file: /root.ubi",
         "red: Failed - Updating root image with file: /root.ubi Wrong System type",
         "Updating root files with folder: /etc/limits", "red: Failed - Updating root files with folder: /etc/limits",
         "Updating Application with file: /app", "red: Failed - Updating Application with file: /app", copyApplication},
        false);
    add("invalid lines",
        "\nKERNEL\nFILE:/a:b\nkernel:/uImage\nSYSTEM :NAND\nSYSTEM2:NAND\nAPPS:/a\nKERNEL2:/a\nIMAGES:/a\nPROFILE:/a\n"
        "SCRIPTS:/a\nSYSTEM:NAND\n",
        {},
        {"red: Bad command format.", "red: Bad command format.", "red: Bad command format.",
         "red: Unknown command: kernel:/uImage", "red: Unknown command: SYSTEM :NAND",
         "red: Unknown command: SYSTEM2:NAND", "red: Unknown command: APPS:/a", "red: Unknown command: KERNEL2:/a",
         "red: Unknown command: IMAGES:/a", "red: Unknown command: PROFILE:/a", "red: Unknown command: SCRIPTS:/a",
         "System Type set to: NAND"},
        false);
    // Two carriage returns are what a second conversion to the line ends of DOS leaves.
    add("line feed with and without carriage return", "SYSTEM:NAND\r\r\nSYSTEM: NAND\nSYSTEM:SDCARD\r\n", {},
        {"System Type set to: NAND", "System Type error: Unknown Type:  NAND", "System Type set to: SDCARD"}, true);
    const QString utf16 = QString(QChar(QChar::ByteOrderMark)) + "SYSTEM:SDCARD\r\nSYSTEM:NAND\r\n";
    add("UTF-16", QByteArray(reinterpret_cast<const char *>(utf16.utf16()), 2 * utf16.size()), {},
        {"System Type set to: SDCARD", "System Type set to: NAND"}, true);
    add("percent signs in an argument", "FILE:/etc/100%1\nA%2:%1\n", {{"etc/100%1", "full"}},
        {"Updating root files with folder: /etc/100%1", remountNand,
         "$ cp -a /tmp/firmware_update/etc/100%1 /etc/100%1", "red: Unknown command: A%2:%1"},
        false, {{"/etc/100%1", "full"}});

    const QString announcement = "Updating Application with file: /app";
    const QString failure = "red: Failed - " + announcement;
    add("remount fails, application is copied", "APP:/app\n", {{"app", "copied all the same"}},
        {announcement, remountNand, failure, copyApplication}, false, {{mainApplication, "copied all the same"}},
        {"mount ubi0"});
    add("copy of the application fails", "APP:/app\n", {}, {announcement, remountNand, copyApplication, failure},
        false);
    add("remount and copy fail", "APP:/app\n", {{"app", "never there"}},
        {announcement, remountNand, failure, copyApplication, failure}, false, {}, {"mount ubi0", "cp /tmp"});
    add("scripts: words, standard input, exit status",
        "SCRIPT:/words.sh one  two\nSCRIPT:/ask.sh\nSCRIPT:/fails.sh\nSCRIPT:/plain.txt\nSCRIPT:/gone.sh\n"
        "SCRIPT:/crash.sh\n",
        {{"words.sh", "#!/bin/sh\necho \"$#:$1:$2\" >/tmp/words\n"},
         {"ask.sh", "#!/bin/sh\nread answer\necho \"[$answer]\" >/tmp/answer\n"},
         {"fails.sh", "#!/bin/sh\nexit 3\n"},
         {"plain.txt", "not executable"},
         {"crash.sh", "#!/bin/sh\nkill -9 $$\n"}},
        {"Running script file: /words.sh one  two", "Running script file: /ask.sh", "Running script file: /fails.sh",
         "red: Failed - Running script file: /fails.sh", "Running script file: /plain.txt",
         "red: Failed - Running script file: /plain.txt", "Running script file: /gone.sh",
         "red: Failed - Running script file: /gone.sh", "Running script file: /crash.sh",
         "red: Failed - Running script file: /crash.sh"},
        false, {{"/tmp/words", "2:one:two\n"}, {"/tmp/answer", "[]\n"}});
}

void InterpreterTest::linesShowAndRunAndChange()
{
    QFETCH(QByteArray, lines);
    QFETCH(Files, files);
    QFETCH(QStringList, events);
    QFETCH(bool, succeeds);
    QFETCH(Files, contents);
    QFETCH(QStringList, failingTools);
    m_Instrument->failTools(failingTools);
    update(lines, files, succeeds);
    QCOMPARE(m_Events, events);
    for (const auto &[name, expected] : contents) {
        const QByteArray content = m_Instrument->contentOf(name);
        QCOMPARE(content, expected.leftJustified(content.size(), '\xFF')); // the rest of a partition is erased
    }
}

void InterpreterTest::systemTypeOutlivesTheRun()
{
    update("KERNEL:/uImage\nSYSTEM:SDCARD\n", {{"uImage", "kernel"}}, true);
    QCOMPARE(m_Events.value(1), QString("$ flash_eraseall /dev/mtd0"));
    update("KERNEL:/uImage\n", {{"uImage", "kernel"}}, true);
    QCOMPARE(m_Events.value(1), QString("$ sdimage -f /tmp/firmware_update/uImage -d /dev/mmcblk0"));
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
    addRow("remounting the card's root", card + "FILE:/f", "mount / ", files);
    addRow("copying", nand + "FILE:/f", "cp -a", files);
}

void InterpreterTest::writerStopsAtTheFirstToolThatFails()
{
    QFETCH(QByteArray, lines);
    QFETCH(QString, failingTool);
    QFETCH(QString, message);
    m_Instrument->failTools({failingTool});
    update(lines, {{"f", "payload"}}, false);
    QCOMPARE(m_Events.takeLast(), message);
    QVERIFY2(m_Events.last().startsWith("$ " + failingTool), "a tool ran after the one that failed");
}

QTEST_MAIN(InterpreterTest)

#include "InterpreterTest.moc"
