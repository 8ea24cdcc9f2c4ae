#include "simulator/models/pic/Pic18Target.h"

#include "simulator/models/pic/Violations.h"
#include "simulator/models/pic/VirtualClock.h"

namespace simulator {

namespace {

// Minimum times of the programming data sheet in nanoseconds, at a supply of 5 V.
const qint64 p2ClockPeriod = 100;
const qint64 p2aClockLow = 40;
const qint64 p2bClockHigh = 40;
const qint64 p3DataSetup = 15;
const qint64 p4DataHold = 15;
const qint64 p9Programming = 1000000;
const qint64 p10Discharge = 100000;
const qint64 p11BulkErase = 5000000;
const qint64 p12EntryHold = 2000;

enum Command {
    CoreInstruction = 0x0,
    ShiftOutTablat = 0x2,
    TableRead = 0x8,
    TableReadPostIncrement = 0x9,
    TableReadPostDecrement = 0xA,
    TableReadPreIncrement = 0xB,
    TableWrite = 0xC,
    TableWritePostIncrement = 0xD,
    TableWriteStartProgrammingPostIncrement = 0xE,
    TableWriteStartProgramming = 0xF
};

const int commandBits = 4;
const int operandBits = 16;
const int byteBits = 8;

} // namespace

Pic18Target::Pic18Target(const Pic18Device &device, const QString &name, const VirtualClock &clock,
                         Violations &violations)
    : m_Clock(clock),
      m_Violations(violations),
      m_Name(name),
      m_Memory(device, 7),
      m_Core(m_Memory, clock, violations, name)
{}

void Pic18Target::report(const QString &text)
{
    m_Violations.record(m_Name, text);
}

void Pic18Target::requireAtLeast(qint64 minimum, qint64 actual, const char *what)
{
    if (actual >= minimum)
        return;
    report(QString::fromLatin1("%1 of %2 ns, at least %3 ns needed").arg(QLatin1String(what)).arg(actual).arg(minimum));
}

std::optional<bool> Pic18Target::dataOut() const
{
    if (m_Absent && m_Lines.mclr != Mclr::Low)
        return m_Absent;
    return m_DataOut;
}

void Pic18Target::drive(const Lines &lines)
{
    if (lines.mclr != m_Lines.mclr)
        changeMclr(lines);
    if (m_ProgrammingMode) {
        if (lines.dataDriven && lines.pgd != m_Lines.pgd)
            dataChanges(lines.pgd);
        m_Lines.pgd = lines.dataDriven ? lines.pgd : m_Lines.pgd;
        if (lines.pgc && !m_Lines.pgc)
            clockRises(lines.dataDriven);
        else if (!lines.pgc && m_Lines.pgc)
            clockFalls();
    }
    m_Lines.mclr = lines.mclr;
    m_Lines.pgc = lines.pgc;
}

void Pic18Target::changeMclr(const Lines &lines)
{
    if (m_ProgrammingMode) {
        if (m_Clock.now() < m_RestEnd)
            report(QLatin1String("programming mode left before the end of a write or erase"));
        m_Core.reset();
    }
    m_ProgrammingMode = !m_Absent && lines.mclr == Mclr::ProgrammingVoltage && !lines.pgc && !lines.pgd;
    m_Lines.pgc = lines.pgc;
    m_Lines.pgd = lines.pgd;
    m_Entry = m_Clock.now();
    m_LastRise.reset();
    m_LastFall.reset();
    m_LastDataChange = m_EraseEnd = m_RestEnd = 0;
    m_DataOut.reset();
    beginPhase(Phase::Command, commandBits);
}

void Pic18Target::dataChanges(bool level)
{
    const qint64 now = m_Clock.now();
    m_LastDataChange = now;
    if (m_LastFall)
        requireAtLeast(p4DataHold, now - *m_LastFall, "data hold time");
    if (level && now < m_EraseEnd)
        report(QLatin1String("PGD high during a bulk erase"));
}

void Pic18Target::clockRises(bool dataDriven)
{
    const qint64 now = m_Clock.now();
    if (!m_LastRise)
        requireAtLeast(p12EntryHold, now - m_Entry, "entry hold time");
    else
        requireAtLeast(p2ClockPeriod, now - *m_LastRise, "clock period");
    if (m_LastFall)
        requireAtLeast(p2aClockLow, now - *m_LastFall, "clock low time");
    if (now < m_RestEnd)
        report(QString::fromLatin1("clocked %1 ns before the end of a write or erase").arg(m_RestEnd - now));
    m_LastRise = now;

    m_DataOut.reset();
    if (m_Phase == Phase::DataOut) {
        m_DataOut = m_Shift & 1;
        m_Shift >>= 1;
        if (dataDriven)
            report(QLatin1String("PGD driven from both ends"));
    }
}

void Pic18Target::clockFalls()
{
    const qint64 now = m_Clock.now();
    requireAtLeast(p2bClockHigh, now - m_LastRise.value_or(m_Entry), "clock high time");
    if (m_Phase == Phase::Command || m_Phase == Phase::Operand)
        requireAtLeast(p3DataSetup, now - m_LastDataChange, "data setup time");
    if (now >= m_EraseEnd) // the serial interface rests while the chip erases itself
        takeBit();
    m_LastFall = now;
}

void Pic18Target::takeBit()
{
    if (m_Phase != Phase::DataOut && m_Lines.pgd)
        m_Shift |= 1U << m_BitsTaken;
    ++m_BitsTaken;
    if (--m_BitsLeft == 0)
        completePhase();
}

void Pic18Target::beginPhase(Phase phase, int bits)
{
    m_Phase = phase;
    m_BitsLeft = bits;
    m_BitsTaken = 0;
    m_Shift = 0;
}

void Pic18Target::completePhase()
{
    switch (m_Phase) {
    case Phase::Command:
        completeCommand();
        break;
    case Phase::Operand:
        completeOperand();
        break;
    case Phase::ReadOperand:
        beginPhase(Phase::DataOut, byteBits);
        m_Shift = m_Core.tablat();
        break;
    case Phase::DataOut:
        beginPhase(Phase::Command, commandBits);
        break;
    }
}

void Pic18Target::completeCommand()
{
    m_Command = m_Shift;
    if (m_Core.isWritePending())
        endHeldClock();
    else if (m_Core.isBulkEraseReady())
        startBulkErase();

    switch (m_Command) {
    case CoreInstruction:
    case TableWrite:
    case TableWritePostIncrement:
    case TableWriteStartProgrammingPostIncrement:
    case TableWriteStartProgramming:
        beginPhase(Phase::Operand, operandBits);
        return;
    case TableReadPreIncrement:
        m_Core.moveTablePointer(1);
        break;
    case ShiftOutTablat:
    case TableRead:
    case TableReadPostIncrement:
    case TableReadPostDecrement:
        break;
    default:
        report(QString::fromLatin1("unknown command 0x%1").arg(m_Command, 0, 16));
        beginPhase(Phase::Command, commandBits);
        return;
    }
    if (m_Command != ShiftOutTablat)
        m_Core.tableRead();
    if (m_Command == TableReadPostIncrement)
        m_Core.moveTablePointer(1);
    if (m_Command == TableReadPostDecrement)
        m_Core.moveTablePointer(-1);
    beginPhase(Phase::ReadOperand, byteBits);
}

void Pic18Target::completeOperand()
{
    const unsigned int operand = m_Shift;
    if (m_Command == CoreInstruction) {
        m_Core.execute(operand);
    } else {
        m_Core.tableWrite(operand);
        if (m_Command >= TableWriteStartProgrammingPostIncrement)
            m_Core.startProgramming();
    }
    if (m_Command == TableWritePostIncrement || m_Command == TableWriteStartProgrammingPostIncrement)
        m_Core.moveTablePointer(2);
    beginPhase(Phase::Command, commandBits);
}

// The write lasts as long as the fourth clock of the NOP behind it is high.
void Pic18Target::endHeldClock()
{
    const qint64 now = m_Clock.now();
    const qint64 held = now - m_LastRise.value_or(now);
    if (m_Command != CoreInstruction)
        report(QLatin1String("no NOP follows a programming command"));
    requireAtLeast(p9Programming, held, "programming time");
    if (m_Command == CoreInstruction && held >= p9Programming)
        m_Core.completeWrite();
    else
        m_Core.abandonWrite();
    m_RestEnd = now + p10Discharge;
}

void Pic18Target::startBulkErase()
{
    if (m_Command != CoreInstruction) {
        report(QLatin1String("no second NOP follows the bulk erase keys"));
        return;
    }
    m_Core.bulkErase();
    m_EraseEnd = m_Clock.now() + p11BulkErase;
    m_RestEnd = m_EraseEnd + p10Discharge;
}

} // namespace simulator
