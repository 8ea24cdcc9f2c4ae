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
const unsigned int commandMask = 0xF;
const unsigned int modeBits = 0x3;

// After the command come 16 bits of operand; in a read the chip drives the second half.
const int commandBits = 4;
const int dataOutBegin = 12;
const int allBits = 20;

} // namespace

Pic18Target::Pic18Target(const Pic18Device &device, const QString &name, BoardMonitor &monitor)
    : m_Monitor(monitor), m_Memory(device), m_Core(m_Memory, monitor, name)
{}

void Pic18Target::requireSince(qint64 begin, qint64 minimum, const char *what)
{
    const qint64 actual = m_Monitor.now() - begin;
    if (actual < minimum)
        m_Core.report(QString("%1 of %2 ns, at least %3 ns needed").arg(what).arg(actual).arg(minimum));
}

std::optional<bool> Pic18Target::dataOut() const
{
    return m_Absent ? m_Absent : m_DataOut;
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
        if (m_Core.isWritePending())
            m_Core.report("programming mode left during P9: the write is lost");
        else if (m_Monitor.now() < m_RestEnd)
            m_Core.report("programming mode left before the end of a write or erase");
        m_Core.reset();
    }
    m_ProgrammingMode = !m_Absent && lines.mclr == Mclr::ProgrammingVoltage && !lines.pgc && !lines.pgd;
    if (m_ProgrammingMode && m_Lines.mclr == Mclr::Low) // a chip that runs its program does not notice a shorter one
        requireSince(m_MclrChange, mclrLow, "reset pulse");
    m_Lines.pgc = lines.pgc;
    m_Lines.pgd = lines.pgd;
    m_MclrChange = m_Monitor.now();
    m_LastRise = m_LastFall = m_LastDataChange = m_EraseEnd = m_RestEnd = 0;
    m_DataOut.reset();
    m_Bit = 0;
    m_Shift = 0;
}

void Pic18Target::dataChanges(bool level)
{
    m_LastDataChange = m_Monitor.now();
    requireSince(m_MclrChange, p12EntryHold, "entry hold time");
    requireSince(m_LastFall, p4DataHold, "data hold time");
    if (level && m_Monitor.now() < m_EraseEnd)
        m_Core.report("PGD high during a bulk erase");
}

// While the chip erases itself the clock may run, but not once its high voltage discharges.
void Pic18Target::clockRises(bool dataDriven)
{
    const qint64 now = m_Monitor.now();
    requireSince(m_MclrChange, p12EntryHold, "entry hold time");
    requireSince(m_LastRise, p2ClockPeriod, "clock period");
    requireSince(m_LastFall, p2aClockLow, "clock low time");
    if (now >= m_EraseEnd && now < m_RestEnd)
        m_Core.report("clocked before the end of a write or erase");
    m_LastRise = now;

    m_DataOut.reset();
    if (isShiftingOut())
        m_DataOut = m_Core.tablat() >> (m_Bit - dataOutBegin) & 1;
    if (dataDriven == m_DataOut.has_value())
        m_Core.report(dataDriven ? "PGD driven from both ends" : "PGD not driven at a clock");
}

// The serial interface rests while the chip erases itself.
void Pic18Target::clockFalls()
{
    requireSince(m_LastRise, p2bClockHigh, "clock high time");
    if (!isShiftingOut())
        requireSince(m_LastDataChange, p3DataSetup, "data setup time");
    m_LastFall = m_Monitor.now();
    if (m_LastFall < m_EraseEnd)
        return;
    if (m_Lines.pgd)
        m_Shift |= 1U << m_Bit;
    ++m_Bit;
    if (m_Bit == commandBits)
        completeCommand();
    else if (m_Bit == allBits)
        completeOperand();
}

bool Pic18Target::isShiftingOut() const
{
    const unsigned int command = m_Shift & commandMask;
    return m_Bit >= dataOutBegin && command != coreInstruction && command < tableWrite;
}

void Pic18Target::completeCommand()
{
    if (m_Core.isWritePending())
        endHeldClock();
    else if (m_Core.isBulkEraseReady())
        startBulkErase();

    if (m_Shift == shiftOutTablat) {
        m_Core.latchTablat();
    } else if (m_Shift >= tableRead && m_Shift < tableWrite) {
        m_Core.tableRead(m_Shift & modeBits);
    } else if (m_Shift != coreInstruction && m_Shift < tableWrite) {
        m_Core.report("unknown command");
        m_Bit = 0;
        m_Shift = 0;
    }
}

void Pic18Target::completeOperand()
{
    const unsigned int command = m_Shift & commandMask;
    const unsigned int operand = m_Shift >> commandBits;
    m_Bit = 0;
    m_Shift = 0;
    if (command == coreInstruction)
        m_Core.execute(operand);
    else if (command >= tableWrite)
        m_Core.tableWrite(command & modeBits, operand);
}

// The write lasts as long as the fourth clock of the NOP after it is high.
void Pic18Target::endHeldClock()
{
    if (m_Shift != coreInstruction)
        m_Core.report("no NOP follows a programming command");
    requireSince(m_LastRise, p9Programming, "programming time");
    m_Core.endWrite(m_Shift == coreInstruction && m_LastFall - m_LastRise >= p9Programming);
    m_RestEnd = m_LastFall + p10Discharge;
}

void Pic18Target::startBulkErase()
{
    if (m_Shift != coreInstruction)
        return m_Core.report("no second NOP follows the bulk erase keys");
    m_Core.bulkErase();
    m_EraseEnd = m_LastFall + p11BulkErase;
    m_RestEnd = m_EraseEnd + p10Discharge;
}

} // namespace simulator
