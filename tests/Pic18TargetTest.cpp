#include <QtTest>
#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

#include "simulator/models/pic/VirtualBoards.h"

using namespace simulator;

namespace {

using Word = unsigned int;

const Word setEepgd = 0x8EA6;
const Word clearEepgd = 0x9EA6;
const Word setCfgs = 0x8CA6;
const Word clearCfgs = 0x9CA6;
const Word setFree = 0x88A6;
const Word setWren = 0x84A6;
const Word setWr = 0x82A6;
const Word setRd = 0x80A6;
const Word moveWToTablat = 0x6EF5;
const qint64 halfPeriod = 60;
const qint64 p9 = 1000000;
const qint64 p10 = 100000;
const qint64 p11 = 5000000;
const qint64 p12 = 2000;
const qint64 eepromWrite = 4000000;

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
    /// A byte of program or configuration memory, whatever protects it.
    Word cell(Word address)
    {
        Pic18Memory &memory = pic().memory();
        return address < 0x300000 ? memory.programMemory()[address] : memory.configuration()[address - 0x300000];
    }

    Wire &set(Word offset, uint32_t mask, bool level)
    {
        const uint32_t word = boards().readRegister(offset);
        boards().writeRegister(offset, level ? word | mask : word & ~mask);
        return *this;
    }
    Wire &wait(qint64 nanoseconds)
    {
        boards().wait(nanoseconds);
        return *this;
    }
    Wire &mclr(bool level) { return set(0x720, 0x200000, level); }
    Wire &clock(bool level) { return set(0x740, 0x4000, level); }
    Wire &data(bool level) { return set(0x740, 0x8000, level); }
    /// Both lines take their levels at once.
    Wire &lines(bool pgc, bool pgd)
    {
        boards().writeRegister(0x740, (pgc ? 0x4000 : 0) | (pgd ? 0x8000 : 0));
        return *this;
    }

    Wire &enter(qint64 low = 2000, qint64 hold = p12)
    {
        return data(false).clock(false).mclr(false).wait(low).mclr(true).wait(hold);
    }
    Wire &bits(Word value, int count, qint64 lastHigh = halfPeriod)
    {
        for (int bit = 0; bit < count; ++bit) {
            data(value >> bit & 1).clock(true).wait(bit == count - 1 ? lastHigh : halfPeriod);
            clock(false).wait(halfPeriod);
        }
        return data(false);
    }
    Wire &send(Word command, Word operand) { return bits(command, 4).bits(operand, 16); }
    template <typename... Words>
    Wire &core(Words... instructions)
    {
        return (send(0, Word(instructions)), ...);
    }
    Word receive(Word command)
    {
        bits(command, 4).bits(0, 8).set(0xB40, 0x8000, false);
        Word value = 0;
        for (int bit = 0; bit < 8; ++bit) {
            clock(true).wait(halfPeriod).clock(false).wait(halfPeriod);
            value |= (boards().readRegister(0x940) >> 15 & 1) << bit;
        }
        set(0xB40, 0x8000, true);
        return value;
    }
    Wire &point(Word address)
    {
        return core(0x0E00 | address >> 16, 0x6EF8, 0x0E00 | (address >> 8 & 0xFF), 0x6EF7, 0x0E00 | (address & 0xFF),
                    0x6EF6);
    }
    Word read(Word address) { return point(address).receive(0x8); }
    Wire &hold(qint64 high = p9, qint64 low = p10) { return bits(0, 4, high).wait(low).bits(0, 16); }
    /// Programming starts.
    Wire &load(Word address, Word word)
    {
        return core(setEepgd, address < 0x300000 ? clearCfgs : setCfgs).point(address).send(0xF, word);
    }
    Wire &write(Word address, Word word) { return load(address, word).hold(); }
    Wire &eraseRow(Word address)
    {
        return core(setEepgd, clearCfgs, setWren).point(address).core(setFree, setWr).hold();
    }
    Wire &writeEeprom(Word address, Word value)
    {
        return core(clearEepgd, clearCfgs, 0x0E00 | (address & 0xFF), 0x6EA9, 0x0E00 | address >> 8, 0x6EAA,
                    0x0E00 | value, 0x6EA8, setWren, setWr);
    }
    Wire &key(Word address, Word word) { return point(address).send(0xC, word); }
    Wire &bulkErase(Word keys, qint64 time = p11 + p10)
    {
        key(0x3C0005, (keys >> 8) * 0x101).key(0x3C0004, (keys & 0xFF) * 0x101).core(0);
        return bits(0, 4).wait(time).bits(0, 16);
    }

private:
    Q_DISABLE_COPY(Wire)
};

