#include <QtTest>
#include <functional>
#include <tuple>
#include <utility>

#include "pic/MemoryMappedPinController.h"
#include "pic/PicProgrammer.h"
#include "tests/EventLoop.h"
#include "tests/Rows.h"

// This test has pins and delays of its own: a logic analyser that writes down every change in order.

namespace {

QStringList traffic; ///< changed lines ("PGC=1", "PGD:in"), samples ("PGD:read") and the names of waits
QString inputBits;   ///< what PGD reads, in order

/// The traffic since the last call.
QString takeTraffic()
{
    return std::exchange(traffic, {}).join(' ');
}

QString lineName(unsigned int offset, unsigned int mask)
{
    static const QHash<QPair<unsigned int, unsigned int>, QString> names = {
        {{0x740, 0x4000}, "PGC"},    {{0x740, 0x8000}, "PGD"},     {{0x700, 0x20000}, "ISP"},
        {{0x740, 0x400}, "MCLR1"},   {{0x720, 0x200000}, "MCLR2"}, {{0x720, 0x8000}, "MCLR3"},
        {{0x720, 0x20000}, "MCLR4"},
    };
    return names.value({offset, mask}, "unknown");
}

/// The traffic since the last call, a 4-bit command and its 16 bits at a time. The bits of a command or operand are
/// those of PGD at the falling edges of PGC; "read" is the half of an operand that the target sends. The waits stand
/// where they came, but for those of each clock, command and operand. P9 is before the last clock of its command.
QString takeSequence()
{
    static const QStringList longWaits = {"P9", "P10", "P11", "ENTRY", "RESET", "SETUP"};
    QStringList words;
    bool clock = false;
    bool data = false;
    bool targetSends = false;
    int bits = 0;
    unsigned int value = 0;
    for (const QString &event : takeTraffic().split(' ')) {
        if (longWaits.contains(event) || (event == "COMMAND" && bits == 0))
            words << event;
        else if (event.startsWith("PGD="))
            data = event == "PGD=1";
        else if (event == "PGD:in" || event == "PGD:out")
            targetSends = event == "PGD:in";
        if (clock && event == "PGC=0") {
            value |= (data ? 1U : 0U) << bits++;
            if (bits == 4) {
                words << QString::asprintf("%X", value);
            } else if (bits == 20) {
                words << (targetSends ? "read" : QString::asprintf("%04X", value >> 4));
                bits = 0;
                value = 0;
            }
        }
        if (event.startsWith("PGC="))
            clock = event == "PGC=1";
    }
    return words.join(' ') + (bits == 0 ? "" : " cut short");
}

/// The load of the target's table pointer.
QString pointer(unsigned int address)
{
    return QString::asprintf("0 0E%02X 0 6EF8 0 0E%02X 0 6EF7 0 0E%02X 0 6EF6 ", address >> 16, address >> 8 & 0xFF,
                             address & 0xFF);
}

} // namespace

MemoryMappedPinController::MemoryMappedPinController(unsigned int physicalBase) : m_MemoryMap(nullptr)
{
    Q_UNUSED(m_MemoryMap) // there is no memory to map
    traffic << QString::number(physicalBase, 16);
}

MemoryMappedPinController::~MemoryMappedPinController() {}

void MemoryMappedPinController::setDirection(unsigned int offset, unsigned int mask, PIN_DIRECTION direction)
{
    traffic << lineName(offset - 0x400, mask) + (direction == PIN_OUTPUT ? ":out" : ":in");
}

void MemoryMappedPinController::setValue(unsigned int offset, unsigned int mask, unsigned char value)
{
    traffic << lineName(offset, mask) + "=" + QString::number(value);
}

bool MemoryMappedPinController::getValue(unsigned int offset, unsigned int mask)
{
    traffic << lineName(offset - 0x200, mask) + ":read";
    const bool level = inputBits.startsWith('1');
    inputBits.remove(0, 1);
    return level;
}

void waitFor(PIC_DELAY delay)
{
    static const QMap<PIC_DELAY, QString> names = {
        {DELAY_CLOCK, "CLOCK"}, {DELAY_COMMAND, "COMMAND"}, {DELAY_OPERAND, "OPERAND"}, {DELAY_P9, "P9"},
        {DELAY_P10, "P10"},     {DELAY_P11, "P11"},         {DELAY_ENTRY, "ENTRY"},     {DELAY_RESET, "RESET"},
        {DELAY_SETUP, "SETUP"}, {DELAY_RELEASE, "RELEASE"}, {DELAY_PULSE, "PULSE"}};
    traffic << names.value(delay, "unknown");
}

