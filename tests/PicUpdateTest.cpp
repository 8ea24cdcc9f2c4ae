#include <QApplication>
#include <QScrollBar>
#include <QSettings>
#include <QTextEdit>
#include <QtTest>
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

using Files = QList<QPair<QString, QByteArray>>;

/// 400 records of 16 bytes and two configuration bytes, with the line ends of DOS.
QByteArray hexFile(char seed)
{
    QByteArray file;
    for (unsigned int record = 0; record < 400; ++record)
        file += hexRecord(0x00, record * 16, QByteArray(16, static_cast<char>(seed + static_cast<char>(record))));
    file += hexRecord(0x04, 0, QByteArray("\x00\x30", 2)) + hexRecord(0x00, 0, QByteArray("\x00\x06", 2));
    return file + hexRecord(0x01, 0, QByteArray());
}

QByteArray programOf(char seed)
{
    QByteArray content;
    for (int record = 0; record < 400; ++record)
        content += QByteArray(16, static_cast<char>(seed + static_cast<char>(record)));
    return content;
}

QByteArray programMemory(int picNumber)
{
    return VirtualBoards::installed().pic(picNumber).memory().programMemory().bytes();
}

unsigned int secondsToSettle = 0;
int picsInReset = 0;
bool isProgrammingEnabled = false;

} // namespace

// The program's own: the boards are looked at while they settle.
unsigned int sleep(unsigned int seconds)
{
    secondsToSettle = seconds;
    picsInReset = 0;
    for (int picNumber = 1; picNumber <= 4; ++picNumber)
        picsInReset += VirtualBoards::installed().pic(picNumber).isOutOfReset() ? 0 : 1;
    isProgrammingEnabled = VirtualBoards::installed().readRegister(0x700) & 1U << 17;
    VirtualBoards::installed().advance(seconds * Q_INT64_C(1000000000));
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
    void initTestCase();
    void init();
    void chosenPicIsProgrammedAndShownInPercent();
    void percentageReplacesTheOneBeforeIt();
    void eachPicOfAPackageGetsItsOwnFile();
    void otherPicsAreHeldInResetAndStaySo();
    void scrollKeysWorkDuringTheErasure();
    void disabledPicLineTouchesNothing();
    void numberBehindTheWordSaysWhichPic_data();
    void numberBehindTheWordSaysWhichPic();
    void fileIsRejectedBeforeTheFirstPinMoves();
    void linesThatAreAllowedStopNoPic_data();
    void linesThatAreAllowedStopNoPic();
    void fileWithoutAByteForThePicIsRejected_data();
    void fileWithoutAByteForThePicIsRejected();
    void eraseFailureIsShownAndTheNextLineGoesOn();
    void verifyFailureFailsTheLine();

private:
    QStringList update(Panel *panel, const QByteArray &commandFile, const Files &files);

    std::unique_ptr<Instrument> m_Instrument;
    int m_Paintings = 0;
};

void PicUpdateTest::initTestCase()
{
    Instrument::useItsSettings();
}

void PicUpdateTest::init()
{
    QSettings().setValue("PicEnable", true);
    VirtualBoards::install(
        {&Pic18Device::pic18f4620, &Pic18Device::pic18f4680, &Pic18Device::pic18f4682, &Pic18Device::pic18f4685});
    m_Instrument = std::make_unique<Instrument>();
}

/// The messages of the lines of `commandFile`.
QStringList PicUpdateTest::update(Panel *panel, const QByteArray &commandFile, const Files &files)
{
    m_Instrument->makePackage(m_Instrument->insertMedium("mmcblk0p4") + "/firmware_update.tar.bz2", commandFile, files);
    panel->press(Qt::Key_F3);
    panel->press(Qt::Key_F1);
    const QStringList shown = panel->messages();
    const int first = shown.indexOf("Extracting update") + 1;
    return shown.mid(first, shown.indexOf("Finalising update, please wait") - first);
}

