#ifndef SIMULATOR_MODELS_PIC_PIC18MEMORY_H
#define SIMULATOR_MODELS_PIC_PIC18MEMORY_H

#include <QByteArray>
#include <QHash>
#include <QSet>

#include "simulator/models/pic/Pic18Device.h"

namespace simulator {

/// The memories of a PIC18: program, user id and configuration memory, device id, data EEPROM; how they erase and take
/// writes, and how they can be broken.
class Pic18Memory
{
public:
    static const unsigned int rowSize = 64; ///< bytes of the write buffer and of the smallest erase

    Pic18Memory(const Pic18Device &device, unsigned char revision);

    /// As a table read finds it: unimplemented and code-protected locations read 0.
    unsigned char read(unsigned int address) const;
    /// The EEPROM as the core finds it: 0 when it is data-protected.
    unsigned char readEeprom(unsigned int address) const;

    /// Programs the byte. False when the new value needs a bit that is cleared to rise, or the address cannot be
    /// programmed; a cleared bit stays cleared.
    bool program(unsigned int address, unsigned char value);
    bool isProgramOrUserId(unsigned int address) const;
    static bool isConfiguration(unsigned int address);
    void writeEeprom(unsigned int address, unsigned char value);
    void eraseRow(unsigned int address);
    /// Erases what the bulk erase keys select. False for unknown keys.
    bool eraseRegion(unsigned char keyHigh, unsigned char keyLow);

    const Pic18Device &device() const { return m_Device; }

    // Contents for tests and reports, whatever the protection. Everything starts erased.
    QByteArray &programMemory() { return m_Program; }
    QByteArray &eeprom() { return m_Eeprom; }
    Pic18Device::Configuration &configuration() { return m_Configuration; }

    // Faults.
    /// The bits of `mask` do not rise when `address` is erased.
    void breakErase(unsigned int address, unsigned char mask) { m_NeverErased[address] = mask; }
    /// Writes to the row of `address` do nothing.
    void ignoreWrites(unsigned int address) { m_DeadRows.insert(address / rowSize); }
    /// The bits of `mask` come out inverted when `address` is programmed.
    void flipOnWrite(unsigned int address, unsigned char mask) { m_Flipped[address] = mask; }

private:
    struct Region
    {
        unsigned int begin;
        unsigned int end;
    };

    Region blockRegion(unsigned int block) const;
    unsigned int bootSize() const;
    bool isProtected(unsigned int address) const;
    bool programConfiguration(unsigned int index, unsigned char value);
    void erase(Region region);
    void eraseBootBlock();
    void eraseBlock(unsigned int block);
    void eraseUserId();
    void eraseConfiguration();
    void eraseEeprom();
    void eraseChip();
    char *cell(unsigned int address);

    const Pic18Device &m_Device;
    unsigned short m_DeviceId;
    QByteArray m_Program;
    QByteArray m_UserId;
    QByteArray m_Eeprom;
    Pic18Device::Configuration m_Configuration;
    QHash<unsigned int, unsigned char> m_NeverErased;
    QHash<unsigned int, unsigned char> m_Flipped;
    QSet<unsigned int> m_DeadRows;
};

} // namespace simulator

#endif