using Provocation = std::function<void(Wire &)>;

QPair<QString, Provocation> violation(const char *text, const Provocation &provoke)
{
    return {text, provoke};
}

/// What each violation says, and how it is provoked. None changes the memory.
const QPair<QString, Provocation> violationCases[] = {
    violation("unknown command", [](Wire &wire) { wire.bits(0x5, 4); }),
    violation("unknown core instruction 0x1234", [](Wire &wire) { wire.core(0x1234); }),
    violation("started at 0x10000, where no memory is", [](Wire &wire) { wire.load(0x10000, 0).hold(); }),
    violation("EECON1 0xC8, not set since power-on", [](Wire &wire) { wire.core(setEepgd).send(0xF, 0).hold(); }),
    violation("EECON1 0x88, not set since power-on", [](Wire &wire) { wire.core(clearCfgs).send(0xF, 0).hold(); }),
    violation("EECON1 0xC8 and", // MCLR does not clear CFGS
              [](Wire &wire) { wire.write(0x300001, 0x0700).enter().core(setEepgd).send(0xF, 0).hold(); }),
    violation("EECON1 0x8 and", // nor sets EEPGD
              [](Wire &wire) { wire.core(clearEepgd, clearCfgs).enter().send(0xF, 0).hold(); }),
    violation("EEPROM read with EECON1 0x88", [](Wire &wire) { wire.core(setEepgd, clearCfgs, setRd); }),
    violation("EEPROM write with EECON1 0x4E", [](Wire &wire) { wire.core(clearEepgd, setCfgs, setWren, setWr); }),
    violation("does not enable writes", // MCLR clears WREN
              [](Wire &wire) { wire.core(clearEepgd, clearCfgs, setWren).enter().core(setWr); }),
    violation("no NOP between the write of TABLAT and its shift out",
              [](Wire &wire) { wire.core(moveWToTablat).bits(0x2, 4); }),
    violation("unknown bulk erase keys 0x1080", [](Wire &wire) { wire.bulkErase(0x1080); }),
    violation("unknown bulk erase keys 0x380", [](Wire &wire) { wire.bulkErase(0x0380); }),
    violation("unknown bulk erase keys 0x100", [](Wire &wire) { wire.bulkErase(0x0100); }),
    violation("erase key differ: 0x100", [](Wire &wire) { wire.key(0x3C0005, 0x0100); }),
    violation("erase key differ: 0x81", [](Wire &wire) { wire.key(0x3C0005, 0).key(0x3C0004, 0x0081); }),
    violation("low bulk erase key before the high one", [](Wire &wire) { wire.key(0x3C0004, 0x8181); }),
    violation("clocked before the end", [](Wire &wire) { wire.bulkErase(0x0180, p11 + p10 / 2); }),
    violation("PGD high during a bulk erase", [](Wire &wire) { wire.bulkErase(0x0180, p11 / 2).data(true); }),
    violation("left before the end", [](Wire &wire) { wire.bulkErase(0x0180, p11 / 2).mclr(false); }),
    violation("no second NOP follows the bulk erase keys",
              [](Wire &wire) { wire.key(0x3C0005, 0x0101).key(0x3C0004, 0x8080).core(0).bits(0x9, 4); }),
    violation("programming time", [](Wire &wire) { wire.load(0x200, 0).hold(p9 - 100); }),
    violation("clocked before the end", [](Wire &wire) { wire.load(0x200, 0xFFFF).hold(p9, p10 / 2); }),
    violation("left before the end", [](Wire &wire) { wire.load(0x200, 0xFFFF).bits(0, 4, p9).mclr(false); }),
    violation("left during P9: the write is lost",
              [](Wire &wire) { wire.load(0, 0).bits(0, 3).clock(true).wait(p9 / 2).mclr(false); }),
    violation("no NOP follows", [](Wire &wire) { wire.load(0, 0).bits(0x9, 4, p9); }),
    violation("reset pulse", [](Wire &wire) { wire.enter(1950); }),
    violation("entry hold time", [](Wire &wire) { wire.enter(2000, p12 - 50).clock(true); }),
    violation("entry hold time", [](Wire &wire) { wire.enter(2000, p12 - 50).data(true); }),
    violation("clock period", [](Wire &wire) { wire.clock(true).wait(30).clock(false).wait(25).clock(true); }),
    violation("clock low time", [](Wire &wire) { wire.clock(true).wait(80).clock(false).clock(true); }),
    violation("clock high time", [](Wire &wire) { wire.bits(0, 4, 10); }),
    violation("data setup time", [](Wire &wire) { wire.clock(true).wait(halfPeriod).lines(false, true); }),
    violation("data hold time", [](Wire &wire) { wire.clock(true).wait(50).clock(false).lines(false, true); }),
    violation("PGD driven from both ends", [](Wire &wire) { wire.bits(0x008, 4 + 8 + 1); }),
    violation("PGD not driven", [](Wire &wire) { wire.set(0xB40, 0x8000, false).clock(true); }),
};

} // namespace

