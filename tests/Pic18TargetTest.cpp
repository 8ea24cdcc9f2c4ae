#include <QtTest>
#include <csignal>
#include <sys/wait.h>
#include <tuple>
#include <unistd.h>

#include "pic/PicInstructions.h"
#include "simulator/models/pic/VirtualBoards.h"
#include "tests/Rows.h"

using namespace simulator;
using namespace PicInstructions;

namespace {

using Word = unsigned int;

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
    Pic18Memory &memory() { return pic().memory(); }
    const QStringList &violations() { return boards().violations(); }

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

/// How each violation is provoked, and what it says. None changes the memory.
const struct
{
    void (*provoke)(Wire &);
    const char *text;
} violationCases[] = {
    {[](Wire &wire) { wire.bits(0x5, 4); }, "unknown command"},
    {[](Wire &wire) { wire.core(0x1234); }, "unknown core instruction 0x1234"},
    {[](Wire &wire) { wire.load(0x10000, 0).hold(); }, "started at 0x10000, where no memory is"},
    {[](Wire &wire) { wire.core(setEepgd).send(0xF, 0).hold(); }, "EECON1 0xC8, not set since power-on"},
    {[](Wire &wire) { wire.core(clearCfgs).send(0xF, 0).hold(); }, "EECON1 0x88, not set since power-on"},
    // MCLR does not clear CFGS, nor set EEPGD, but clears WREN.
    {[](Wire &wire) { wire.write(0x300001, 0x0700).enter().core(setEepgd).send(0xF, 0).hold(); }, "EECON1 0xC8 and"},
    {[](Wire &wire) { wire.core(clearEepgd, clearCfgs).enter().send(0xF, 0).hold(); }, "EECON1 0x8 and"},
    {[](Wire &wire) { wire.core(clearEepgd, clearCfgs, setWren).enter().core(setWr); }, "does not enable writes"},
    {[](Wire &wire) { wire.core(setEepgd, clearCfgs, setRd); }, "EEPROM read with EECON1 0x88"},
    {[](Wire &wire) { wire.core(clearEepgd, setCfgs, setWren, setWr); }, "EEPROM write with EECON1 0x4E"},
    {[](Wire &wire) { wire.core(moveWToTablat).bits(0x2, 4); }, "no NOP between the write of TABLAT and its shift out"},
    {[](Wire &wire) { wire.bulkErase(0x1080); }, "unknown bulk erase keys 0x1080"},
    {[](Wire &wire) { wire.bulkErase(0x0380); }, "unknown bulk erase keys 0x380"},
    {[](Wire &wire) { wire.key(0x3C0005, 0).key(0x3C0004, 0x0081); }, "erase key differ: 0x81"},
    {[](Wire &wire) { wire.key(0x3C0004, 0x8181); }, "low bulk erase key before the high one"},
    {[](Wire &wire) { wire.bulkErase(0x0180, p11 + p10 / 2); }, "clocked before the end"},
    {[](Wire &wire) { wire.bulkErase(0x0180, p11 / 2).data(true); }, "PGD high during a bulk erase"},
    {[](Wire &wire) { wire.key(0x3C0005, 0x0101).key(0x3C0004, 0x8080).core(0).bits(0x9, 4); },
     "no second NOP follows the bulk erase keys"},
    {[](Wire &wire) { wire.load(0x200, 0).hold(p9 - 100); }, "programming time"},
    {[](Wire &wire) { wire.load(0x200, 0xFFFF).hold(p9, p10 / 2); }, "clocked before the end"},
    {[](Wire &wire) { wire.load(0x200, 0xFFFF).bits(0, 4, p9).mclr(false); }, "left before the end"},
    {[](Wire &wire) { wire.load(0, 0).bits(0, 3).clock(true).wait(p9 / 2).mclr(false); },
     "left during P9: the write is lost"},
    {[](Wire &wire) { wire.load(0, 0).bits(0x9, 4, p9); }, "no NOP follows"},
    {[](Wire &wire) { wire.enter(1950); }, "reset pulse"},
    {[](Wire &wire) { wire.enter(2000, p12 - 50).clock(true); }, "entry hold time"},
    {[](Wire &wire) { wire.enter(2000, p12 - 50).data(true); }, "entry hold time"},
    {[](Wire &wire) { wire.clock(true).wait(30).clock(false).wait(25).clock(true); }, "clock period"},
    {[](Wire &wire) { wire.clock(true).wait(80).clock(false).clock(true); }, "clock low time"},
    {[](Wire &wire) { wire.bits(0, 4, 10); }, "clock high time"},
    // PGC falls and PGD rises at once.
    {[](Wire &wire) { wire.clock(true).wait(halfPeriod).boards().writeRegister(0x740, 0x8000); }, "data setup time"},
    {[](Wire &wire) { wire.clock(true).wait(50).clock(false).boards().writeRegister(0x740, 0x8000); },
     "data hold time"},
    {[](Wire &wire) { wire.bits(0x008, 4 + 8 + 1); }, "PGD driven from both ends"},
    {[](Wire &wire) { wire.writeEeprom(0, 0).wait(eepromWrite - p10).enter(); }, "reset during an EEPROM write"},
    {[](Wire &wire) { wire.set(0xB20, 0x8000, false).clock(true); }, "more than one PIC out of reset"}, // PIC 3
    {[](Wire &wire) { wire.set(0xB40, 0x8000, false).clock(true); }, "PGD not driven"},
};

/// What is read after actions that silicon accepts.
const struct
{
    const char *name;
    void (*act)(Wire &);
    Word address;
    QString bytes; ///< from the address on
} contentCases[] = {
    {"reads 0 in reset", [](Wire &wire) { wire.mclr(false); }, 0x3FFFFF, "00"},
    {"reads 0 without the enable line", [](Wire &wire) { wire.set(0x700, 0x20000, false).enter(); }, 0x3FFFFF, "00"},
    {"reads 0 after the voltage fell back", [](Wire &wire) { wire.set(0xB20, 0x200000, false); }, 0x3FFFFF, "00"},
    {"reads 0 after an entry with PGD high", [](Wire &wire) { wire.mclr(false).data(true).wait(2000).mclr(true); },
     0x3FFFFF, "00"},
    {"0xE moves the pointer on",
     [](Wire &wire) { wire.core(setEepgd, clearCfgs).point(0x7E).send(0xE, 0x4433).hold().send(0xF, 0x6655).hold(); },
     0x7E, "33445566"},
    {"MCLR clears the table pointer",
     [](Wire &wire) { wire.core(setEepgd, clearCfgs).point(0x100).enter().send(0xF, 0x3412).hold(); }, 0, "1234"},
    {"a write only clears bits", [](Wire &wire) { wire.write(0x10, 0x0F0F).write(0x10, 0x3CFF); }, 0x10, "0f0c"},
    {"begin of an erased row", [](Wire &wire) { wire.write(0x7E, 0).write(0x80, 0).eraseRow(0x90); }, 0x7E, "0000ffff"},
    {"end of an erased row", [](Wire &wire) { wire.write(0xBE, 0).write(0xC0, 0).eraseRow(0x90); }, 0xBE, "ffff0000"},
    {"an operand cut short", [](Wire &wire) { wire.bits(0, 4).enter(); }, 0x3FFFFF, "0c"},
    {"clocks during a bulk erase", [](Wire &wire) { wire.bulkErase(0x0180, p11 / 2).wait(p11 / 2 + p10).bits(0, 16); },
     0x3FFFFF, "0c"},
    {"unimplemented bits", [](Wire &wire) { wire.write(0x300001, 0xFFFF); }, 0x300001, "cf"},
    {"high byte for an odd address", [](Wire &wire) { wire.write(0x300001, 0x0200); }, 0x300001, "02"},
    {"ones come back", [](Wire &wire) { wire.write(0x300001, 0x0200).write(0x300001, 0xCF00); }, 0x300001, "cf"},
    {"protection stays", [](Wire &wire) { wire.write(0x30000C, 0x0E).write(0x30000C, 0x0F); }, 0x30000C, "0e40"},
    {"erased protection", [](Wire &wire) { wire.write(0x30000C, 0x0E).bulkErase(0x0082); }, 0x30000C, "0f"},
    {"erased configuration", [](Wire &wire) { wire.write(0x300001, 0x0200).bulkErase(0x0082); }, 0x300001, "07"},
    {"protected code reads 0", [](Wire &wire) { wire.write(0x4000, 0x1234).write(0x300008, 0x0D); }, 0x3FFF, "ff00"},
    {"until it is erased", [](Wire &wire) { wire.write(0x300008, 0x0D).bulkErase(0x0280); }, 0x3FFF, "ffff"},
};

} // namespace