void PicUpdateTest::chosenPicIsProgrammedAndShownInPercent()
{
    Panel panel;
    QCOMPARE(update(&panel, "PIC2:/pic.hex\n", {{"pic.hex", hexFile('a')}}),
             QStringList({"Updating PIC 2 with file: /pic.hex", "Erasing PIC:", "orange: 99%", "PIC Erase Complete",
                          "Programming PIC:", "orange: 100%"}));
    QVERIFY(panel.lastMessage().startsWith("green: "));
    QVERIFY(programMemory(2).startsWith(programOf('a') + QByteArray(64, '\xFF')));
    QCOMPARE(static_cast<int>(VirtualBoards::installed().pic(2).memory().configuration()[1]), 0x06);
    QCOMPARE(VirtualBoards::installed().violations(), QStringList());
}

void PicUpdateTest::percentageReplacesTheOneBeforeIt()
{
    Panel panel;
    QScrollBar *const scrollBar = panel.messageWindow()->verticalScrollBar();
    panel.messageWindow()->viewport()->installEventFilter(this);
    int mostPercentages = 0;
    QStringList seen;
    connect(panel.messageWindow(), &QTextEdit::textChanged, this, [&] {
        const QStringList percentages = panel.messages().filter("orange: ");
        mostPercentages = qMax(mostPercentages, percentages.size());
        if (mostPercentages < 2)
            m_Paintings = 0; // only those of the programming count, which blocks
        if (!percentages.isEmpty() && (seen.isEmpty() || seen.last() != percentages.last()))
            seen << percentages.last();
        if (seen.endsWith("orange: 50%"))
            scrollBar->setValue(0); // as by F3; the percentage brings itself into view again
    });
    update(&panel, QByteArray("SYSTEM:NAND\n").repeated(30) + "PIC1:/pic.hex\n", {{"pic.hex", hexFile('a')}});
    QCOMPARE(mostPercentages, 2); // that of the erasure and that of the programming
    QVERIFY(seen.contains("orange: 0%") && seen.contains("orange: 50%") && seen.contains("orange: 100%"));
    QVERIFY2(m_Paintings >= 100, "each percentage is on the display");
    QCOMPARE(scrollBar->value(), scrollBar->maximum());
}

void PicUpdateTest::eachPicOfAPackageGetsItsOwnFile()
{
    Panel panel;
    update(&panel, "PIC1:/1.hex\nPIC2:/2.hex\nPIC3:/3.hex\nPIC4:/4.hex\n",
           {{"1.hex", hexFile('1')}, {"2.hex", hexFile('2')}, {"3.hex", hexFile('3')}, {"4.hex", hexFile('4')}});
    QVERIFY(panel.lastMessage().startsWith("green: "));
    for (int picNumber = 1; picNumber <= 4; ++picNumber)
        QVERIFY(programMemory(picNumber).startsWith(programOf(static_cast<char>('0' + picNumber)) + '\xFF'));
    QCOMPARE(VirtualBoards::installed().violations(), QStringList());
}

void PicUpdateTest::otherPicsAreHeldInResetAndStaySo()
{
    Panel panel;
    update(&panel, "PIC3:/pic.hex\n", {{"pic.hex", hexFile('a')}});
    for (int picNumber = 1; picNumber <= 4; ++picNumber)
        QCOMPARE(VirtualBoards::installed().pic(picNumber).isOutOfReset(), picNumber == 3);
    QVERIFY(VirtualBoards::installed().pic(3).isInProgrammingMode());
    QCOMPARE(secondsToSettle, 1U);
    QCOMPARE(picsInReset, 4);
    QVERIFY(isProgrammingEnabled);
}

void PicUpdateTest::scrollKeysWorkDuringTheErasure()
{
    Panel panel;
    const KeyPresser presser(&panel, "Erasing PIC:");
    update(&panel, "PIC1:/pic.hex\n", {{"pic.hex", hexFile('a')}});
    QVERIFY(presser.messages().contains("Erasing PIC:") && !presser.messages().contains("PIC Erase Complete"));
}

