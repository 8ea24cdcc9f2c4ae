#include <QtTest>

#include "tests/DebugLines.h"
#include "tests/Instrument.h"
#include "tests/PicFixture.h"
#include "tests/Rows.h"

using namespace simulator;

Q_DECLARE_METATYPE(const Pic18Device *)

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

} // namespace

/// The HEX driver with valid, unusual and corrupt files.
class PicHexTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<DebugLines> m_Lines;

private slots:
    void init() { m_Lines = std::make_unique<DebugLines>(); }
    void cleanup() { m_Lines.reset(); }
    void assembledFileIsProgrammedExactly_data();
    void assembledFileIsProgrammedExactly();
    void recordsAreAlignedAndSplit_data();
    void recordsAreAlignedAndSplit();
    void recordsGoWhereTheirAddressBelongs_data();
    void recordsGoWhereTheirAddressBelongs();
    void percentagesFollowTheBytes();
    void verifyFailureStopsTheRun_data();
    void verifyFailureStopsTheRun();
    void rejectedLineStopsTheRunBeforeItIsWritten_data();
    void rejectedLineStopsTheRunBeforeItIsWritten();
    void filesThatCannotBeReadEndTheRun();
    void filesWithoutRecordsEndTheRun();
};

void PicHexTest::assembledFileIsProgrammedExactly_data()
{
    QTest::addColumn<const Pic18Device *>("device");
    QTest::addColumn<QString>("lineEnds");
    addRow("LF", &Pic18Device::pic18f4620, "");
    addRow("LF, boot block of the larger kind", &Pic18Device::pic18f4680, "");
    addRow("CR LF", &Pic18Device::pic18f4682, "--dos");
    addRow("CR LF, more memory than is written", &Pic18Device::pic18f4685, "--dos");
}

// objcopy is the independent reader of the file.
void PicHexTest::assembledFileIsProgrammedExactly()
{
    QFETCH(const Pic18Device *, device);
    QFETCH(QString, lineEnds);
    QStringList assemble = {"gpasm", "--quiet", "-p", QString(device->name).mid(3).toLower(), "-o", "/tmp/asm.hex"};
    if (!lineEnds.isEmpty())
        assemble << lineEnds;
    QVERIFY(run(assemble << QString(SAMPLE_FOLDER) + "/pic.asm"));
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

void PicHexTest::recordsAreAlignedAndSplit_data()
{
    QTest::addColumn<int>("address");
    QTest::addColumn<int>("length");
    addRow("even", 0x100, 16);
    addRow("over a row bound", 0x38, 16);
    addRow("odd start", 0x101, 3);
    addRow("odd end", 0x100, 3);
    addRow("odd both", 0x13F, 2);
    addRow("one odd byte", 0x141, 1);
    addRow("100 bytes from an odd address over two bounds", 0x17F, 100);
    addRow("up to the last address", 0xFFF0, 14);
}

void PicHexTest::recordsAreAlignedAndSplit()
{
    QFETCH(int, address);
    QFETCH(int, length);
    PicFixture fixture;
    QByteArray expected = erasedMemory();
    expected[0] = '\0';              // where the table pointer stands after a reset
    expected[address & ~1] = '\x80'; // what the neighbours hold must stay
    expected[(address + length) | 1] = '\x7F';
    fixture.memory().programMemory() = QByteArray(expected).replace(address, length, QByteArray(length, '\xFF'));
    expected.replace(address, length, sequence(length));
    QVERIFY(fixture.program(hexRecord(0, static_cast<unsigned int>(address), sequence(length)) + endOfFile));
    QVERIFY(fixture.memory().programMemory().bytes() == expected);
    QCOMPARE(fixture.boards().violations(), QStringList());
}

void PicHexTest::recordsGoWhereTheirAddressBelongs_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QByteArray>("program"); ///< at 0x1000
    QTest::addColumn<QByteArray>("configuration");
    const QByteArray delivered("\x00\x07\x1F\x1F\x00\x83\x85\x00\x0F\xC0\x0F\xE0\x0F\x40\x00\x00", 16);
    const QByteArray none("\xFF\xFF");
    const QByteArray two("\x12\x34");
    const QByteArray many = sequence(16, 0x41);
    addRow("program", hexRecord(0, 0x1000, two), two, delivered);
    addRow("lower case", hexRecord(0, 0x1000, "\xAB\xCD").toLower(), QByteArray("\xAB\xCD"), delivered);
    addRow("segment address", hexRecord(2, 0, QByteArray("\x00\x80", 2)) + hexRecord(0, 0x0800, two), two, delivered);
    addRow("configuration", linearAddress(0x30) + hexRecord(0, 1, "\x02\x1E"), none,
           QByteArray("\x00\x02\x1E\x1F\x00\x83\x85\x00\x0F\xC0\x0F\xE0\x0F\x40\x00\x00", 16));
    addRow("configuration up to 0x30000D", linearAddress(0x30) + hexRecord(0, 0x0C, QByteArray("\x0E\x00\x55\x55", 4)),
           none, delivered.left(12) + QByteArray("\x0E\x00\x00\x00", 4));
    addRow("record at 0x30000D", linearAddress(0x30) + hexRecord(0, 0x0D, QByteArray(1, '\0')), none, delivered);
    addRow("last bytes of 64 KiB", hexRecord(0, 0xFFF0, many), none, delivered);
    addRow("above 64 KiB", linearAddress(1) + hexRecord(0, 0x1000, many), none, delivered);
    addRow("user id", linearAddress(0x20) + hexRecord(0, 0, many), none, delivered);
    addRow("EEPROM", linearAddress(0xF0) + hexRecord(0, 0, many), none, delivered);
    addRow("end of the address range", linearAddress(0xFFFF) + hexRecord(0, 0xFFFF, many), none, delivered);
    addRow("start addresses", hexRecord(3, 0x1000, "\x01\x02\x03\x04") + hexRecord(5, 0x1000, "\x01\x02\x03\x04"), none,
           delivered);
    addRow("after the end of file", endOfFile + hexRecord(0, 0x1000, two), two, delivered);
}

