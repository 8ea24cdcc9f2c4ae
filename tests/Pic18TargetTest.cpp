#include <QtTest>

#include "simulator/models/pic/VirtualBoards.h"

using namespace simulator;

namespace {

using Word = unsigned int;

const Word setEepgd = 0x8EA6;
const Word clearEepgd = 0x9EA6;
const Word setCfgs = 0x8CA6;
const Word setWren = 0x84A6;
const Word setWr = 0x82A6;
const qint64 halfPeriod = 60;
const qint64 p9 = 1000000;
const qint64 p10 = 100000;
const qint64 p11 = 5000000;

/// A programmer of the test's own, after the chip's programming data sheet and with times as asked, on PIC 2.
class Wire
{
public:
    explicit Wire(const Pic18Device &device = Pic18Device::pic18f4620)
    {
        VirtualBoards::install({&device, &device, &device, &device});
        set(0xB40, 0xC400, true); // PGC, PGD and MCLR of PIC 1
        set(0xB20, 0x228000, true);
        set(0xB00, 0x20000, true);
        set(0x700, 0x20000, true);
    }

    VirtualBoards &boards() { return VirtualBoards::installed(); }
    Pic18Target &pic() { return boards().pic(2); }
    const QStringList &violations() { return boards().violations(); }

    void set(unsigned int offset, uint32_t mask, bool level)
    {
        const uint32_t word = boards().readRegister(offset);
        boards().writeRegister(offset, level ? word | mask : word & ~mask);
    }
    void wait(qint64 nanoseconds) { boards().wait(nanoseconds); }
    void mclr(bool level) { set(0x720, 0x200000, level); }
    void clock(bool level) { set(0x740, 0x4000, level); }
    void data(bool level) { set(0x740, 0x8000, level); }

