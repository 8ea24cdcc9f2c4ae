#include <QApplication>
#include <QScrollBar>
#include <QSettings>
#include <QTextEdit>
#include <QtTest>
#include <tuple>
#include <unistd.h>

#include "simulator/models/pic/HexRecord.h"
#include "simulator/models/pic/VirtualBoards.h"
#include "tests/DebugLines.h"
#include "tests/Instrument.h"
#include "tests/KeyPresser.h"
#include "tests/Panel.h"
#include "tests/Rows.h"

using namespace simulator;

namespace {

using Files = Instrument::Files;

/// 400 pieces of 16 equal bytes.
QByteArray programOf(char seed)
{
    QByteArray content;
    for (int piece = 0; piece < 400; ++piece)
        content += QByteArray(16, static_cast<char>(seed + piece));
    return content;
}

/// programOf() in records of 16 bytes and two configuration bytes, with the line ends of DOS.
QByteArray hexFile(char seed)
{
    QByteArray file;
    for (int address = 0; address < 400 * 16; address += 16)
        file += hexRecord(0x00, static_cast<unsigned int>(address), programOf(seed).mid(address, 16));
    file += hexRecord(0x04, 0, QByteArray("\x00\x30", 2)) + hexRecord(0x00, 0, QByteArray("\x00\x06", 2));
    return file + hexRecord(0x01, 0, "");
}

VirtualBoards &boards()
{
    return VirtualBoards::installed();
}

QByteArray programMemory(int picNumber)
{
    return boards().pic(picNumber).memory().programMemory().bytes();
}

unsigned int secondsToSettle = 0; ///< that passed while all PICs were in reset and programming was enabled

} // namespace

// The program's own: the boards are looked at while they settle.
unsigned int sleep(unsigned int seconds)
{
    bool ready = boards().readRegister(0x700) & 1U << 17;
    for (int picNumber = 1; picNumber <= 4; ++picNumber)
        ready = ready && !boards().pic(picNumber).isOutOfReset();
    secondsToSettle += ready ? seconds : 0;
    boards().advance(seconds * Q_INT64_C(1000000000));
    return 0;
}

/// The PIC lines of a command file, from the keyword to the last byte in the chip.
class PicUpdateTest : public QObject
{
    Q_OBJECT

public:
    bool eventFilter(QObject *, QEvent *event) override
    {
        m_Paintings += event->type() == QEvent::Paint ? 1 : 0;
        return false;
    }

private slots:
    void initTestCase() { Instrument::useItsSettings(); }
    void init() { switchOn(true); }
    void chosenPicIsProgrammedAndTheOthersStayInReset();
    void percentageReplacesTheOneBeforeIt();
    void eachPicOfAPackageGetsItsOwnFile();
    void scrollKeysWorkDuringTheErasure();
    void disabledPicLineTouchesNothing();
    void numberAfterTheWordSaysWhichPic();
    void fileIsRejectedBeforeTheFirstPinMoves();
    void linesThatAreAllowedStopNoPic();
    void eraseFailureIsShownAndTheNextLineGoesOn();
    void verifyFailureFailsTheLine();

private:
    void switchOn(bool picEnabled);
    QStringList update(const QByteArray &commandFile, const Files &files = {{"pic.hex", hexFile('a')}});

    std::unique_ptr<Instrument> m_Instrument;
    std::unique_ptr<Panel> m_Panel;
    int m_Paintings = 0;
};

void PicUpdateTest::switchOn(bool picEnabled)
{
    QSettings().setValue("PicEnable", picEnabled);
    VirtualBoards::install();
    m_Panel.reset();
    m_Instrument = std::make_unique<Instrument>();
    m_Panel = std::make_unique<Panel>();
}

/// The messages of the lines of `commandFile`.
QStringList PicUpdateTest::update(const QByteArray &commandFile, const Files &files)
{
    m_Instrument->insertPackage("mmcblk0p4", commandFile, files);
    m_Panel->updateFromCard();
    const QStringList shown = m_Panel->messages();
    const int first = shown.indexOf("Extracting update") + 1;
    return shown.mid(first, shown.indexOf("Finalising update, please wait") - first);
}