/// The model of a PIC18 against the behaviour that its data sheets publish.
class Pic18TargetTest : public QObject
{
    Q_OBJECT

private slots:
    void entersOnlyWithTheProgrammingVoltage();
    void readsByEachTableReadCommand();
    void writesRowsFromItsLatches();
    void writesOnlyClearBits();
    void reportsWhatSiliconWouldNotAccept();
    void erasesTheRegionsOfItsKeys();
    void clockMayRunDuringABulkErase();
    void keepsUnimplementedAndProtectionBits();
    void hidesProtectedMemory();
    void ignoresWritesToProtectedMemory();
    void resetClearsTablePointerAndTablat();
    void writesItsEepromInFourMilliseconds();
    void sharedLinesNeedTheOthersInReset();
    void memoriesInFilesSurviveAKillAtEachMoment();
};

void Pic18TargetTest::entersOnlyWithTheProgrammingVoltage()
{
    Wire wire;
    QCOMPARE(wire.read(0x3FFFFF), 0x00U); // in reset
    wire.set(0x700, 0x20000, false).enter();
    QVERIFY(!wire.pic().isInProgrammingMode());
    QCOMPARE(wire.mclr(false).mclr(true).read(0x3FFFFF), 0x00U); // running its program
    wire.set(0x700, 0x20000, true).enter();
    QCOMPARE(wire.read(0x3FFFFF), 0x0CU);
    wire.set(0xB20, 0x200000, false); // the voltage falls back to the supply
    QVERIFY(!wire.pic().isInProgrammingMode());
    wire.set(0xB20, 0x200000, true).mclr(false).data(true).wait(2000).mclr(true);
    QVERIFY(!wire.pic().isInProgrammingMode());
    QCOMPARE(wire.violations(), QStringList());
}

void Pic18TargetTest::readsByEachTableReadCommand()
{
    for (const auto &device :
         {qMakePair(&Pic18Device::pic18f4620, 0x0C07U), qMakePair(&Pic18Device::pic18f4680, 0x0E87U),
          qMakePair(&Pic18Device::pic18f4682, 0x2747U), qMakePair(&Pic18Device::pic18f4685, 0x2767U)}) {
        Wire wire(*device.first);
        wire.pic().memory().programMemory() = QByteArray(0x100, '\0') + "\x11\x22\x33\x44";
        wire.enter().point(0x101);
        QByteArray bytes;
        for (const Word command : {0x8U, 0x9U, 0xBU, 0xAU, 0x8U}) // stay, after up, before up, after down
            bytes.append(static_cast<char>(wire.receive(command)));
        QCOMPARE(bytes, QByteArray("\x22\x22\x44\x44\x33"));
        QCOMPARE(wire.read(0x3FFFFF) * 256 + wire.read(0x3FFFFE), device.second);
        QCOMPARE(wire.read(device.first->programSize - 1), 0xFFU);
        QCOMPARE(wire.read(device.first->programSize), 0x00U);
        QCOMPARE(wire.violations(), QStringList());
    }
}

void Pic18TargetTest::writesRowsFromItsLatches()
{
    Wire wire;
    wire.enter().core(setEepgd, clearCfgs).point(0x7C).send(0xD, 0x2211).send(0xE, 0x4433).hold();
    wire.send(0xF, 0x6655).hold(); // the pointer moved on into the next row
    QCOMPARE(wire.pic().memory().programMemory().bytes().mid(0x7A, 10),
             QByteArray("\xFF\xFF\x11\x22\x33\x44\x55\x66\xFF\xFF"));
    QCOMPARE(wire.violations(), QStringList());
}

// Whoever writes over something else finds it by reading back.
void Pic18TargetTest::writesOnlyClearBits()
{
    Wire wire;
    wire.enter().write(0x10, 0x0F0F).write(0x10, 0x3CFF);
    wire.bits(0, 4).enter(); // zero clocks beyond the operand are harmless
    QCOMPARE(wire.read(0x10), 0x0FU);
    QCOMPARE(wire.read(0x11), 0x0CU);
    QCOMPARE(wire.violations(), QStringList());
}