/// The order of every change on the programming lines.
class PicLinkTest : public QObject
{
    Q_OBJECT

private slots:
    void bitsAreStableAcrossTheFallingEdge();
    void byteIsSampledAfterTheFallingEdge();
    void operationsSendTheirSequences();
    void entryAndRestoreDriveOnlyTheSelectedReset();
    void resetTimerReleasesThePicOnce();
    void deviceIdsHaveNames();
};

void PicLinkTest::bitsAreStableAcrossTheFallingEdge()
{
    const QString clock = " PGC=1 CLOCK PGC=0 CLOCK";
    PicProgrammer programmer(1, nullptr);
    traffic.clear();
    programmer.vWriteCmd(0x9);
    QCOMPARE(takeTraffic(), "PGD=0 PGC=0 PGD=1" + clock + " PGD=0" + clock + " PGD=0" + clock + " PGD=1" + clock +
                                " PGD=0 PGC=0 COMMAND");
    programmer.vWriteByte(0xFF);
    QCOMPARE(takeTraffic(), "PGD=0 PGC=0 CLOCK" + (" PGD=1" + clock).repeated(8) + " PGC=0 PGD=0 OPERAND");
    programmer.vProgramFlashCmd(); // holds its fourth clock
    QCOMPARE(takeTraffic(), "PGC=0 PGD=0 CLOCK" + clock.repeated(3) + " PGC=1 P9 PGC=0 P10 PGC=0 PGD=0");
}

void PicLinkTest::byteIsSampledAfterTheFallingEdge()
{
    PicProgrammer programmer(1, nullptr);
    const QPair<QString, int> samples[] = {{"10000000", 0x01}, {"00000001", 0x80}, {"01101001", 0x96}};
    for (const auto &[bits, value] : samples) {
        inputBits = bits;
        traffic.clear();
        QCOMPARE(static_cast<int>(programmer.u8ReadByte()), value);
        QCOMPARE(takeTraffic(),
                 "PGC=0 PGD:in" + QString(" PGC=1 CLOCK PGC=0 CLOCK PGD:read").repeated(8) + " PGC=0 PGD=0 PGD:out");
    }
}

// The target reads the last command of a write as the operand of the programming NOP; the rest begins the next command.
void PicLinkTest::operationsSendTheirSequences()
{
    unsigned char data[] = {0x11, 0x22, 0x33, 0x44};
    const QString entry = "RESET SETUP ENTRY ";
    const QString programming = "P9 0 P10 0000 0 P10 cut short";
    const QString eepromAddress = "0 9EA6 0 9CA6 0 0EC5 0 6EA9 0 0E03 0 6EAA ";
    const QString latch = "0 6EF5 0 0000 2 read";
    QString rowErase = entry;
    for (const unsigned int row : {0x3F80U, 0x3FC0U, 0x4000U, 0x4040U, 0x4080U, 0x40C0U, 0x4100U, 0x4140U})
        rowErase += "0 8EA6 0 9CA6 0 84A6 " + pointer(row) + "0 88A6 0 82A6 P9 0 P10 0000 ";
    const std::tuple<const char *, std::function<void(PicProgrammer &)>, QString> rows[] = {
        {"command", [](PicProgrammer &pic) { pic.vWriteCmd(0xFD); }, "D cut short"},
        {"table pointer", [](PicProgrammer &pic) { pic.vSetCoreAddress(0x3CA605); },
         "0 0E3C 0 6EF8 0 0EA6 0 6EF7 0 0E05 0 6EF6"},
        {"table read", [](PicProgrammer &pic) { pic.u8ReadNextAddress(); }, "9 read"},
        {"bulk erase", [](PicProgrammer &pic) { pic.vPicBulkErase(0x08, 0x80); },
         pointer(0x3C0005) + "C 0808 " + pointer(0x3C0004) + "C 8080 0 0000 0 P11 P11 P11 P10 0000"},
        {"row write", [&](PicProgrammer &pic) { pic.vProgramPicFlash(0x1F8, 4, data); },
         entry + "0 8EA6 0 9CA6 " + pointer(0x1F8) + "D 2211 COMMAND F 4433 " + programming},
        {"write of a pair", [&](PicProgrammer &pic) { pic.vProgramPicFlash(0x1FE, 2, data); },
         entry + "0 8EA6 0 9CA6 " + pointer(0x1FE) + "F 2211 " + programming},
        {"write of half a pair", [&](PicProgrammer &pic) { pic.vProgramPicFlash(0x1FE, 1, data); }, entry.trimmed()},
        {"write of no byte", [&](PicProgrammer &pic) { pic.vProgramPicFlash(0x1FE, 0, data); }, entry.trimmed()},
        {"verify of an empty record", [](PicProgrammer &pic) { pic.u8VerifyPicRecord(); },
         entry + pointer(0).trimmed()},
        {"configuration write", [](PicProgrammer &pic) { pic.vProgramPicConfig(0x300006, 0x81); },
         entry + "0 8EA6 0 8CA6 " + pointer(0x300006) + "F 8181 " + programming},
        {"row erase", [](PicProgrammer &pic) { pic.vEraseProgramMemory(0x3F80); }, rowErase + "0 0000"},
        {"EEPROM read", [](PicProgrammer &pic) { pic.u8ReadPicEeprom(0x3C5); },
         entry + eepromAddress + "0 80A6 0 50A8 " + latch},
        {"EEPROM write", [](PicProgrammer &pic) { pic.vWritePicEeprom(0x3C5, 0x5A); },
         entry + eepromAddress + "0 0E5A 0 6EA8 0 84A6 0 82A6 0 50A6 " + latch + " P10"},
    };
    PicProgrammer programmer(1, nullptr);
    inputBits.clear();
    for (const auto &[name, operate, sequence] : rows) {
        const RowName row{name};
        traffic.clear();
        operate(programmer);
        QCOMPARE(takeSequence(), sequence);
    }
}