/// The model of a PIC18 against the behaviour that its data sheets publish.
class Pic18TargetTest : public QObject
{
    Q_OBJECT

private slots:
    void readsByEachTableReadCommand();
    void acceptsWhatSiliconAccepts();
    void reportsWhatSiliconWouldNotAccept();
    void erasesTheRegionsOfItsKeys();
    void ignoresWritesToProtectedMemory();
    void writesItsEepromInFourMilliseconds();
    void memoriesInFilesSurviveAKillAtEachMoment();
};

void Pic18TargetTest::readsByEachTableReadCommand()
{
    for (const auto &[device, id] :
         {qMakePair(&Pic18Device::pic18f4620, 0x0C07U), qMakePair(&Pic18Device::pic18f4680, 0x0E87U),
          qMakePair(&Pic18Device::pic18f4682, 0x2747U), qMakePair(&Pic18Device::pic18f4685, 0x2767U)}) {
        const RowName row{device->name};
        Wire wire(*device);
        wire.memory().programMemory() = QByteArray(0x100, '\0') + "\x11\x22\x33\x44";
        wire.enter().point(0x101);
        QByteArray bytes;
        for (const Word command : {0x8U, 0x9U, 0xBU, 0xAU, 0x8U}) // stay, after up, before up, after down
            bytes.append(static_cast<char>(wire.receive(command)));
        QCOMPARE(bytes, QByteArray("\x22\x22\x44\x44\x33"));
        QCOMPARE(wire.read(0x3FFFFF) * 256 + wire.read(0x3FFFFE), id);
        QCOMPARE(wire.read(device->programSize - 1), 0xFFU);
        QCOMPARE(wire.read(device->programSize), 0x00U);
        QCOMPARE(wire.violations(), QStringList());
    }
}