void PicHexTest::recordsGoWhereTheirAddressBelongs()
{
    QFETCH(QByteArray, file);
    QFETCH(QByteArray, program);
    QFETCH(QByteArray, configuration);
    PicFixture fixture;
    QVERIFY(fixture.program(file));
    QVERIFY(fixture.memory().programMemory().bytes() == erasedMemory().replace(0x1000, 2, program));
    QVERIFY(fixture.memory().eeprom().bytes() == erasedMemory(1024));
    QCOMPARE(fixture.memory().configuration().bytes(), configuration);
    QCOMPARE(fixture.boards().violations(), QStringList());
}

void PicHexTest::percentagesFollowTheBytes()
{
    const auto percentages = [](const QByteArray &file) {
        PicFixture fixture;
        QSignalSpy progress(&fixture.programmer(), SIGNAL(lineProgrammed(int)));
        if (!fixture.program(file))
            return QList<int>();
        QList<int> result;
        for (const QList<QVariant> &arguments : progress)
            result << arguments.at(0).toInt();
        return result;
    };
    QByteArray windows;
    QByteArray unixLike;
    for (unsigned int line = 0; line < 200; ++line) { // of 45 characters with CR LF
        windows += hexRecord(0, 16 * line, sequence(16));
        unixLike += hexRecord(0, 16 * line, sequence(16), "\n");
    }
    QList<int> all;
    for (int percent = 1; percent <= 100; ++percent)
        all << percent;
    QCOMPARE(percentages(windows), all);
    const QList<int> clamped = percentages(unixLike);
    QCOMPARE(clamped.last(), 100);
    QVERIFY(std::is_sorted(clamped.begin(), clamped.end()));
    QCOMPARE(clamped.toSet().size(), clamped.size());
    QCOMPARE(percentages(hexRecord(0, 0, sequence(16)) + QByteArray(955, ' ')), QList<int>({4, 100}));
}

void PicHexTest::verifyFailureStopsTheRun_data()
{
    QTest::addColumn<QString>("fault");
    QTest::addColumn<int>("actual");
    addRow("byte stays erased", "ignore", 0xFF);
    addRow("bit flips", "flip", 0x24 + 0x10);
    addRow("bit was not erased", "erase", 0x20);
}