void PicUpdateTest::chosenPicIsProgrammedAndTheOthersStayInReset()
{
    secondsToSettle = 0;
    QCOMPARE(update("PIC3:/pic.hex\n"),
             QStringList({"Updating PIC 3 with file: /pic.hex", "Erasing PIC:", "orange: 99%", "PIC Erase Complete",
                          "Programming PIC:", "orange: 100%"}));
    QVERIFY(m_Panel->lastMessage().startsWith("green: "));
    QVERIFY(programMemory(3).startsWith(programOf('a') + QByteArray(64, '\xFF')));
    QCOMPARE(static_cast<int>(boards().pic(3).memory().configuration()[1]), 0x06);
    for (int picNumber = 1; picNumber <= 4; ++picNumber)
        QCOMPARE(boards().pic(picNumber).isOutOfReset(), picNumber == 3);
    QVERIFY(boards().pic(3).isInProgrammingMode());
    QCOMPARE(secondsToSettle, 1U);
    QCOMPARE(boards().violations(), QStringList());
}

void PicUpdateTest::percentageReplacesTheOneBeforeIt()
{
    QScrollBar *const scrollBar = m_Panel->messageWindow()->verticalScrollBar();
    m_Panel->messageWindow()->viewport()->installEventFilter(this);
    int mostPercentages = 0;
    QStringList seen;
    const QObject thisFunction;
    connect(m_Panel->messageWindow(), &QTextEdit::textChanged, &thisFunction, [&] {
        const QStringList percentages = m_Panel->messages().filter("orange: ");
        mostPercentages = qMax(mostPercentages, percentages.size());
        if (mostPercentages < 2)
            m_Paintings = 0; // only those of the programming count, which blocks
        if (!percentages.isEmpty() && (seen.isEmpty() || seen.last() != percentages.last()))
            seen << percentages.last();
        if (seen.endsWith("orange: 50%"))
            scrollBar->setValue(0); // as by F3; the percentage brings itself into view again
    });
    update(QByteArray("SYSTEM:NAND\n").repeated(30) + "PIC1:/pic.hex\n");
    QCOMPARE(mostPercentages, 2); // that of the erasure and that of the programming
    QVERIFY(seen.contains("orange: 0%") && seen.contains("orange: 50%") && seen.contains("orange: 100%"));
    QVERIFY2(m_Paintings >= 100, "each percentage is on the display");
    QCOMPARE(scrollBar->value(), scrollBar->maximum());
}

void PicUpdateTest::eachPicOfAPackageGetsItsOwnFile()
{
    update("PIC1:/1.hex\nPIC2:/2.hex\nPIC3:/3.hex\nPIC4:/4.hex\n",
           {{"1.hex", hexFile('1')}, {"2.hex", hexFile('2')}, {"3.hex", hexFile('3')}, {"4.hex", hexFile('4')}});
    QVERIFY(m_Panel->lastMessage().startsWith("green: "));
    for (int picNumber = 1; picNumber <= 4; ++picNumber)
        QVERIFY(programMemory(picNumber).startsWith(programOf(static_cast<char>('0' + picNumber)) + '\xFF'));
    QCOMPARE(boards().violations(), QStringList());
}

void PicUpdateTest::scrollKeysWorkDuringTheErasure()
{
    const KeyPresser presser(m_Panel.get(), "Erasing PIC:");
    update("PIC1:/pic.hex\n");
    QVERIFY(presser.messages().contains("Erasing PIC:") && !presser.messages().contains("PIC Erase Complete"));
}

void PicUpdateTest::disabledPicLineTouchesNothing()
{
    switchOn(false);
    QCOMPARE(update("PIC1:/pic.hex\nSYSTEM:NAND\n"),
             QStringList({"red: Failed - PIC updates not enabled", "System Type set to: NAND"}));
    QVERIFY(m_Panel->lastMessage().startsWith("red: Some of the updates failed"));
    QCOMPARE(boards().now(), 0LL);
}