void Pic18TargetTest::reportsWhatSiliconWouldNotAccept()
{
    for (const auto &violationCase : violationCases) {
        Wire wire;
        QStringList reported;
        wire.boards().onViolation = [&reported](const QString &text) {
            reported << text;
        };
        const QByteArray configuration = wire.pic().memory().configuration().bytes();
        wire.enter();
        QCOMPARE(wire.violations(), QStringList());
        violationCase.second(wire);
        QVERIFY2(wire.violations().value(0).contains(violationCase.first),
                 qPrintable(violationCase.first + " / " + wire.violations().join('\n')));
        QCOMPARE(reported, wire.violations());
        Pic18Memory &memory = wire.pic().memory();
        QVERIFY2(memory.programMemory().bytes() == QByteArray(0x10000, '\xFF'), qPrintable(violationCase.first));
        QCOMPARE(memory.configuration().bytes(), configuration);
    }
}

void Pic18TargetTest::erasesTheRegionsOfItsKeys()
{
    static const struct
    {
        Word keys;
        int begin;
        int end;
    } regions[] = {{0x0081, 0, 0x2000},        {0x0180, 0x2000, 0x4000}, {0x0280, 0x4000, 0x8000},
                   {0x2080, 0x14000, 0x18000}, {0x0084, 0, 0},           {0x3F8F, 0, 0x18000}};
    for (const auto &region : regions) {
        Wire wire(Pic18Device::pic18f4685);
        Pic18Memory &memory = wire.pic().memory();
        memory.configuration()[6] |= 0x20; // the largest boot block
        memory.programMemory().fill('\0');
        memory.eeprom().fill('\0');
        wire.enter().bulkErase(region.keys);
        const int size = region.end - region.begin;
        QVERIFY2(memory.programMemory().bytes() ==
                     QByteArray(0x18000, '\0').replace(region.begin, size, QByteArray(size, '\xFF')),
                 qPrintable(QString::number(region.keys, 16)));
        QCOMPARE(static_cast<int>(memory.eeprom()[0]), (region.keys & 0x04) ? 0xFF : 0x00);
        QCOMPARE(wire.violations(), QStringList());
    }
}

void Pic18TargetTest::clockMayRunDuringABulkErase()
{
    Wire wire;
    wire.enter().bulkErase(0x0180, p11 / 2); // its operand is 16 clocks too early
    wire.wait(p11 / 2 + p10).bits(0, 16);
    QCOMPARE(wire.read(0x3FFFFF), 0x0CU);
    QCOMPARE(wire.violations(), QStringList());
}

void Pic18TargetTest::keepsUnimplementedAndProtectionBits()
{
    Wire wire;
    wire.enter().write(0x300001, 0xFFFF);
    QCOMPARE(wire.read(0x300001), 0xCFU);
    wire.write(0x300001, 0x0200); // an odd address takes the high byte, and ones come back
    QCOMPARE(wire.read(0x300001), 0x02U);
    wire.write(0x300001, 0xCF00);
    QCOMPARE(wire.read(0x300001), 0xCFU);
    wire.write(0x30000C, 0x0E).write(0x30000C, 0x0F); // protection: only an erase brings ones back
    QCOMPARE(wire.read(0x30000C), 0x0EU);
    wire.bulkErase(0x0082);
    QCOMPARE(wire.read(0x30000C), 0x0FU);
    QCOMPARE(wire.read(0x300001), 0x07U);
    QCOMPARE(wire.violations(), QStringList());
}

void Pic18TargetTest::hidesProtectedMemory()
{
    Wire wire;
    wire.enter().write(0x4000, 0x1234).write(0x300008, 0x0D);
    QCOMPARE(wire.read(0x4000), 0x00U);
    QCOMPARE(wire.read(0x3FFF), 0xFFU);
    wire.bulkErase(0x0280);
    QCOMPARE(wire.read(0x4000), 0xFFU);
}