    void enter()
    {
        data(false);
        clock(false);
        mclr(false);
        wait(5000);
        mclr(true);
        wait(5000);
    }
    void bits(Word value, int count, qint64 lastHigh = halfPeriod)
    {
        for (int bit = 0; bit < count; ++bit) {
            data(value >> bit & 1);
            clock(true);
            wait(bit == count - 1 ? lastHigh : halfPeriod);
            clock(false);
            wait(halfPeriod);
        }
        data(false);
    }
    void send(Word command, Word operand)
    {
        bits(command, 4);
        bits(operand, 16);
    }
    void core(Word instruction) { send(0, instruction); }
    unsigned char receive(Word command)
    {
        bits(command, 4);
        bits(0, 8);
        set(0xB40, 0x8000, false);
        unsigned char value = 0;
        for (int bit = 0; bit < 8; ++bit) {
            clock(true);
            wait(halfPeriod);
            clock(false);
            wait(halfPeriod);
            if (boards().readRegister(0x940) & 0x8000)
                value = static_cast<unsigned char>(value | 1U << bit);
        }
        set(0xB40, 0x8000, true);
        return value;
    }
    void point(unsigned int address)
    {
        for (Word byte = 0; byte < 3; ++byte) {
            core(0x0E00 | (address >> 8 * byte & 0xFF));
            core(0x6EF6 + byte);
        }
    }
    unsigned char read(unsigned int address)
    {
        point(address);
        return receive(0x8);
    }
    void hold(qint64 high = p9, qint64 low = p10)
    {
        bits(0, 4, high);
        wait(low);
        bits(0, 16);
    }
    void write(unsigned int address, Word word, qint64 high = p9, qint64 low = p10)
    {
        core(setEepgd);
        if (address >= 0x300000)
            core(setCfgs);
        point(address);
        send(0xF, word);
        hold(high, low);
    }
    void bulkErase(Word keys, qint64 time = p11 + p10)
    {
        point(0x3C0005);
        send(0xC, keys & 0xFF00);
        point(0x3C0004);
        send(0xC, keys & 0xFF);
        core(0);
        bits(0, 4);
        wait(time);
        bits(0, 16);
    }

private:
    Q_DISABLE_COPY(Wire)
};

/// What each violation says, and how it is provoked.
const QList<QPair<QString, std::function<void(Wire &)>>> offences = {
    {"unknown command 0x5",
     [](Wire &wire) {
         wire.bits(0x5, 4);
     }},
    {"unknown core instruction 0x1234",
     [](Wire &wire) {
         wire.core(0x1234);
     }},
    {"no bit can rise from 0 to 1 when 0x1 is written at 0x10",
     [](Wire &wire) {
         wire.write(0x10, 0xFF00);
         wire.write(0x10, 0xFF01);
     }},
    {"table pointer 0x10000",
     [](Wire &wire) {
         wire.write(0x10000, 0);
     }},
    {"EECON1 0x0",
     [](Wire &wire) {
         wire.send(0xF, 0);
     }},
    {"does not enable writes",
     [](Wire &wire) {
         wire.core(setWr);
     }},
    {"unknown bulk erase keys 0x1080",
     [](Wire &wire) {
         wire.bulkErase(0x1080);
     }},
    {"before the end of a write or erase",
     [](Wire &wire) {
         wire.bulkErase(0x0180, p11);
     }},
    {"programming time",
     [](Wire &wire) {
         wire.write(0x200, 0x1234, p9 * 9 / 10);
         QCOMPARE(wire.pic().memory().programMemory().mid(0x200, 2), QByteArray("\xFF\xFF"));
     }},
    {"before the end of a write",
     [](Wire &wire) {
         wire.write(0x200, 0x1234, p9, p10 / 2);
     }},
    {"no NOP follows",
     [](Wire &wire) {
         wire.write(0, 0xFFFF);
         wire.send(0xF, 0xFFFF);
         wire.bits(0x9, 4, p9);
     }},
    {"left before the end",
     [](Wire &wire) {
         wire.write(0, 0xFFFF);
         wire.send(0xF, 0xFFFF);
         wire.bits(0, 4, p9);
         wire.mclr(false);
     }},
    {"entry hold time",
     [](Wire &wire) {
         wire.mclr(false);
         wire.mclr(true);
         wire.bits(0, 4);
     }},
    {"clock high time",
     [](Wire &wire) {
         wire.bits(0, 4, 10);
     }},
    {"data setup time",
     [](Wire &wire) {
         wire.clock(true);
         wire.wait(halfPeriod);
         wire.boards().writeRegister(0x740, 0x8000); // data rises as the clock falls
     }},
    {"data hold time",
     [](Wire &wire) {
         wire.bits(0, 1);
         wire.clock(true);
         wire.wait(halfPeriod);
         wire.clock(false);
         wire.boards().writeRegister(0x740, 0x8000);
     }},
    {"PGD driven from both ends",
     [](Wire &wire) {
         wire.bits(0x8, 4);
         wire.bits(0, 9);
     }},
};

} // namespace

/// The model of a PIC18 against the behaviour that its programming data sheet publishes.
class Pic18TargetTest : public QObject
{
    Q_OBJECT

private slots:
    void entersOnlyWithTheProgrammingVoltage();
    void readsByEachTableReadCommand();
    void writesRowsFromItsLatches();
    void judgesCommandsAndWrites();
    void erasesTheRegionsOfItsKeys_data();
    void erasesTheRegionsOfItsKeys();
    void keepsUnimplementedAndProtectionBits();
    void hidesProtectedMemory();
    void writesItsEepromInFourMilliseconds();
    void sharedLinesNeedTheOthersInReset();
    void extraZeroClocksAreHarmless();
};

