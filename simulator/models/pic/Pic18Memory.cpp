#include "simulator/models/pic/Pic18Memory.h"

namespace simulator {

namespace {

const char erased = '\xFF';
const unsigned int eepromSize = 1024;
const unsigned int userIdBegin = 0x200000;
const unsigned int userIdSize = 8;
const unsigned int configurationBegin = 0x300000;
const unsigned int deviceIdBegin = 0x3FFFFE;
const unsigned int blockSize = 0x4000;

// Indices of configuration bytes, and bits in them.
const unsigned int config4l = 6;
const unsigned int config5l = 8; ///< bit n protects block n
const unsigned int config5h = 9;
const unsigned char bootProtect = 0x40;
const unsigned char dataProtect = 0x80;
const unsigned int bootSizeShift = 4;

bool isCleared(unsigned char byte, unsigned int mask)
{
    return (byte & mask) == 0;
}

} // namespace

Pic18Memory::Pic18Memory(const Pic18Device &device, unsigned char revision)
    : m_Device(device),
      m_DeviceId(static_cast<unsigned short>(device.id | revision)),
      m_Program(static_cast<int>(device.programSize), erased),
      m_UserId(userIdSize, erased),
      m_Eeprom(eepromSize, erased),
      m_Configuration(device.configurationDefault)
{}

unsigned char Pic18Memory::read(unsigned int address) const
{
    if (address < m_Device.programSize)
        return isProtected(address) ? 0 : static_cast<unsigned char>(m_Program.at(static_cast<int>(address)));
    if (isProgramOrUserId(address))
        return static_cast<unsigned char>(m_UserId.at(static_cast<int>(address - userIdBegin)));
    if (isConfiguration(address))
        return m_Configuration[address - configurationBegin];
    if (address == deviceIdBegin)
        return static_cast<unsigned char>(m_DeviceId);
    return address == deviceIdBegin + 1 ? static_cast<unsigned char>(m_DeviceId >> 8) : 0;
}

unsigned char Pic18Memory::readEeprom(unsigned int address) const
{
    if (isCleared(m_Configuration[config5h], dataProtect))
        return 0;
    return static_cast<unsigned char>(m_Eeprom.at(static_cast<int>(address % eepromSize)));
}

bool Pic18Memory::isProgramOrUserId(unsigned int address) const
{
    return address < m_Device.programSize || (address >= userIdBegin && address < userIdBegin + userIdSize);
}

bool Pic18Memory::isConfiguration(unsigned int address)
{
    return address >= configurationBegin && address < configurationBegin + Pic18Device::Configuration().size();
}

char *Pic18Memory::cell(unsigned int address)
{
    return address < m_Device.programSize ? &m_Program.data()[address] : &m_UserId.data()[address - userIdBegin];
}

bool Pic18Memory::program(unsigned int address, unsigned char value)
{
    if (m_DeadRows.contains(address / rowSize))
        return true;
    if (isConfiguration(address))
        return programConfiguration(address - configurationBegin, value);
    if (!isProgramOrUserId(address))
        return false;
    char *const target = cell(address);
    const unsigned char old = static_cast<unsigned char>(*target);
    *target = static_cast<char>((old & value) ^ m_Flipped.value(address));
    return (old & value) == value;
}

// Configuration cells take ones as well as zeros, but for the protection bits, which only an erase can set.
bool Pic18Memory::programConfiguration(unsigned int index, unsigned char value)
{
    const unsigned char old = m_Configuration[index];
    const unsigned char implemented = value & m_Device.configurationMask[index];
    m_Configuration[index] = index < config5l ? implemented : old & implemented;
    return m_Configuration[index] == implemented;
}

void Pic18Memory::writeEeprom(unsigned int address, unsigned char value)
{
    m_Eeprom[address % eepromSize] = static_cast<char>(value);
}

void Pic18Memory::eraseRow(unsigned int address)
{
    const unsigned int begin = address / rowSize * rowSize;
    if (begin < m_Device.programSize)
        erase({begin, begin + rowSize});
}

void Pic18Memory::erase(Region region)
{
    for (unsigned int address = region.begin; address < region.end; ++address) {
        const int stays = m_NeverErased.value(address) & ~*cell(address);
        *cell(address) = static_cast<char>(~stays);
    }
}

// Erasing a region also lifts its protection.
bool Pic18Memory::eraseRegion(unsigned char keyHigh, unsigned char keyLow)
{
    static const struct
    {
        unsigned int keys;
        void (Pic18Memory::*erase)();
    } regions[] = {
        {0x0081, &Pic18Memory::eraseBootBlock}, {0x0082, &Pic18Memory::eraseConfiguration},
        {0x0084, &Pic18Memory::eraseEeprom},    {0x0088, &Pic18Memory::eraseUserId},
        {0x3F8F, &Pic18Memory::eraseChip},
    };
    const unsigned int keys = keyHigh * 256U + keyLow;
    for (const auto &region : regions) {
        if (region.keys == keys) {
            (this->*region.erase)();
            return true;
        }
    }
    for (unsigned int block = 0; block < m_Device.blockCount; ++block) {
        if (keys == (0x100U << block | 0x80)) {
            eraseBlock(block);
            return true;
        }
    }
    return false;
}

void Pic18Memory::eraseBootBlock()
{
    erase({0, bootSize()});
    m_Configuration[config5h] |= bootProtect;
}

void Pic18Memory::eraseBlock(unsigned int block)
{
    erase(blockRegion(block));
    m_Configuration[config5l] = static_cast<unsigned char>(m_Configuration[config5l] | 1U << block);
}

void Pic18Memory::eraseUserId()
{
    erase({userIdBegin, userIdBegin + userIdSize});
}

void Pic18Memory::eraseConfiguration()
{
    m_Configuration = m_Device.configurationDefault;
}

void Pic18Memory::eraseEeprom()
{
    m_Eeprom.fill(erased);
    m_Configuration[config5h] |= dataProtect;
}

void Pic18Memory::eraseChip()
{
    erase({0, m_Device.programSize});
    eraseUserId();
    eraseEeprom();
    eraseConfiguration();
}

Pic18Memory::Region Pic18Memory::blockRegion(unsigned int block) const
{
    return {block == 0 ? bootSize() : block * blockSize, (block + 1) * blockSize};
}

// BBSIZ: 1, 2 or 4 Ki words; without it 1 Ki words.
unsigned int Pic18Memory::bootSize() const
{
    static const unsigned int sizes[] = {0x800, 0x1000, 0x2000, 0x2000};
    return m_Device.bootSizeSelectable ? sizes[m_Configuration[config4l] >> bootSizeShift & 3] : sizes[0];
}

bool Pic18Memory::isProtected(unsigned int address) const
{
    if (address < bootSize())
        return isCleared(m_Configuration[config5h], bootProtect);
    return isCleared(m_Configuration[config5l], 1U << address / blockSize);
}

} // namespace simulator
