#include "simulator/models/pic/Pic18Target.h"

namespace simulator {

namespace {

// Minimum times of the data sheets in nanoseconds, at a supply of 5 V. The gaps between command, operand and data (P5,
// P6) are no longer than a low clock.
const qint64 mclrLow = 2000;
const qint64 p2ClockPeriod = 100;
const qint64 p2aClockLow = 40;
const qint64 p2bClockHigh = 40;
const qint64 p3DataSetup = 15;
const qint64 p4DataHold = 15;
const qint64 p9Programming = 1000000;
const qint64 p10Discharge = 100000;
const qint64 p11BulkErase = 5000000;
const qint64 p12EntryHold = 2000;

// 4-bit commands. The low two bits of a table command are its mode.
const unsigned int coreInstruction = 0x0;
const unsigned int shiftOutTablat = 0x2;
const unsigned int tableRead = 0x8;
const unsigned int tableWrite = 0xC;
const unsigned int modeBits = 0x3;

const int commandBits = 4;
const int operandBits = 16;
const int byteBits = 8;

} // namespace

Pic18Target::Pic18Target(const Pic18Device &device, const QString &name, BoardMonitor &monitor)
    : m_Monitor(monitor), m_Name(name), m_Memory(device, 7), m_Core(m_Memory, monitor, name)
{}

void Pic18Target::report(const char *text)
{
    m_Monitor.violation(m_Name, QLatin1String(text));
}

void Pic18Target::requireAtLeast(qint64 minimum, qint64 actual, const char *what)
{
    if (actual >= minimum)
        return;
    m_Monitor.violation(
        m_Name,
        QString::fromLatin1("%1 of %2 ns, at least %3 ns needed").arg(QLatin1String(what)).arg(actual).arg(minimum));
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
    const qint64 now = m_Monitor.now();
    if (m_ProgrammingMode) {
        if (m_Core.isWritePending())
            report("programming mode left during P9: the write is lost");
        else if (now < m_RestEnd)
            report("programming mode left before the end of a write or erase");
        m_Core.reset();
    }
    m_ProgrammingMode = !m_Absent && lines.mclr == Mclr::ProgrammingVoltage && !lines.pgc && !lines.pgd;
    if (m_ProgrammingMode && m_Lines.mclr == Mclr::Low) // a chip that runs its program does not notice a shorter one
        requireAtLeast(mclrLow, now - m_MclrChange, "reset pulse");
    m_Lines.pgc = lines.pgc;
    m_Lines.pgd = lines.pgd;
    m_MclrChange = now;
    m_LastRise.reset();
    m_LastFall.reset();
    m_LastDataChange = m_EraseEnd = m_RestEnd = 0;
    m_DataOut.reset();
    beginPhase(Phase::Command, commandBits);
}

void Pic18Target::dataChanges(bool level)
{
    const qint64 now = m_Monitor.now();
    m_LastDataChange = now;
    requireAtLeast(p12EntryHold, now - m_MclrChange, "entry hold time");
    if (m_LastFall)
        requireAtLeast(p4DataHold, now - *m_LastFall, "data hold time");
    if (level && now < m_EraseEnd)
        report("PGD high during a bulk erase");
}

// While the chip erases itself the clock may run, but not once its high voltage discharges.
void Pic18Target::clockRises(bool dataDriven)
{
    const qint64 now = m_Monitor.now();
    requireAtLeast(p12EntryHold, now - m_MclrChange, "entry hold time");
    if (m_LastRise)
        requireAtLeast(p2ClockPeriod, now - *m_LastRise, "clock period");
    if (m_LastFall)
        requireAtLeast(p2aClockLow, now - *m_LastFall, "clock low time");
    if (now >= m_EraseEnd && now < m_RestEnd)
        report("clocked before the end of a write or erase");
    m_LastRise = now;

    m_DataOut.reset();
    if (m_Phase == Phase::DataOut) {
        m_DataOut = m_Shift & 1;
        m_Shift >>= 1;
    }
    if (dataDriven == m_DataOut.has_value())
        report(dataDriven ? "PGD driven from both ends" : "PGD not driven at a clock");
}

// The serial interface rests while the chip erases itself.
void Pic18Target::clockFalls()
{
    const qint64 now = m_Monitor.now();
    requireAtLeast(p2bClockHigh, now - m_LastRise.value_or(m_MclrChange), "clock high time");
    if (m_Phase != Phase::DataOut)
        requireAtLeast(p3DataSetup, now - m_LastDataChange, "data setup time");
    m_LastFall = now;
    if (now < m_EraseEnd)
        return;
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

    if (m_Command == coreInstruction || m_Command >= tableWrite)
        return beginPhase(Phase::Operand, operandBits);
    if (m_Command == shiftOutTablat) {
        m_Core.latchTablat();
    } else if (m_Command >= tableRead) {
        m_Core.tableRead(m_Command & modeBits);
    } else {
        report("unknown command");
        return beginPhase(Phase::Command, commandBits);
    }
    beginPhase(Phase::ReadOperand, byteBits);
}

void Pic18Target::completeOperand()
{
    if (m_Command == coreInstruction)
        m_Core.execute(m_Shift);
    else
        m_Core.tableWrite(m_Command & modeBits, m_Shift);
    beginPhase(Phase::Command, commandBits);
}

// The write lasts as long as the fourth clock of the NOP behind it is high.
void Pic18Target::endHeldClock()
{
    const qint64 now = m_Monitor.now();
    const qint64 held = now - m_LastRise.value_or(now);
    if (m_Command != coreInstruction)
        report("no NOP follows a programming command");
    requireAtLeast(p9Programming, held, "programming time");
    if (m_Command == coreInstruction && held >= p9Programming)
        m_Core.completeWrite();
    else
        m_Core.abandonWrite();
    m_RestEnd = now + p10Discharge;
}

void Pic18Target::startBulkErase()
{
    if (m_Command != coreInstruction)
        return report("no second NOP follows the bulk erase keys");
    m_Core.bulkErase();
    m_EraseEnd = m_Monitor.now() + p11BulkErase;
    m_RestEnd = m_EraseEnd + p10Discharge;
}

} // namespace simulator