void Pic18TargetTest::acceptsWhatSiliconAccepts()
{
    for (const auto &[name, act, address, bytes] : contentCases) {
        const RowName row{name};
        Wire wire;
        act(wire.enter());
        QByteArray read;
        for (int i = 0; i < bytes.size() / 2; ++i)
            read.append(static_cast<char>(wire.read(address + static_cast<Word>(i))));
        QCOMPARE(QString(read.toHex()), bytes);
        QCOMPARE(wire.violations(), QStringList());
    }
}

void Pic18TargetTest::reportsWhatSiliconWouldNotAccept()
{
    for (const auto &[provoke, text] : violationCases) {
        const RowName row{text};
        Wire wire;
        QStringList reported;
        wire.boards().onViolation = [&reported](const QString &violation) {
            reported << violation;
        };
        Pic18Memory &memory = wire.memory();
        const QByteArray configuration = memory.configuration().bytes();
        wire.enter();
        QCOMPARE(wire.violations(), QStringList());
        provoke(wire);
        QVERIFY2(reported.value(0).contains(text), qPrintable(reported.join('\n')));
        QCOMPARE(wire.violations(), reported);
        QVERIFY(memory.programMemory().bytes() == QByteArray(0x10000, '\xFF'));
        QVERIFY(memory.eeprom().bytes() == QByteArray(1024, '\xFF'));
        QCOMPARE(memory.configuration().bytes(), configuration);
    }
}