void PicUpdateTest::numberAfterTheWordSaysWhichPic()
{
    const std::tuple<const char *, const char *, const char *> rows[] = {
        {"PIC01:/x", "Updating PIC 01 with file: /x", "red: Failed - Updating PIC[1] with file /x"},
        {"PIC:/x", "Updating PIC  with file: /x", "red: Failed - Updating PIC[0] with file /x"},
        {"PIC1:pic.hex", "Updating PIC 1 with file: pic.hex", "red: Failed - Updating PIC[1] with file pic.hex"},
        {"PIC1:/", "Updating PIC 1 with file: /", "red: Failed - Updating PIC[1] with file /"},
        {"PIC%2:/%1", "Updating PIC %2 with file: /%1", "red: Failed - Updating PIC[0] with file /%1"},
        {"ESA_IO_APP_PIC:/x", "Updating PIC _IO_APP_PIC with file: /x", "red: Failed - Updating PIC[0] with file /x"},
    };
    for (const auto &[line, announcement, failure] : rows) {
        const RowName row{line};
        switchOn(true);
        const DebugLines debug;
        QCOMPARE(update(line), QStringList({announcement, failure}));
        const QString path = "/tmp/firmware_update" + QString(line).section(':', 1);
        QVERIFY(DebugLines::take().contains("Failed to find hex file: \"" + path + "\""));
        QCOMPARE(boards().now(), 0LL);
    }
    // No PIC is out of reset, PGD rests high, and every byte seems to be erased.
    switchOn(true);
    boards().pic(1).remove(true);
    const QByteArray configuration = hexRecord(0x04, 0, QByteArray("\x00\x30", 2)) + hexRecord(0x00, 1, "\x06");
    QCOMPARE(update("PIC5:/pic.hex", {{"pic.hex", configuration}}).mid(3),
             QStringList({"PIC Erase Complete", "Programming PIC:", "orange: 100%",
                          "red: Failed - Updating PIC[5] with file /pic.hex"}));
}

// A line is rejected between a record for 0x0000 and a record for 0x0100.
void PicUpdateTest::fileIsRejectedBeforeTheFirstPinMoves()
{
    const QByteArray bytes("0123456789abcdef");
    const QByteArray record = hexRecord(0x00, 0x40, bytes, "");
    const QByteArray noColon = record.mid(1);
    const QByteArray dosEnd("\x1A");
    const QByteArray byteOrderMark("\xEF\xBB\xBF");
    const QPair<QString, QList<QByteArray>> rows[] = {
        {"a second record on the line",
         {":00000001FF:020000040000FA", record + " " + record, record + noColon, record + ":0200",
          record + dosEnd + record, record + ";" + noColon, ";" + noColon + record}},
        {"a hexadecimal digit after the checksum", {record + "7"}},
        {"a record without its ':'", {noColon, noColon + " ; note", "  " + noColon + " "}},
        {"something before the ':' of a record",
         {" " + record, "\t:0200", "x" + record, byteOrderMark + record, byteOrderMark + ":0200"}},
        {"NUL byte", {QByteArray(":\0000\0", 5), record + '\0'}},
        {"checksum computed: 190, in the record: 191", {hexRecord(0x00, 0x40, "\x01", "", 1)}},
        {"checksum computed: 192, in the record: 193", {hexRecord(0x00, 0x40, "", "", 1)}},
        {"checksum computed: 200, in the record: 203", {":0400000352EF00F0CB"}}, // type corrupted to 3
        {"checksum computed: 255, in the record: 0", {hexRecord(0x01, 0, "", "", 1)}},
        {"end-of-file record with data bytes", {hexRecord(0x01, 0x40, bytes, "")}},
        {"start address record without 4 data bytes", {hexRecord(0x05, 0x40, bytes, "")}},
        {"extended address record without 2 data bytes", {hexRecord(0x04, 0, "\x30", ""), hexRecord(0x02, 0, "", "")}},
        {"unknown record type", {hexRecord(0x06, 0x40, bytes, "")}},
        {"not a hexadecimal digit", {QByteArray(record).replace(2, 1, "G"), QByteArray(record).replace(12, 1, "G")}},
        {"shorter than its data byte count", {record.left(42), record.left(20)}},
        {"shorter than any record", {record.left(6)}},
        {"more than 100 data bytes", {hexRecord(0x00, 0x40, QByteArray(101, 'x'), "")}},
        {"longer than any record", {record + QByteArray(1000, ' ')}},
    };
    const QByteArray before(0x10000, '\x55');
    boards().pic(1).memory().programMemory() = before;
    QByteArray commandFile;
    Files files;
    QStringList messages;
    QStringList reports;
    const auto addFile = [&](const QByteArray &content) {
        const QString path = QString("/%1.hex").arg(files.size());
        commandFile += "PIC1:" + path.toLatin1() + "\n";
        files << qMakePair(path.mid(1), content);
        messages << "Updating PIC 1 with file: " + path << "red: Failed - Updating PIC[1] with file " + path;
        return "/tmp/firmware_update" + path;
    };
    for (const auto &[reason, lines] : rows) {
        for (const QByteArray &line : lines) {
            addFile(hexRecord(0x00, 0, "first ..") + line + "\n" + hexRecord(0x00, 0x100, "last ..."));
            reports << "hex file rejected at line 2: " + reason;
        }
    }
    const QByteArray eepromOnly = hexRecord(0x04, 0, QByteArray("\x00\xF0", 2)) + hexRecord(0x00, 0, "0123");
    for (const QByteArray &content :
         {QByteArray(), QByteArray("<html>\nnot found\n"), hexRecord(0x01, 0, ""), eepromOnly, hexRecord(0x00, 0, "")})
        reports << "hex file rejected: no byte for a PIC in \"" + addFile(content) + '"';
    const DebugLines debug;
    QCOMPARE(update(commandFile, files), messages);
    QCOMPARE(DebugLines::take().filter("hex file rejected"), reports);
    QVERIFY(programMemory(1) == before);
    QCOMPARE(boards().now(), 0LL);
}