void PicUpdateTest::disabledPicLineTouchesNothing()
{
    QSettings().setValue("PicEnable", false);
    Panel panel;
    QCOMPARE(update(&panel, "PIC1:/pic.hex\nSYSTEM:NAND\n", {{"pic.hex", hexFile('a')}}),
             QStringList({"red: Failed - PIC updates not enabled", "System Type set to: NAND"}));
    QVERIFY(panel.lastMessage().startsWith("red: Some of the updates failed"));
    QCOMPARE(VirtualBoards::installed().now(), 0LL);
}

void PicUpdateTest::numberBehindTheWordSaysWhichPic_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QString>("announcement");
    QTest::addColumn<QString>("failure");
    addRow("leading zero", QByteArray("PIC01:/gone.hex"), "Updating PIC 01 with file: /gone.hex",
           "red: Failed - Updating PIC[1] with file /gone.hex");
    addRow("no number", QByteArray("PIC:/gone.hex"), "Updating PIC  with file: /gone.hex",
           "red: Failed - Updating PIC[0] with file /gone.hex");
    addRow("no slash", QByteArray("PIC1:pic.hex"), "Updating PIC 1 with file: pic.hex",
           "red: Failed - Updating PIC[1] with file pic.hex");
    addRow("folder", QByteArray("PIC1:/"), "Updating PIC 1 with file: /", "red: Failed - Updating PIC[1] with file /");
    addRow("place-holder", QByteArray("PIC%2:/%1"), "Updating PIC %2 with file: /%1",
           "red: Failed - Updating PIC[0] with file /%1");
    addRow("both words", QByteArray("ESA_IO_APP_PIC:/x"), "Updating PIC _IO_APP_PIC with file: /x",
           "red: Failed - Updating PIC[0] with file /x");
}

void PicUpdateTest::numberBehindTheWordSaysWhichPic()
{
    QFETCH(QByteArray, line);
    QFETCH(QString, announcement);
    QFETCH(QString, failure);
    Panel panel;
    const DebugLines debug;
    QCOMPARE(update(&panel, line, {{"pic.hex", hexFile('a')}}), QStringList({announcement, failure}));
    const QString path = "/tmp/firmware_update" + QString(line).section(':', 1);
    QVERIFY(DebugLines::take().contains("Failed to find hex file: \"" + path + "\""));
    QCOMPARE(VirtualBoards::installed().now(), 0LL);
}

