#include <QtTest>
#include <tuple>

#include "tests/DebugLines.h"
#include "tests/Instrument.h"
#include "tests/PicFixture.h"
#include "tests/Rows.h"

using namespace simulator;

namespace {

const char endOfFile[] = ":00000001FF\r\n";

QByteArray erasedMemory(int size = 0x10000)
{
    return QByteArray(size, '\xFF');
}

QByteArray sequence(int size, int first = 1)
{
    QByteArray bytes;
    for (int i = 0; i < size; ++i)
        bytes.append(static_cast<char>(first + i));
    return bytes;
}

QByteArray linearAddress(int upper)
{
    return hexRecord(4, 0, QByteArray(1, static_cast<char>(upper >> 8)) + static_cast<char>(upper));
}

bool run(const QStringList &command)
{
    return QProcess::execute(command.first(), command.mid(1)) == 0;
}

const QByteArray delivered("\x00\x07\x1F\x1F\x00\x83\x85\x00\x0F\xC0\x0F\xE0\x0F\x40\x00\x00", 16); ///< configuration

} // namespace

/// The HEX driver with valid, unusual and corrupt files.
class PicHexTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<DebugLines> m_Lines;

private slots:
    void init() { m_Lines = std::make_unique<DebugLines>(); }
    void cleanup() { m_Lines.reset(); }
    void assembledFileIsProgrammedExactly();
    void recordsAreAlignedAndSplit();
    void recordsGoWhereTheirAddressBelongs();
    void percentagesFollowTheBytes();
    void verifyFailureStopsTheRun();
    void rejectedLineStopsTheRunBeforeItIsWritten();
    void filesThatCannotBeReadEndTheRun();
    void filesWithoutRecordsEndTheRun();
};

// objcopy is the independent reader of the file. The 4680 has a larger boot block; the 4682 and the 4685 have more
// memory than is written.
void PicHexTest::assembledFileIsProgrammedExactly()
{
    for (const Pic18Device *const device : VirtualBoards::deliveredDevices) {
        const RowName row{device->name};
        const QString processor = QString(device->name).mid(3).toLower();
        const QString source = SAMPLE_FOLDER "/pic.asm";
        QStringList assemble = {"gpasm", "--quiet", "-p", processor, "-o", "/tmp/asm.hex", source};
        if (device->programSize > 0x10000)
            assemble << "--dos"; // CR LF line ends
        QVERIFY(run(assemble));
        QVERIFY(run({"objcopy", "-I", "ihex", "-O", "binary", "--gap-fill", "0xff", "/tmp/asm.hex", "/tmp/asm.bin"}));
        const QByteArray content = Instrument::contentOf("/tmp/asm.bin");
        QCOMPARE(content.size(), 0x30000E);

        PicFixture fixture(3, *device);
        fixture.memory().programMemory().fill('\0');
        QVERIFY(fixture.eraseAll());
        QVERIFY(fixture.program(Instrument::contentOf("/tmp/asm.hex")));
        QVERIFY(fixture.memory().programMemory().bytes().left(0x10000) == content.left(0x10000));
        for (const unsigned int index : {1U, 2U, 3U, 5U, 6U, 8U, 9U, 10U, 11U, 12U, 13U})
            QCOMPARE(static_cast<int>(fixture.memory().configuration()[index]),
                     content.at(0x300000 + static_cast<int>(index)) & device->configurationMask[index]);
        QVERIFY(fixture.target().isInProgrammingMode());
        QCOMPARE(fixture.boards().violations(), QStringList());
        QCOMPARE(DebugLines::take(), QStringList());
    }
}