void Pic18TargetTest::entersOnlyWithTheProgrammingVoltage()
{
    Wire wire;
    QCOMPARE(static_cast<int>(wire.read(0x3FFFFF)), 0x00); // in reset
    wire.set(0x700, 0x20000, false);
    wire.enter();
    QVERIFY(!wire.pic().isInProgrammingMode());
    QCOMPARE(static_cast<int>(wire.read(0x3FFFFF)), 0x00); // running its program
    wire.set(0x700, 0x20000, true);
    wire.enter();
    QCOMPARE(static_cast<int>(wire.read(0x3FFFFF)), 0x0C);
    wire.set(0xB20, 0x200000, false); // the voltage falls back to the supply
    QVERIFY(!wire.pic().isInProgrammingMode());
    wire.set(0xB20, 0x200000, true);
    wire.mclr(false);
    wire.data(true);
    wire.mclr(true);
    QVERIFY(!wire.pic().isInProgrammingMode());
    QCOMPARE(wire.violations(), QStringList());
}

void Pic18TargetTest::readsByEachTableReadCommand()
{
    for (const auto &device :
         {qMakePair(&Pic18Device::pic18f4620, 0x0C07), qMakePair(&Pic18Device::pic18f4680, 0x0E87),
          qMakePair(&Pic18Device::pic18f4682, 0x2747), qMakePair(&Pic18Device::pic18f4685, 0x2767)}) {
        Wire wire(*device.first);
        wire.pic().memory().programMemory().replace(0x100, 4, "\x11\x22\x33\x44");
        wire.enter();
        wire.point(0x101);
        QByteArray bytes;
        for (const Word command : {0x8U, 0x9U, 0xBU, 0xAU, 0x8U}) // stay, after up, before up, after down
            bytes.append(static_cast<char>(wire.receive(command)));
        QCOMPARE(bytes, QByteArray("\x22\x22\x44\x44\x33"));
        QCOMPARE(wire.read(0x3FFFFF) * 256 + wire.read(0x3FFFFE), device.second);
        QCOMPARE(static_cast<int>(wire.read(device.first->programSize - 1)), 0xFF);
        QCOMPARE(static_cast<int>(wire.read(device.first->programSize)), 0x00);
        QCOMPARE(wire.violations(), QStringList());
    }
}

void Pic18TargetTest::writesRowsFromItsLatches()
{
    Wire wire;
    wire.enter();
    wire.core(setEepgd);
    wire.point(0x7C);
    wire.send(0xD, 0x2211);
    wire.send(0xE, 0x4433);
    wire.hold();
    wire.send(0xF, 0x6655); // the pointer moved on into the next row
    wire.hold();
    QCOMPARE(wire.pic().memory().programMemory().mid(0x7A, 10), QByteArray("\xFF\xFF\x11\x22\x33\x44\x55\x66\xFF\xFF"));
    QCOMPARE(wire.violations(), QStringList());
}

void Pic18TargetTest::judgesCommandsAndWrites()
{
    for (const auto &offence : offences) {
        Wire wire;
        wire.enter();
        QVERIFY(wire.violations().isEmpty());
        offence.second(wire);
        QVERIFY2(wire.violations().value(0).contains(offence.first),
                 qPrintable(offence.first + " / " + wire.violations().join('\n')));
    }
}

void Pic18TargetTest::erasesTheRegionsOfItsKeys_data()
{
    QTest::addColumn<int>("keys");
    QTest::addColumn<int>("begin");
    QTest::addColumn<int>("end");
    QTest::newRow("boot block") << 0x0081 << 0 << 0x2000;
    QTest::newRow("block 0") << 0x0180 << 0x2000 << 0x4000;
    QTest::newRow("block 1") << 0x0280 << 0x4000 << 0x8000;
    QTest::newRow("block 5") << 0x2080 << 0x14000 << 0x18000;
    QTest::newRow("EEPROM only") << 0x0084 << 0 << 0;
    QTest::newRow("chip") << 0x3F8F << 0 << 0x18000;
}