void PicHexTest::verifyFailureStopsTheRun()
{
    QFETCH(QString, fault);
    QFETCH(int, actual);
    PicFixture fixture;
    Pic18Memory &memory = fixture.memory();
    if (fault == "ignore")
        memory.flipOnWrite(0x40, 0x21 ^ 0xFF);
    else if (fault == "flip")
        memory.flipOnWrite(0x43, 0x10);
    else
        memory.programMemory()[0x43] = 0xFB;
    const QByteArray third = hexRecord(0, 0x40, "\x21\x22\x23\x24");
    QVERIFY(!fixture.program(hexRecord(0, 0, sequence(16)) + hexRecord(0, 0x10, sequence(16)) + third +
                             hexRecord(0, 0x80, sequence(16))));
    QVERIFY(fixture.programmer().isFinished());
    QCOMPARE(memory.programMemory().bytes().mid(0x80, 16), erasedMemory(16));
    const QStringList lines = DebugLines::take();
    const bool firstByte = fault == "ignore";
    QCOMPARE(lines.value(0), QString("u32VerifyAddress: %1 u8VerifyCorrect: %2 u8VerifyActual %3")
                                 .arg(firstByte ? 0x40 : 0x43)
                                 .arg(firstByte ? 0x21 : 0x24)
                                 .arg(actual));
    QCOMPARE(lines.mid(1), QStringList({"u8PicWriteRecord error", "\"" + third.trimmed() + "\\n\"", "Flash_Data_Len: 4",
                                        "Flash_Address: 64"}));
}

void PicHexTest::rejectedLineStopsTheRunBeforeItIsWritten_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QString>("reason");
    const QByteArray good = hexRecord(0, 0x40, sequence(16));
    addRow("wrong sum", hexRecord(0, 0x40, "\x01", "\r\n", 1), "checksum computed: 190, in the record: 191");
    addRow("cut short", good.left(20) + "\n", "shorter than its data byte count");
    addRow("255 bytes", hexRecord(0, 0x40, sequence(255)), "more than 100 data bytes");
    addRow("unknown type", hexRecord(6, 0x40, sequence(16)), "unknown record type");
    addRow("two records", good.trimmed() + good, "a second record on the line");
}

void PicHexTest::rejectedLineStopsTheRunBeforeItIsWritten()
{
    QFETCH(QByteArray, line);
    QFETCH(QString, reason);
    PicFixture fixture;
    QVERIFY(!fixture.program(hexRecord(0, 0, "\x01\x02") + line + hexRecord(0, 0x80, "\x01\x02")));
    QVERIFY(fixture.programmer().isFinished());
    QVERIFY(fixture.memory().programMemory().bytes() == erasedMemory().replace(0, 2, "\x01\x02"));
    QCOMPARE(DebugLines::take(), QStringList("hex file rejected at line 2: " + reason));
    // The current record is still the one before.
    QCOMPARE(fixture.programmer().u8PicWriteRecord(), static_cast<unsigned char>(0));
    QVERIFY(fixture.memory().programMemory().bytes() == erasedMemory().replace(0, 2, "\x01\x02"));
}

void PicHexTest::filesThatCannotBeReadEndTheRun()
{
    for (const char *const path : {"/tmp/missing.hex", "/tmp"}) {
        PicFixture fixture;
        fixture.programmer().programPic(path);
        QVERIFY(fixture.programmer().isFinished() && !fixture.programmer().isProgrammed());
        QCOMPARE(DebugLines::take(), QStringList(QString("Failed to open hex file: \"%1\"").arg(path)));
    }
    PicFixture fixture;
    fixture.programmer().programPic(Instrument::unreadableFile());
    QVERIFY(fixture.programmer().isFinished() && !fixture.programmer().isProgrammed());
    QCOMPARE(DebugLines::take(), QStringList("hex file rejected at line 1: cannot be read"));
}

void PicHexTest::filesWithoutRecordsEndTheRun()
{
    for (const char *const piece : {"", ":", "no hex\r", "\n", "lines of words that are no records\n"}) {
        const qint64 size = QByteArray(piece).endsWith('\n') ? 1000000 : 10000000;
        QFile file("/tmp/text.hex");
        QVERIFY(file.open(QIODevice::WriteOnly));
        const QByteArray chunk = *piece ? QByteArray(piece).repeated(10000) : QByteArray();
        while (!chunk.isEmpty() && file.size() < size)
            file.write(chunk);
        file.resize(size); // the first is all zero bytes
        file.close();
        PicFixture fixture;
        fixture.programmer().programPic("/tmp/text.hex");
        QVERIFY(fixture.programmer().isFinished());
        QVERIFY(fixture.memory().programMemory().bytes() == erasedMemory());
    }
    QFile::remove("/tmp/text.hex");
}

QTEST_GUILESS_MAIN(PicHexTest)
#include "PicHexTest.moc"