// Each file is a record for 0x0000, the line of the row, and a record for 0x0100.
void PicUpdateTest::fileIsRejectedBeforeTheFirstPinMoves()
{
    struct Case
    {
        const char *name;
        QByteArray lines;
        const char *reason;
    };
    const QByteArray bytes("0123456789abcdef");
    const QByteArray good = hexRecord(0x00, 0x40, bytes);
    const QByteArray sixteen = good.trimmed();
    const QByteArray end = ":00000001FF";
    const Case cases[] = {
        {"second record", end + ":020000040000FA\n", "a second record on the line"},
        {"second record after a blank", sixteen + " " + good, "a second record on the line"},
        {"second record without its colon", sixteen + good.mid(1), "a second record on the line"},
        {"second record cut short", sixteen + ":0200\n", "a second record on the line"},
        {"second record after a DOS end mark", sixteen + "\x1A" + good, "a second record on the line"},
        {"second record with another first character", sixteen + ";" + good.mid(1), "a second record on the line"},
        {"digit after the checksum", sixteen + "7\n", "a hexadecimal digit after the checksum"},
        {"two records after another first character", ";" + sixteen.mid(1) + good, "a second record on the line"},
        {"type corrupted to 01", hexRecord(0x01, 0x40, bytes), "end-of-file record with data bytes"},
        {"type corrupted to 03", ":0400000352EF00F0CB\n", "checksum computed: 200, in the record: 203"},
        {"type corrupted to 05", hexRecord(0x05, 0x40, bytes), "start address record without 4 data bytes"},
        {"end of file with a wrong sum", hexRecord(0x01, 0, "", "\n", 1), "checksum computed: 255, in the record: 0"},
        {"no colon", good.mid(1), "a record without its ':'"},
        {"no colon, text after it", sixteen.mid(1) + " ; note\n", "a record without its ':'"},
        {"no colon, with blanks", "  " + sixteen.mid(1) + " \n", "a record without its ':'"},
        {"blank before the colon", " " + good, "something before the ':' of a record"},
        {"blank before a record cut short", "\t:0200\n", "something before the ':' of a record"},
        {"byte-order mark", "\xEF\xBB\xBF" + good, "something before the ':' of a record"},
        {"byte-order mark before a record cut short", "\xEF\xBB\xBF:0200\n", "something before the ':' of a record"},
        {"text before the colon", "x" + good, "something before the ':' of a record"},
        {"NUL bytes", QByteArray(":\0000\0", 5) + "\n", "NUL byte"},
        {"NUL byte after a record", sixteen + QByteArray(1, '\0') + "\n", "NUL byte"},
        {"wrong sum", hexRecord(0x00, 0x40, "\x01", "\r\n", 1), "checksum computed: 190, in the record: 191"},
        {"wrong sum of no bytes", hexRecord(0x00, 0x40, "", "\n", 1), "checksum computed: 192, in the record: 193"},
        {"letter in the data", QByteArray(good).replace(12, 1, "G"), "not a hexadecimal digit"},
        {"letter in the count", QByteArray(good).replace(2, 1, "G"), "not a hexadecimal digit"},
        {"cut in the sum", good.left(42) + "\n", "shorter than its data byte count"},
        {"cut in the data", good.left(20) + "\n", "shorter than its data byte count"},
        {"cut in the address", good.left(6) + "\n", "shorter than any record"},
        {"101 bytes", hexRecord(0x00, 0x40, QByteArray(101, 'x')), "more than 100 data bytes"},
        {"unknown type", hexRecord(0x06, 0x40, bytes), "unknown record type"},
        {"address of one byte", hexRecord(0x04, 0, "\x30"), "extended address record without 2 data bytes"},
        {"segment of no bytes", hexRecord(0x02, 0, ""), "extended address record without 2 data bytes"},
        {"line too long", sixteen + QByteArray(1000, ' ') + "\n", "longer than any record"},
    };
    const QByteArray before(0x10000, '\x55');
    VirtualBoards::installed().pic(1).memory().programMemory() = before;
    QByteArray lines;
    Files files;
    QStringList messages;
    QStringList reasons;
    for (const Case &row : cases) {
        const QString path = QString("/%1").arg(row.name).replace(' ', '_');
        lines += "PIC1:" + path.toLatin1() + "\n";
        files << qMakePair(path.mid(1),
                           hexRecord(0x00, 0, "first ..") + row.lines + hexRecord(0x00, 0x100, "last ..."));
        messages << "Updating PIC 1 with file: " + path << "red: Failed - Updating PIC[1] with file " + path;
        reasons << QString("hex file rejected at line 2: ") + row.reason;
    }
    Panel panel;
    const DebugLines debug;
    QCOMPARE(update(&panel, lines, files), messages);
    QCOMPARE(DebugLines::take().filter("hex file rejected"), reasons);
    QVERIFY(programMemory(1) == before);
    QCOMPARE(VirtualBoards::installed().now(), 0LL);
}

void PicUpdateTest::linesThatAreAllowedStopNoPic_data()
{
    QTest::addColumn<QByteArray>("lineEnd");
    addRow("LF", QByteArray("\n"));
    addRow("CR LF", QByteArray("\r\n"));
}