void Pic18TargetTest::erasesTheRegionsOfItsKeys()
{
    const std::tuple<Word, int, int> regions[] = {{0x0081, 0, 0x2000},      {0x0180, 0x2000, 0x4000},
                                                  {0x0280, 0x4000, 0x8000}, {0x2080, 0x14000, 0x18000},
                                                  {0x0084, 0, 0},           {0x3F8F, 0, 0x18000}};
    for (const auto &[keys, begin, end] : regions) {
        const RowName row{QString::number(keys, 16)};
        Wire wire(Pic18Device::pic18f4685);
        Pic18Memory &memory = wire.memory();
        memory.configuration()[6] |= 0x20; // the largest boot block
        memory.programMemory().fill('\0');
        memory.eeprom().fill('\0');
        wire.enter().bulkErase(keys);
        QVERIFY(memory.programMemory().bytes() ==
                QByteArray(0x18000, '\0').replace(begin, end - begin, QByteArray(end - begin, '\xFF')));
        QCOMPARE(static_cast<int>(memory.eeprom()[0]), (keys & 0x04) ? 0xFF : 0x00);
        QCOMPARE(wire.violations(), QStringList());
    }
}

void Pic18TargetTest::ignoresWritesToProtectedMemory()
{
    const std::tuple<const char *, Word, Word, Word, Word> rows[] = {
        {"WRT0", 0x30000A, 0x0E, 0x800, 0x0180}, {"WRT3", 0x30000A, 0x07, 0xFFC0, 0x0880},
        {"CP1", 0x300008, 0x0D, 0x4000, 0x0280}, {"WRTB", 0x30000B, 0xA000, 0x7C0, 0x0081},
        {"CPB", 0x300009, 0x8000, 0x0, 0x0081},  {"WRTC", 0x30000B, 0xC000, 0x300001, 0x0082}};
    for (const auto &[bit, configuration, value, address, keys] : rows) {
        const RowName row{bit};
        Wire wire;
        const bool isProgram = address < 0x300000;
        const KeptMemory &memory = isProgram ? wire.memory().programMemory() : wire.memory().configuration();
        const Word cell = address % 0x300000;
        wire.enter().write(address, 0x0707).write(configuration, value);
        QCOMPARE(wire.violations(), QStringList());
        wire.write(address, 0x0202);
        if (isProgram)
            wire.eraseRow(address);
        QCOMPARE(static_cast<int>(memory[cell]), 0x07);
        const int count = wire.violations().filter("write ignored: protected memory at 0x").size();
        QCOMPARE(count, isProgram ? 2 : 1);
        wire.bulkErase(keys).write(address, 0x0202);
        QCOMPARE(static_cast<int>(memory[cell]), 0x02);
        QCOMPARE(wire.violations().size(), count);
    }
}

void Pic18TargetTest::writesItsEepromInFourMilliseconds()
{
    Wire wire;
    const auto isWriting = [&wire] {
        return wire.core(moveEecon1ToW, moveWToTablat, noOperation).receive(0x2) & 0x02;
    };
    wire.enter().writeEeprom(0x3FF, 0x5A).wait(eepromWrite - p10);
    QVERIFY(isWriting());
    wire.wait(p10);
    QVERIFY(!isWriting());
    QCOMPARE(static_cast<int>(wire.memory().eeprom()[0x3FF]), 0x5A);
    QCOMPARE(wire.violations(), QStringList());
    wire.write(0x30000B, 0x6000).writeEeprom(0x3FF, 0).wait(eepromWrite).core(0); // WRTD
    QVERIFY(wire.violations().value(0).contains("EEPROM write ignored"));
    QCOMPARE(static_cast<int>(wire.memory().eeprom()[0x3FF]), 0x5A);
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
        QCOMPARE(static_cast<int>(wire.memory().programMemory()[0x41]), last < 1 ? 0xFF : 0xBE);
        QCOMPARE(static_cast<int>(wire.memory().configuration()[1]), last < 2 ? 0x07 : 0x02);
        QCOMPARE(static_cast<int>(wire.memory().eeprom()[0x3FF]), last < 3 ? 0xFF : 0x5A);
    }
    QCOMPARE(QDir(folder.path()).entryList({"pic2.*"}),
             QStringList({"pic2.configuration", "pic2.eeprom", "pic2.program", "pic2.userid"}));
}

QTEST_GUILESS_MAIN(Pic18TargetTest)
#include "Pic18TargetTest.moc"