void PicHexTest::recordsAreAlignedAndSplit()
{
    const std::tuple<const char *, int, int> rows[] = {{"even", 0x100, 16},
                                                       {"over a row bound", 0x38, 16},
                                                       {"odd start", 0x101, 3},
                                                       {"odd end", 0x100, 3},
                                                       {"odd both", 0x13F, 2},
                                                       {"one odd byte", 0x141, 1},
                                                       {"odd start, over two bounds", 0x17F, 100},
                                                       {"up to the last address", 0xFFF0, 14}};
    for (const auto &[name, address, length] : rows) {
        const RowName row{name};
        PicFixture fixture;
        QByteArray expected = erasedMemory();
        expected[0] = '\0';              // where the table pointer stands after a reset
        expected[address & ~1] = '\x80'; // what the neighbours hold must stay
        expected[(address + length) | 1] = '\x7F';
        fixture.memory().programMemory() = QByteArray(expected).replace(address, length, erasedMemory(length));
        expected.replace(address, length, sequence(length));
        QVERIFY(fixture.program(hexRecord(0, static_cast<unsigned int>(address), sequence(length)) + endOfFile));
        QVERIFY(fixture.memory().programMemory().bytes() == expected);
        QCOMPARE(fixture.boards().violations(), QStringList());
    }
}

void PicHexTest::recordsGoWhereTheirAddressBelongs()
{
    struct Row
    {
        const char *name;
        QByteArray file;
        QByteArray program = erasedMemory(2); ///< at 0x1000
        QByteArray configuration = delivered;
    };
    const QByteArray two("\x12\x34");
    const QByteArray many = sequence(16, 0x41);
    const Row rows[] = {
        {"program", hexRecord(0, 0x1000, two), two},
        {"lower case", hexRecord(0, 0x1000, "\xAB\xCD").toLower(), "\xAB\xCD"},
        {"segment address", hexRecord(2, 0, QByteArray("\x00\x80", 2)) + hexRecord(0, 0x0800, two), two},
        {"after the end of file", endOfFile + hexRecord(0, 0x1000, two), two},
        {"last bytes of 64 KiB", hexRecord(0, 0xFFF0, many)},
        {"above 64 KiB", linearAddress(1) + hexRecord(0, 0x1000, many)},
        {"user id", linearAddress(0x20) + hexRecord(0, 0, many)},
        {"EEPROM", linearAddress(0xF0) + hexRecord(0, 0, many)},
        {"end of the address range", linearAddress(0xFFFF) + hexRecord(0, 0xFFFF, many)},
        {"start addresses", hexRecord(3, 0x1000, "\x01\x02\x03\x04") + hexRecord(5, 0x1000, "\x01\x02\x03\x04")},
        {"record at 0x30000D", linearAddress(0x30) + hexRecord(0, 0x0D, "\x01")},
        {"configuration", linearAddress(0x30) + hexRecord(0, 1, "\x02\x1E"), erasedMemory(2),
         QByteArray(delivered).replace(1, 2, "\x02\x1E")},
        {"configuration up to 0x30000D", linearAddress(0x30) + hexRecord(0, 0x0C, QByteArray("\x0E\x00\x55\x55", 4)),
         erasedMemory(2), QByteArray(delivered).replace(12, 2, QByteArray("\x0E\x00", 2))},
    };
    for (const Row &row : rows) {
        const RowName name{row.name};
        PicFixture fixture;
        QVERIFY(fixture.program(row.file));
        QVERIFY(fixture.memory().programMemory().bytes() == erasedMemory().replace(0x1000, 2, row.program));
        QVERIFY(fixture.memory().eeprom().bytes() == erasedMemory(1024));
        QCOMPARE(fixture.memory().configuration().bytes(), row.configuration);
        QCOMPARE(fixture.boards().violations(), QStringList());
    }
}

void PicHexTest::percentagesFollowTheBytes()
{
    const auto percentages = [](const QByteArray &file) {
        PicFixture fixture;
        QSignalSpy progress(&fixture.programmer(), SIGNAL(lineProgrammed(int)));
        QList<int> result;
        if (fixture.program(file)) {
            for (const QList<QVariant> &arguments : progress)
                result << arguments.at(0).toInt();
        }
        return result;
    };
    QByteArray windows;
    for (unsigned int line = 0; line < 200; ++line)
        windows += hexRecord(0, 16 * line, sequence(16)); // 45 characters
    QList<int> all;
    for (int percent = 1; percent <= 100; ++percent)
        all << percent;
    QCOMPARE(percentages(windows), all);
    const QList<int> clamped = percentages(QByteArray(windows).replace('\r', ""));
    QCOMPARE(clamped.last(), 100);
    QVERIFY(std::is_sorted(clamped.begin(), clamped.end()));
    QCOMPARE(clamped.toSet().size(), clamped.size());
    QCOMPARE(percentages(hexRecord(0, 0, sequence(16)) + QByteArray(955, ' ')), QList<int>({4, 100}));
}