void PicUpdateTest::linesThatAreAllowedStopNoPic()
{
    QFETCH(QByteArray, lineEnd);
    const auto record = [](unsigned int number) {
        return hexRecord(0x00, 0x40 * number, "0123456789abcdef", "");
    };
    const QList<QByteArray> lines = {
        "\xEF\xBB\xBF;added",
        "",
        "   ",
        "\t",
        "; built 12:30:00",
        ";added",
        "2014",
        "# 10",
        "; CRC:1A2B3C4D",
        hexRecord(0x00, 0, "first ..", ""),
        record(1),
        ";" + record(2).mid(1),
        record(3) + " ; start 12:30",
        record(4) + "  \t",
        record(5) + "\x1A",
        record(6).toLower(),
        hexRecord(0x00, 0x40, "", ""),
        hexRecord(0x03, 0, "\1\2\3\4", ""),
        hexRecord(0x05, 0, "\1\2\3\4", ""),
        hexRecord(0x01, 0, "", ""),
        hexRecord(0x00, 0x200, "last ...", ""),
        "\x1A",
    };
    VirtualBoards::installed().pic(1).memory().programMemory().fill('\x55');
    Panel panel;
    const DebugLines debug;
    const QStringList messages = update(&panel, "PIC1:/pic.hex\n", {{"pic.hex", lines.join(lineEnd)}});
    QCOMPARE(DebugLines::take().filter("hex file"), QStringList());
    QCOMPARE(messages.last(), QString("orange: 100%"));
    QByteArray expected(0x10000, '\xFF');
    expected.replace(0, 8, "first ..").replace(0x200, 8, "last ...");
    for (int number = 1; number <= 6; ++number)
        expected.replace(0x40 * number, 16, "0123456789abcdef");
    QVERIFY(programMemory(1) == expected);
}

void PicUpdateTest::fileWithoutAByteForThePicIsRejected_data()
{
    QTest::addColumn<QByteArray>("content");
    addRow("empty", QByteArray());
    addRow("text", QByteArray("<html>\nnot found\n"));
    addRow("end of file", hexRecord(0x01, 0, ""));
    addRow("EEPROM only", hexRecord(0x04, 0, QByteArray("\x00\xF0", 2)) + hexRecord(0x00, 0, "0123"));
    addRow("record of no bytes", hexRecord(0x00, 0, ""));
}

void PicUpdateTest::fileWithoutAByteForThePicIsRejected()
{
    QFETCH(QByteArray, content);
    Panel panel;
    const DebugLines debug;
    QCOMPARE(update(&panel, "PIC1:/pic.hex\n", {{"pic.hex", content}}).last(),
             QString("red: Failed - Updating PIC[1] with file /pic.hex"));
    QCOMPARE(DebugLines::take().filter("hex file rejected"),
             QStringList("hex file rejected: no byte for a PIC in \"/tmp/firmware_update/pic.hex\""));
    QCOMPARE(VirtualBoards::installed().now(), 0LL);
}

void PicUpdateTest::eraseFailureIsShownAndTheNextLineGoesOn()
{
    VirtualBoards::installed().pic(1).memory().breakErase(0x10, 0x01);
    Panel panel;
    QCOMPARE(update(&panel, "PIC1:/pic.hex\nPIC2:/pic.hex\n", {{"pic.hex", hexFile('a')}}).mid(0, 5),
             QStringList({"Updating PIC 1 with file: /pic.hex", "Erasing PIC:", "orange: 0%", "red: PIC Erase Error",
                          "red: Failed - Updating PIC[1] with file /pic.hex"}));
    QVERIFY(!programMemory(1).startsWith(programOf('a')));
    QVERIFY(programMemory(2).startsWith(programOf('a')));
}

void PicUpdateTest::verifyFailureFailsTheLine()
{
    VirtualBoards::installed().pic(4).memory().flipOnWrite(200 * 16, 0x01);
    Panel panel;
    const QStringList messages = update(&panel, "PIC4:/pic.hex\n", {{"pic.hex", hexFile('a')}});
    QCOMPARE(messages.last(), QString("red: Failed - Updating PIC[4] with file /pic.hex"));
    QCOMPARE(messages.at(messages.size() - 2), QString("orange: 49%"));
    QVERIFY2(programMemory(4).mid(201 * 16) == QByteArray(96 * 1024 - 201 * 16, '\xFF'),
             "records after it are written");
}

QTEST_MAIN(PicUpdateTest)

#include "PicUpdateTest.moc"
