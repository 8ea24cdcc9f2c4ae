#include "simulator/models/pic/Pic18Core.h"

namespace simulator {

namespace {

// Bits of EECON1.
const unsigned char rd = 0x01;
const unsigned char wr = 0x02;
const unsigned char wren = 0x04;
const unsigned char wrerr = 0x08;
const unsigned char freeRow = 0x10;
const unsigned char cfgs = 0x40;
const unsigned char eepgd = 0x80;

const unsigned int lowEraseKeyAddress = 0x3C0004;
const unsigned int highEraseKeyAddress = 0x3C0005;

} // namespace

// EEPGD and CFGS are unknown after power-on: they are set here, and a use before they are written is a violation.
Pic18Core::Pic18Core(Pic18Memory &memory, BoardMonitor &monitor, const QString &name)
    : m_Memory(memory), m_Monitor(monitor), m_Name(name), m_UndefinedBits(eepgd | cfgs)
{
    m_Registers[sfrEecon1] = eepgd | cfgs | wrerr;
}

void Pic18Core::reset()
{
    settleEepromWrite();
    if (isSet(wr) && !isSet(eepgd))
        report("reset during an EEPROM write");
    const unsigned char kept = m_Registers[sfrEecon1] & (eepgd | cfgs | wrerr);
    m_Registers.fill(0);
    m_Registers[sfrEecon1] = kept;
    m_TablatLatched = true;
    m_Latches.clear();
    m_WritePending = false;
    m_HighEraseKey.reset();
    m_BulkErase = BulkErase::Idle;
}

void Pic18Core::execute(unsigned int instruction)
{
    settleEepromWrite();
    const unsigned int operand = instruction & 0xFF;
    const unsigned int operation = instruction >> 8;
    const bool bitOfEecon1 = operand == sfrEecon1 && (operation & 1) == 0;
    if (instruction == 0x0000) {
        m_TablatLatched = true;
        if (m_BulkErase == BulkErase::KeysLoaded)
            m_BulkErase = BulkErase::Ready;
    } else if (operation == 0x0E) {
        m_W = static_cast<unsigned char>(operand);
    } else if (operation == 0x6E && operand != sfrEecon1) {
        m_Registers[operand] = m_W;
        m_TablatLatched = m_TablatLatched && operand != sfrTablat;
    } else if (operation == 0x50) {
        m_W = m_Registers[operand];
    } else if (bitOfEecon1 && (operation & 0xE0) == 0x80) {
        changeEecon1(static_cast<unsigned char>(1U << (operation >> 1 & 7)), (operation & 0x10) == 0);
    } else {
        report(QString::asprintf("unknown core instruction 0x%X", instruction));
    }
}

void Pic18Core::changeEecon1(unsigned char mask, bool set)
{
    unsigned char &eecon1 = m_Registers[sfrEecon1];
    m_UndefinedBits &= static_cast<unsigned char>(~mask);
    if (!set) {
        if (mask != wr && mask != rd) // only the device clears these two
            eecon1 &= static_cast<unsigned char>(~mask);
    } else if (mask == rd) {
        if (selects(0, "EEPROM read"))
            m_Registers[sfrEedata] = m_Memory.readEeprom(eepromAddress());
    } else if (mask == wr && !isSet(wren)) {
        report("write started while EECON1 does not enable writes");
    } else {
        eecon1 |= mask;
        if (mask == wr && isSet(eepgd))
            startProgramming();
        else if (mask == wr && selects(0, "EEPROM write"))
            m_EepromWriteEnd = m_Monitor.now() + eepromWriteTime;
    }
}

/// EECON1 must select the memory (none of EEPGD and CFGS: the EEPROM), and not by what it held by accident.
bool Pic18Core::selects(unsigned char memory, const char *action)
{
    if (!m_UndefinedBits && (m_Registers[sfrEecon1] & (eepgd | cfgs)) == memory)
        return true;
    report(QString::asprintf("%s with EECON1 0x%X%s and table pointer 0x%X", action, m_Registers[sfrEecon1],
                             m_UndefinedBits ? ", not set since power-on," : "", tablePointer()));
    return false;
}

void Pic18Core::settleEepromWrite()
{
    if (!isSet(wr) || isSet(eepgd) || m_Monitor.now() < m_EepromWriteEnd)
        return;
    m_Registers[sfrEecon1] &= static_cast<unsigned char>(~wr);
    if (m_Memory.writeEeprom(eepromAddress(), m_Registers[sfrEedata]))
        m_Monitor.moment(m_Name.toLower() + " eeprom");
    else
        report("EEPROM write ignored: the EEPROM is protected");
}

unsigned int Pic18Core::tablePointer() const
{
    return (m_Registers[sfrTblptru] & 0x3F) * 0x10000U + m_Registers[sfrTblptrh] * 0x100U + m_Registers[sfrTblptrl];
}

void Pic18Core::moveTablePointer(unsigned int distance)
{
    const unsigned int pointer = tablePointer() + distance;
    m_Registers[sfrTblptrl] = static_cast<unsigned char>(pointer);
    m_Registers[sfrTblptrh] = static_cast<unsigned char>(pointer >> 8);
    m_Registers[sfrTblptru] = static_cast<unsigned char>(pointer >> 16);
}

// The pointer stays, moves after the read up or down, or moves up before it.
void Pic18Core::tableRead(unsigned int mode)
{
    if (mode == 3)
        moveTablePointer(1);
    m_Registers[sfrTablat] = m_Memory.read(tablePointer());
    if (mode == 1 || mode == 2)
        moveTablePointer(mode == 1 ? 1 : -1U);
}

void Pic18Core::latchTablat()
{
    if (!m_TablatLatched)
        report("no NOP between the write of TABLAT and its shift out");
}

// The pointer moves on in modes 1 and 2; modes 2 and 3 start programming. A word goes into two latches, the low byte
// into that of the even address.
void Pic18Core::tableWrite(unsigned int mode, unsigned int operand)
{
    const unsigned int pointer = tablePointer();
    if (pointer == lowEraseKeyAddress || pointer == highEraseKeyAddress) {
        loadEraseKey(operand);
    } else {
        const unsigned int even = pointer % Pic18Memory::rowSize & ~1U;
        m_Latches[even] = static_cast<unsigned char>(operand);
        m_Latches[even + 1] = static_cast<unsigned char>(operand >> 8);
    }
    if (mode >= 2)
        startProgramming();
    if (mode == 1 || mode == 2)
        moveTablePointer(2);
}

void Pic18Core::loadEraseKey(unsigned int operand)
{
    const unsigned int key = operand & 0xFF;
    if (key != operand >> 8)
        report(QString::asprintf("both halves of a bulk erase key differ: 0x%X", operand));
    else if (tablePointer() == highEraseKeyAddress)
        m_HighEraseKey = key;
    else if (!m_HighEraseKey)
        report("low bulk erase key before the high one");
    else {
        m_EraseKeys = *m_HighEraseKey << 8 | key;
        m_BulkErase = BulkErase::KeysLoaded;
        m_HighEraseKey.reset();
    }
}

void Pic18Core::bulkErase()
{
    m_BulkErase = BulkErase::Idle;
    if (m_Memory.bulkErase(m_EraseKeys))
        m_Monitor.moment(m_Name.toLower() + " erase");
    else
        report(QString::asprintf("unknown bulk erase keys 0x%X", m_EraseKeys));
}

void Pic18Core::startProgramming()
{
    const unsigned int pointer = tablePointer();
    m_WritePending = true;
    m_WriteAddress.reset();
    if (!m_Memory.isProgrammable(pointer))
        report(QString::asprintf("programming started at 0x%X, where no memory is", pointer));
    else if (selects(Pic18Memory::isConfiguration(pointer) ? eepgd | cfgs : eepgd, "programming started"))
        m_WriteAddress = pointer;
}

void Pic18Core::endWrite(bool heldLongEnough)
{
    if (heldLongEnough && m_WriteAddress) {
        if (m_Memory.isWriteProtected(*m_WriteAddress))
            report(QString::asprintf("write ignored: protected memory at 0x%X", *m_WriteAddress));
        else if (isSet(wr) && isSet(freeRow))
            m_Memory.eraseRow(*m_WriteAddress);
        else
            programLatches(*m_WriteAddress);
    }
    m_Registers[sfrEecon1] &= static_cast<unsigned char>(~(wr | freeRow));
    m_Latches.clear();
    m_WritePending = false;
}

// Configuration memory is written byte by byte, the others by the row.
void Pic18Core::programLatches(unsigned int address)
{
    const bool configuration = Pic18Memory::isConfiguration(address);
    const unsigned int row = address / Pic18Memory::rowSize * Pic18Memory::rowSize;
    for (const auto &[position, value] : m_Latches) {
        if (!configuration || row + position == address)
            m_Memory.program(row + position, value);
    }
    m_Monitor.moment(m_Name.toLower() + (configuration ? " configuration" : " row"));
}

} // namespace simulator