void PicLinkTest::entryAndRestoreDriveOnlyTheSelectedReset()
{
    const QString restore = "80018000 MCLR=1 ISP=1 PGD=0 PGC=0 RELEASE MCLR=0 PULSE MCLR=1 MCLR:in";
    const QString entry = "MCLR=1 MCLR:out MCLR=0 PGD=0 PGC=0 ISP:out PGD:out PGC:out RESET ISP=1 SETUP MCLR=1 ENTRY";
    for (const int number : {-1, 0, 1, 2, 3, 4, 5}) {
        const RowName row{QString("PIC %1").arg(number)};
        const auto expected = [number](QString events) {
            if (number >= 1 && number <= 4)
                return events.replace("MCLR", QString("MCLR%1").arg(number));
            return events.remove(QRegExp("MCLR\\S+ ?")).trimmed();
        };
        traffic.clear();
        PicProgrammer programmer(number, nullptr);
        QCOMPARE(takeTraffic(), expected(restore));
        programmer.vEnterIspMode();
        QCOMPARE(takeTraffic(), expected(entry));
    }
}

void PicLinkTest::resetTimerReleasesThePicOnce()
{
    PicProgrammer programmer(2, nullptr);
    traffic.clear();
    programmer.ev_pic_reset(false);
    QTest::qWait(50); // more than twice the time of the timer, which was not started
    QCOMPARE(takeTraffic(), QString("MCLR2=1 MCLR2:out MCLR2=0"));
    for (int pulse = 0; pulse < 5; ++pulse) { // a busy machine may lengthen one that is too short, but not all
        QElapsedTimer inReset;
        inReset.start();
        programmer.ev_pic_reset(true);
        traffic.clear();
        QVERIFY(eventually([] { return !traffic.isEmpty(); }));
        QVERIFY(inReset.elapsed() >= 19);
    }
    QTest::qWait(50);
    QCOMPARE(traffic.count("MCLR2:in"), 1);
    QVERIFY(QMetaObject::invokeMethod(&programmer, "endIsp"));
    QCOMPARE(traffic.count("MCLR2:in"), 2);
}

void PicLinkTest::deviceIdsHaveNames()
{
    const QPair<unsigned short, QString> names[] = {
        {0x0C07, "PIC18F4620 version 7"}, {0x0E9F, "PIC18F4680 version 31"}, {0x2740, "PIC18F4682 version 0"},
        {0x2761, "PIC18F4685 version 1"}, {0x1234, "Unknown PIC: 4660"},     {0x0C1F, "PIC18F4620 version 31"}};
    for (const auto &[id, name] : names) {
        QCOMPARE(*PicProgrammer::pGetPicIdStr(id), name);
        QCOMPARE(PicProgrammer::u8ValidPicId(id) != 0, name.startsWith("PIC18F4620"));
    }
}

QTEST_GUILESS_MAIN(PicLinkTest)
#include "PicLinkTest.moc"