void Pic18TargetTest::erasesTheRegionsOfItsKeys()
{
    QFETCH(int, keys);
    QFETCH(int, begin);
    QFETCH(int, end);
    Wire wire(Pic18Device::pic18f4685);
    Pic18Memory &memory = wire.pic().memory();
    memory.configuration()[6] |= 0x20; // the largest boot block
    memory.programMemory().fill('\0');
    memory.eeprom().fill('\0');
    wire.enter();
    wire.bulkErase(static_cast<Word>(keys));
    QByteArray expected(0x18000, '\0');
    expected.replace(begin, end - begin, QByteArray(end - begin, '\xFF'));
    QVERIFY(memory.programMemory() == expected);
    QCOMPARE(memory.eeprom().at(0), (keys & 0x04) ? '\xFF' : '\0');
    QCOMPARE(wire.violations(), QStringList());
}

void Pic18TargetTest::keepsUnimplementedAndProtectionBits()
{
    Wire wire;
    wire.enter();
    wire.write(0x300001, 0xFFFF);
    QCOMPARE(static_cast<int>(wire.read(0x300001)), 0xCF);
    wire.write(0x300001, 0x0200); // an odd address takes the high byte, and ones come back
    QCOMPARE(static_cast<int>(wire.read(0x300001)), 0x02);
    wire.write(0x300001, 0xCF00);
    QCOMPARE(static_cast<int>(wire.read(0x300001)), 0xCF);
    QCOMPARE(wire.violations(), QStringList());
    wire.write(0x30000A, 0x0E);
    wire.write(0x30000A, 0x0F); // protection
    QCOMPARE(static_cast<int>(wire.read(0x30000A)), 0x0E);
    QCOMPARE(wire.violations().size(), 1);
    wire.bulkErase(0x0082);
    QCOMPARE(static_cast<int>(wire.read(0x30000A)), 0x0F);
    QCOMPARE(static_cast<int>(wire.read(0x300001)), 0x07);
}

void Pic18TargetTest::hidesProtectedMemory()
{
    Wire wire;
    wire.enter();
    wire.write(0x4000, 0x1234);
    wire.write(0x300008, 0x0D);
    QCOMPARE(static_cast<int>(wire.read(0x4000)), 0x00);
    QCOMPARE(static_cast<int>(wire.read(0x3FFF)), 0xFF);
    wire.bulkErase(0x0280);
    QCOMPARE(static_cast<int>(wire.read(0x4000)), 0xFF);
}

void Pic18TargetTest::writesItsEepromInFourMilliseconds()
{
    Wire wire;
    wire.enter();
    for (const Word instruction : {clearEepgd, 0x0EFFU, 0x6EA9U, 0x0E03U, 0x6EAAU, 0x0E5AU, 0x6EA8U, setWren, setWr})
        wire.core(instruction);
    const auto eecon1 = [&wire] {
        wire.core(0x50A6);
        wire.core(0x6EF5);
        wire.core(0);
        return wire.receive(0x2);
    };
    wire.wait(3900000);
    QVERIFY(eecon1() & 0x02);
    wire.wait(100000);
    QVERIFY(!(eecon1() & 0x02));
    QCOMPARE(wire.pic().memory().eeprom().at(0x3FF), '\x5A');
    wire.core(setWr);
    wire.mclr(false);
    QVERIFY(wire.violations().value(0).contains("reset during an EEPROM write"));
}

void Pic18TargetTest::sharedLinesNeedTheOthersInReset()
{
    Wire wire;
    wire.enter();
    wire.bits(0, 4);
    QCOMPARE(wire.violations(), QStringList());
    wire.set(0xB20, 0x8000, false); // MCLR of PIC 3 is pulled up
    wire.bits(0, 1);
    QCOMPARE(wire.violations().size(), 1);
    QVERIFY(wire.violations().at(0).contains("more than one PIC out of reset"));
}

void Pic18TargetTest::extraZeroClocksAreHarmless()
{
    Wire wire;
    wire.enter();
    wire.write(0x40, 0xBEEF);
    wire.bits(0, 4);
    wire.enter();
    QCOMPARE(static_cast<int>(wire.read(0x41)), 0xBE);
    QCOMPARE(wire.violations(), QStringList());
}

QTEST_GUILESS_MAIN(Pic18TargetTest)
#include "Pic18TargetTest.moc"