void PicHexTest::verifyFailureStopsTheRun()
{
    const std::tuple<const char *, unsigned int, unsigned char, unsigned char, const char *> rows[] = {
        {"byte stays erased", 0x40, 0xFF, 0xDE, "u32VerifyAddress: 64 u8VerifyCorrect: 33 u8VerifyActual 255"},
        {"bit flips", 0x43, 0xFF, 0x10, "u32VerifyAddress: 67 u8VerifyCorrect: 36 u8VerifyActual 52"},
        {"bit was not erased", 0x43, 0xFB, 0x00, "u32VerifyAddress: 67 u8VerifyCorrect: 36 u8VerifyActual 32"},
    };
    for (const auto &[name, address, before, flipped, report] : rows) {
        const RowName row{name};
        PicFixture fixture;
        fixture.memory().programMemory()[address] = before;
        fixture.memory().flipOnWrite(address, flipped); // bits that come out inverted
        QVERIFY(!fixture.program(hexRecord(0, 0, sequence(16)) + hexRecord(0, 0x40, "\x21\x22\x23\x24") +
                                 hexRecord(0, 0x80, sequence(16))));
        QVERIFY(fixture.programmer().isFinished());
        QCOMPARE(fixture.memory().programMemory().bytes().mid(0x80, 16), erasedMemory(16));
        QCOMPARE(DebugLines::take(), QStringList({report, "u8PicWriteRecord error", "\":040040002122232432\\n\"",
                                                  "Flash_Data_Len: 4", "Flash_Address: 64"}));
    }
}

void PicHexTest::rejectedLineStopsTheRunBeforeItIsWritten()
{
    PicFixture fixture;
    QVERIFY(!fixture.program(hexRecord(0, 0, "\x01\x02") + hexRecord(0, 0x40, "\x01", "\r\n", 1) +
                             hexRecord(0, 0x80, "\x01\x02")));
    QVERIFY(fixture.programmer().isFinished());
    QCOMPARE(DebugLines::take(),
             QStringList("hex file rejected at line 2: checksum computed: 190, in the record: 191"));
    // The current record is still the one before.
    QCOMPARE(fixture.programmer().u8PicWriteRecord(), static_cast<unsigned char>(0));
    QVERIFY(fixture.memory().programMemory().bytes() == erasedMemory().replace(0, 2, "\x01\x02"));
}

void PicHexTest::filesThatCannotBeReadEndTheRun()
{
    const QPair<QString, QString> rows[] = {
        {"/tmp/missing.hex", "Failed to open hex file: \"/tmp/missing.hex\""},
        {"/tmp", "Failed to open hex file: \"/tmp\""},
        {Instrument::unreadableFile(), "hex file rejected at line 1: cannot be read"}};
    for (const auto &[path, report] : rows) {
        PicFixture fixture;
        fixture.programmer().programPic(path);
        QVERIFY(fixture.programmer().isFinished() && !fixture.programmer().isProgrammed());
        QCOMPARE(DebugLines::take(), QStringList(report));
    }
}

void PicHexTest::filesWithoutRecordsEndTheRun()
{
    const QByteArray files[] = {QByteArray(10000000, '\0'), QByteArray(10000000, ':'), QByteArray(1000000, '\n'),
                                QByteArray("no hex\r").repeated(1000000),
                                QByteArray("lines of words that are no records\n").repeated(30000)};
    for (const QByteArray &file : files) {
        PicFixture fixture;
        fixture.program(file);
        QVERIFY(fixture.programmer().isFinished());
        QVERIFY(fixture.memory().programMemory().bytes() == erasedMemory());
    }
}

QTEST_GUILESS_MAIN(PicHexTest)
#include "PicHexTest.moc"