void Pic18TargetTest::ignoresWritesToProtectedMemory()
{
    static const struct
    {
        const char *bit;
        Word configuration;
        Word value;
        Word address;
        Word keys;
    } cases[] = {{"WRT0", 0x30000A, 0x0E, 0x800, 0x0180}, {"WRT3", 0x30000A, 0x07, 0xFFC0, 0x0880},
                 {"CP1", 0x300008, 0x0D, 0x4000, 0x0280}, {"WRTB", 0x30000B, 0xA000, 0x7C0, 0x0081},
                 {"CPB", 0x300009, 0x8000, 0x0, 0x0081},  {"WRTC", 0x30000B, 0xC000, 0x300001, 0x0082}};
    for (const auto &item : cases) {
        Wire wire;
        wire.enter().write(item.address, 0x0707).write(item.configuration, item.value);
        QCOMPARE(wire.violations(), QStringList());
        wire.write(item.address, 0x0202);
        if (item.address < 0x300000)
            wire.eraseRow(item.address);
        QVERIFY2(wire.cell(item.address) == 0x07, item.bit);
        const int count = wire.violations().filter("write ignored: protected memory at 0x").size();
        QCOMPARE(count, item.address < 0x300000 ? 2 : 1);
        wire.bulkErase(item.keys).write(item.address, 0x0202);
        QVERIFY2(wire.cell(item.address) == 0x02, item.bit);
        QCOMPARE(wire.violations().size(), count);
    }
}

void Pic18TargetTest::resetClearsTablePointerAndTablat()
{
    Wire wire;
    wire.pic().memory().programMemory() = "\x11";
    wire.enter().point(0x3C0005).core(moveWToTablat, 0).enter();
    QCOMPARE(wire.receive(0x2), 0x00U);
    QCOMPARE(wire.receive(0x8), 0x11U);
    QCOMPARE(wire.violations(), QStringList());
}

void Pic18TargetTest::writesItsEepromInFourMilliseconds()
{
    Wire wire;
    const auto isWriting = [&wire] {
        return wire.core(0x50A6, moveWToTablat, 0).receive(0x2) & 0x02;
    };
    wire.enter().writeEeprom(0x3FF, 0x5A).wait(eepromWrite - p10);
    QVERIFY(isWriting());
    wire.wait(p10);
    QVERIFY(!isWriting());
    QCOMPARE(static_cast<int>(wire.pic().memory().eeprom()[0x3FF]), 0x5A);
    wire.core(setWr).enter();
    QVERIFY(wire.violations().value(0).contains("reset during an EEPROM write"));
    wire.write(0x30000B, 0x6000).writeEeprom(0x3FF, 0).wait(eepromWrite).core(0); // WRTD
    QVERIFY(wire.violations().value(1).contains("EEPROM write ignored"));
    QCOMPARE(static_cast<int>(wire.pic().memory().eeprom()[0x3FF]), 0x5A);
}

void Pic18TargetTest::sharedLinesNeedTheOthersInReset()
{
    Wire wire;
    wire.enter().bits(0, 4);
    QCOMPARE(wire.violations(), QStringList());
    wire.set(0xB20, 0x8000, false).bits(0, 1); // MCLR of PIC 3 is pulled up
    QCOMPARE(wire.violations().size(), 1);
    QVERIFY(wire.violations().at(0).contains("more than one PIC out of reset"));
}

void Pic18TargetTest::memoriesInFilesSurviveAKillAtEachMoment()
{
    const QTemporaryDir folder;
    const QStringList moments = {"pic 2 erase", "pic 2 row", "pic 2 configuration", "pic 2 eeprom"};
    for (int last = 0; last < moments.size(); ++last) {
        const pid_t child = fork();
        if (child == 0) {
            Wire wire;
            wire.boards().keepIn(folder.path());
            wire.boards().onMoment = [&](const QString &moment) {
                if (moment == moments.at(last))
                    raise(SIGKILL);
            };
            wire.enter().bulkErase(0x3F8F).write(0x40, 0xBEEF).write(0x300001, 0x0200);
            wire.writeEeprom(0x3FF, 0x5A).wait(eepromWrite).core(0);
            _exit(0);
        }
        int status = 0;
        QCOMPARE(waitpid(child, &status, 0), child);
        QVERIFY(WIFSIGNALED(status));
        Wire wire;
        wire.boards().keepIn(folder.path());
        QCOMPARE(wire.cell(0x41), last < 1 ? 0xFFU : 0xBEU);
        QCOMPARE(wire.cell(0x300001), last < 2 ? 0x07U : 0x02U);
        QCOMPARE(static_cast<int>(wire.pic().memory().eeprom()[0x3FF]), last < 3 ? 0xFF : 0x5A);
    }
    QCOMPARE(QDir(folder.path()).entryList({"pic2.*"}),
             QStringList({"pic2.configuration", "pic2.eeprom", "pic2.program", "pic2.userid"}));
}

QTEST_GUILESS_MAIN(Pic18TargetTest)
#include "Pic18TargetTest.moc"
