#include "simulator/models/pic/Pic18Core.h"

#include "simulator/models/pic/Violations.h"
#include "simulator/models/pic/VirtualClock.h"

namespace simulator {

namespace {

// Special function registers, by their low address byte.
const unsigned int sfrEecon1 = 0xA6;
const unsigned int sfrEedata = 0xA8;
const unsigned int sfrEeadr = 0xA9;
const unsigned int sfrEeadrh = 0xAA;
const unsigned int sfrTablat = 0xF5;
const unsigned int sfrTblptrl = 0xF6;
const unsigned int sfrTblptrh = 0xF7;
const unsigned int sfrTblptru = 0xF8;

// Bits of EECON1.
const unsigned char rd = 0x01;
const unsigned char wr = 0x02;
const unsigned char wren = 0x04;
const unsigned char freeRow = 0x10;
const unsigned char cfgs = 0x40;
const unsigned char eepgd = 0x80;

const unsigned int tablePointerMask = 0x3FFFFF;
const unsigned int eraseKeyLowAddress = 0x3C0004;
const unsigned int eraseKeyHighAddress = 0x3C0005;

QString hexadecimal(unsigned int value)
{
    return QLatin1String("0x") + QString::number(value, 16).toUpper();
}

unsigned int withByte(unsigned int word, int byte, unsigned char value)
{
    const int shift = 8 * byte;
    return (word & ~(0xFFU << shift)) | static_cast<unsigned int>(value) << shift;
}

unsigned char halfFor(unsigned int address, unsigned int operand)
{
    return static_cast<unsigned char>(address & 1 ? operand >> 8 : operand);
}

} // namespace

Pic18Core::Pic18Core(Pic18Memory &memory, const VirtualClock &clock, Violations &violations, const QString &name)
    : m_Memory(memory), m_Clock(clock), m_Violations(violations), m_Name(name)
{}

void Pic18Core::report(const QString &text)
{
    m_Violations.record(m_Name, text);
}

void Pic18Core::reset()
{
    settleEepromWrite();
    if (isSet(wr) && !isSet(eepgd))
        report(QLatin1String("reset during an EEPROM write"));
    m_Eecon1 = 0;
    m_Latches.clear();
    m_WritePending = false;
    m_BulkErase = BulkErase::Idle;
}

void Pic18Core::execute(unsigned int instruction)
{
    settleEepromWrite();
    const unsigned int operand = instruction & 0xFF;
    const unsigned int operation = instruction >> 8;
    const bool bitOfEecon1 = operand == sfrEecon1 && (operation & 1) == 0;
    if (instruction == 0x0000) {
        if (m_BulkErase == BulkErase::KeysLoaded)
            m_BulkErase = BulkErase::Ready;
    } else if (operation == 0x0E) {
        m_W = static_cast<unsigned char>(operand);
    } else if (operation == 0x6E) {
        moveWTo(operand);
    } else if (operation == 0x50) {
        moveToW(operand);
    } else if (bitOfEecon1 && (operation & 0xF0) == 0x80) {
        changeEecon1(operation >> 1 & 7, true);
    } else if (bitOfEecon1 && (operation & 0xF0) == 0x90) {
        changeEecon1(operation >> 1 & 7, false);
    } else {
        report(QLatin1String("unknown core instruction ") + hexadecimal(instruction));
    }
}

void Pic18Core::moveWTo(unsigned int file)
{
    switch (file) {
    case sfrEedata:
        m_Eedata = m_W;
        break;
    case sfrEeadr:
        m_Eeadr = m_W;
        break;
    case sfrEeadrh:
        m_Eeadrh = m_W;
        break;
    case sfrTablat:
        m_Tablat = m_W;
        break;
    case sfrTblptrl:
        m_TablePointer = withByte(m_TablePointer, 0, m_W);
        break;
    case sfrTblptrh:
        m_TablePointer = withByte(m_TablePointer, 1, m_W);
        break;
    case sfrTblptru:
        m_TablePointer = withByte(m_TablePointer, 2, m_W) & tablePointerMask;
        break;
    default:
        report(QLatin1String("write to unknown register ") + hexadecimal(file));
        break;
    }
}

void Pic18Core::moveToW(unsigned int file)
{
    switch (file) {
    case sfrEecon1:
        m_W = m_Eecon1;
        break;
    case sfrEedata:
        m_W = m_Eedata;
        break;
    case sfrTablat:
        m_W = m_Tablat;
        break;
    default:
        report(QLatin1String("read of unknown register ") + hexadecimal(file));
        break;
    }
}

void Pic18Core::changeEecon1(unsigned int bit, bool set)
{
    const unsigned char mask = static_cast<unsigned char>(1U << bit);
    if (!set) {
        if (mask != wr && mask != rd) // only the device clears these two
            m_Eecon1 = m_Eecon1 & static_cast<unsigned char>(~mask);
    } else if (mask == rd) {
        if (!isSet(eepgd) && !isSet(cfgs))
            m_Eedata = m_Memory.readEeprom(eepromAddress());
    } else if (mask == wr) {
        startWrite();
    } else {
        m_Eecon1 |= mask;
    }
}

void Pic18Core::startWrite()
{
    if (!isSet(wren)) {
        report(QLatin1String("write started while EECON1 does not enable writes"));
        return;
    }
    m_Eecon1 |= wr;
    if (isSet(eepgd))
        prepareWrite();
    else
        m_EepromWriteEnd = m_Clock.now() + m_EepromWriteTime;
}

void Pic18Core::settleEepromWrite()
{
    if (!isSet(wr) || isSet(eepgd) || m_Clock.now() < m_EepromWriteEnd)
        return;
    m_Memory.writeEeprom(eepromAddress(), m_Eedata);
    m_Eecon1 = m_Eecon1 & static_cast<unsigned char>(~wr);
}

void Pic18Core::tableRead()
{
    m_Tablat = m_Memory.read(m_TablePointer);
}

void Pic18Core::moveTablePointer(int distance)
{
    m_TablePointer = (m_TablePointer + static_cast<unsigned int>(distance)) & tablePointerMask;
}

// A word goes into two latches, the low byte into that of the even address.
void Pic18Core::tableWrite(unsigned int operand)
{
    if (m_TablePointer == eraseKeyHighAddress) {
        m_EraseKeyHigh = halfFor(m_TablePointer, operand);
    } else if (m_TablePointer == eraseKeyLowAddress) {
        m_EraseKeyLow = halfFor(m_TablePointer, operand);
        m_BulkErase = BulkErase::KeysLoaded;
    } else {
        const unsigned int even = m_TablePointer % Pic18Memory::rowSize & ~1U;
        m_Latches[even] = halfFor(0, operand);
        m_Latches[even + 1] = halfFor(1, operand);
    }
}

void Pic18Core::startProgramming()
{
    const bool configuration = Pic18Memory::isConfiguration(m_TablePointer);
    if (!isSet(eepgd) || isSet(cfgs) != configuration ||
        !(configuration || m_Memory.isProgramOrUserId(m_TablePointer))) {
        report(QLatin1String("programming started with EECON1 ") + hexadecimal(m_Eecon1) +
               QLatin1String(" and table pointer ") + hexadecimal(m_TablePointer));
        m_Latches.clear();
    }
    prepareWrite();
}

void Pic18Core::prepareWrite()
{
    m_WriteAddress = m_TablePointer;
    m_WritePending = true;
}

void Pic18Core::completeWrite()
{
    if (isSet(wr) && isSet(freeRow))
        m_Memory.eraseRow(m_WriteAddress);
    else
        programLatches();
    abandonWrite();
}

void Pic18Core::abandonWrite()
{
    m_Eecon1 = m_Eecon1 & static_cast<unsigned char>(~(wr | freeRow));
    m_Latches.clear();
    m_WritePending = false;
}

// Configuration memory is written byte by byte, the others by the row.
void Pic18Core::programLatches()
{
    const unsigned int position = m_WriteAddress % Pic18Memory::rowSize;
    const unsigned int row = m_WriteAddress - position;
    for (auto latch = m_Latches.cbegin(); latch != m_Latches.cend(); ++latch) {
        if (!isSet(cfgs) || latch.key() == position)
            programByte(row + latch.key(), latch.value());
    }
}

void Pic18Core::programByte(unsigned int address, unsigned char value)
{
    if (!m_Memory.program(address, value))
        report(QString::fromLatin1("no bit can rise from 0 to 1 when %1 is written at %2")
                   .arg(hexadecimal(value), hexadecimal(address)));
}

void Pic18Core::bulkErase()
{
    if (!m_Memory.eraseRegion(m_EraseKeyHigh, m_EraseKeyLow))
        report(QLatin1String("unknown bulk erase keys ") + hexadecimal(m_EraseKeyHigh * 256U + m_EraseKeyLow));
    m_BulkErase = BulkErase::Idle;
}

} // namespace simulator
