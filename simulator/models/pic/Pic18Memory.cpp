#include "simulator/models/pic/Pic18Memory.h"

#include <QtAlgorithms>

namespace simulator {

namespace {

const char erased = '\xFF';
const unsigned int userIdBegin = 0x200000;
const unsigned int userIdSize = 8;
const unsigned int configurationBegin = 0x300000;
const unsigned int configurationSize = 16;
const unsigned int deviceIdBegin = 0x3FFFFE;
const unsigned int revision = 7;
const unsigned int blockSize = 0x4000;
const unsigned int chipErase = 0x3F8F;

// Configuration bytes by index. Of the three kinds of protection each has two bytes: bit n of such a word stands for
// code block n, and a cleared bit protects, if it is implemented.
const unsigned int config4l = 6;
const unsigned int codeProtection = 8;
const unsigned int writeProtection = 10;
const unsigned int protectionEnd = 14;
const unsigned int configurationBit = 0x2000; ///< of write protection only
const unsigned int bootBit = 0x4000;
const unsigned int eepromBit = 0x8000;

const unsigned int bootSizeShift = 4; ///< of BBSIZ in CONFIG4L

} // namespace

Pic18Memory::Pic18Memory(const Pic18Device &device)
    : m_Device(device),
      m_Program(static_cast<int>(device.programSize), erased),
      m_UserId(userIdSize, erased),
      m_Configuration(configurationSize, '\0'),
      m_Eeprom(eepromSize, erased)
{
    bulkErase(chipErase);
}

void Pic18Memory::keepIn(const QString &prefix)
{
    m_Program.keepIn(prefix + "program");
    m_UserId.keepIn(prefix + "userid");
    m_Configuration.keepIn(prefix + "configuration");
    m_Eeprom.keepIn(prefix + "eeprom");
}

unsigned char Pic18Memory::read(unsigned int address) const
{
    if (isProtected(codeProtection, protectionBit(address)))
        return 0;
    if (const unsigned char *const byte = cell(address))
        return *byte;
    if (address < deviceIdBegin)
        return 0;
    return static_cast<unsigned char>((m_Device.id | revision) >> 8 * (address - deviceIdBegin));
}

unsigned char Pic18Memory::readEeprom(unsigned int address) const
{
    return isProtected(codeProtection, eepromBit) ? 0 : m_Eeprom[address % eepromSize];
}

bool Pic18Memory::isConfiguration(unsigned int address)
{
    return address - configurationBegin < configurationSize;
}

bool Pic18Memory::writeEeprom(unsigned int address, unsigned char value)
{
    if (ignoresWrites(eepromBit))
        return false;
    m_Eeprom[address % eepromSize] = value;
    return true;
}

unsigned char *Pic18Memory::cell(unsigned int address) const
{
    if (address < m_Device.programSize)
        return &m_Program[address];
    if (address - userIdBegin < userIdSize)
        return &m_UserId[address - userIdBegin];
    return isConfiguration(address) ? &m_Configuration[address - configurationBegin] : nullptr;
}

void Pic18Memory::program(unsigned int address, unsigned char value)
{
    unsigned char *const byte = cell(address);
    const unsigned int index = address - configurationBegin;
    if (byte == nullptr)
        return;
    if (!isConfiguration(address))
        *byte = (*byte & value) ^ m_Flipped.value(address);
    else
        *byte = value & (index < codeProtection ? 0xFF : *byte) & m_Device.configurationMask[index];
}

void Pic18Memory::eraseRow(unsigned int address)
{
    const unsigned int begin = address / rowSize * rowSize;
    if (begin < m_Device.programSize)
        erase(begin, begin + rowSize, 0);
}

/// Lifts the protection by `protectingBit`, too.
void Pic18Memory::erase(unsigned int begin, unsigned int end, unsigned int protectingBit)
{
    for (unsigned int address = begin; address < end; ++address)
        m_Program[address] = static_cast<unsigned char>(~m_Stuck.value(address));
    liftProtection(protectingBit);
}

void Pic18Memory::breakErase(unsigned int address, unsigned char mask)
{
    m_Stuck[address] = mask;
    m_Program[address] &= static_cast<unsigned char>(~mask);
}

// All regions, or one: the low key selects boot block, configuration, EEPROM or user id, the high key a code block.
bool Pic18Memory::bulkErase(unsigned int keys)
{
    const unsigned int blockCount = m_Device.programSize / blockSize;
    const unsigned int regions = keys ^ 0x80;
    const unsigned int known = 0x0F | ((1U << blockCount) - 1) << 8;
    if (keys != chipErase && (qPopulationCount(regions) != 1 || (regions & ~known)))
        return false;

    const unsigned int bootEnd = bootSize();
    if (regions & 0x01)
        erase(0, bootEnd, bootBit);
    for (unsigned int block = 0; block < blockCount; ++block) {
        if (regions >> 8 & 1U << block)
            erase(block == 0 ? bootEnd : block * blockSize, (block + 1) * blockSize, 1U << block);
    }
    if (regions & 0x04) {
        m_Eeprom.fill(erased);
        liftProtection(eepromBit);
    }
    if (regions & 0x08)
        m_UserId.fill(erased);
    for (unsigned int index = 0; regions & 0x02 && index < configurationSize; ++index)
        m_Configuration[index] = Pic18Device::configurationDefault[index] & m_Device.configurationMask[index];
    return true;
}

bool Pic18Memory::isProtected(unsigned int protection, unsigned int bit) const
{
    const unsigned int index = protection + (bit > 0xFF);
    return (bit > 0xFF ? bit >> 8 : bit) & m_Device.configurationMask[index] & ~m_Configuration[index];
}

bool Pic18Memory::ignoresWrites(unsigned int bit) const
{
    return isProtected(codeProtection, bit) || isProtected(writeProtection, bit);
}

void Pic18Memory::liftProtection(unsigned int bit)
{
    for (unsigned int index = codeProtection; index < protectionEnd; ++index) {
        const unsigned int half = index % 2 ? bit >> 8 : bit;
        m_Configuration[index] |= static_cast<unsigned char>(half & m_Device.configurationMask[index]);
    }
}

/// 0 for what nothing protects.
unsigned int Pic18Memory::protectionBit(unsigned int address) const
{
    if (isConfiguration(address))
        return configurationBit;
    if (address >= m_Device.programSize)
        return 0;
    return address < bootSize() ? bootBit : 1U << address / blockSize;
}

// BBSIZ: 1, 2 or 4 Ki words; without it 1 Ki words.
unsigned int Pic18Memory::bootSize() const
{
    static const unsigned int sizes[] = {0x800, 0x1000, 0x2000, 0x2000};
    return m_Device.bootSizeSelectable ? sizes[m_Configuration[config4l] >> bootSizeShift & 3] : sizes[0];
}

} // namespace simulator