void PicUpdateTest::linesThatAreAllowedStopNoPic()
{
    const auto record = [](unsigned int number) {
        return hexRecord(0x00, 0x40 * number, "0123456789abcdef", "");
    };
    const QByteArray comments("\xEF\xBB\xBF;added\n\n   \n\t\n; built 12:30:00\n;added\n2014\n# 10\n; CRC:1A2B3C4D\n");
    const QByteArray file = comments + hexRecord(0x00, 0, "first ..", "\n") + record(1) + "\n;" + record(2).mid(1) +
                            "\n" + record(3) + " ; start 12:30\n" + record(4) + "  \t\n" + record(5) + "\x1A\n" +
                            record(6).toLower() + "\n" + hexRecord(0x00, 0x40, "", "\n") +
                            hexRecord(0x03, 0, "\1\2\3\4", "\n") + hexRecord(0x05, 0, "\1\2\3\4", "\n") +
                            hexRecord(0x01, 0, "", "\n") + hexRecord(0x00, 0x200, "last ...", "\n") + "\x1A";
    QByteArray expected(0x10000, '\xFF');
    expected.replace(0, 8, "first ..").replace(0x200, 8, "last ...");
    for (int number = 1; number <= 6; ++number)
        expected.replace(0x40 * number, 16, "0123456789abcdef");
    for (const char *const lineEnd : {"\n", "\r\n"}) {
        switchOn(true);
        boards().pic(1).memory().programMemory().fill('\x55');
        const DebugLines debug;
        QCOMPARE(update("PIC1:/pic.hex\n", {{"pic.hex", QByteArray(file).replace("\n", lineEnd)}}).last(),
                 QString("orange: 100%"));
        QCOMPARE(DebugLines::take().filter("hex file"), QStringList());
        QVERIFY(programMemory(1) == expected);
    }
}

void PicUpdateTest::eraseFailureIsShownAndTheNextLineGoesOn()
{
    boards().pic(1).memory().breakErase(0x10, 0x01);
    QCOMPARE(update("PIC1:/pic.hex\nPIC2:/pic.hex\n").mid(0, 5),
             QStringList({"Updating PIC 1 with file: /pic.hex", "Erasing PIC:", "orange: 0%", "red: PIC Erase Error",
                          "red: Failed - Updating PIC[1] with file /pic.hex"}));
    QVERIFY(!programMemory(1).startsWith(programOf('a')));
    QVERIFY(programMemory(2).startsWith(programOf('a')));
}

void PicUpdateTest::verifyFailureFailsTheLine()
{
    boards().pic(4).memory().flipOnWrite(200 * 16, 0x01);
    QCOMPARE(update("PIC4:/pic.hex\n").mid(5),
             QStringList({"orange: 49%", "red: Failed - Updating PIC[4] with file /pic.hex"}));
    QVERIFY2(programMemory(4).mid(201 * 16).count('\xFF') == 96 * 1024 - 201 * 16, "records after it are written");
}

QTEST_MAIN(PicUpdateTest)

#include "PicUpdateTest.moc"
