#ifndef SIMULATOR_MODELS_PIC_PIC18MEMORY_H
#define SIMULATOR_MODELS_PIC_PIC18MEMORY_H

#include <QHash>

#include "simulator/models/KeptMemory.h"
#include "simulator/models/pic/Pic18Device.h"

namespace simulator {

/// The memories of a PIC18: program, user id and configuration memory, device id, data EEPROM; how they erase and take
/// writes, what protects them, and their injected faults. Everything starts as delivered: erased.
class Pic18Memory
{
public:
    static const unsigned int rowSize = 64; ///< bytes of the write buffer and of the smallest erase

    explicit Pic18Memory(const Pic18Device &device);
    /// Keeps the memories in files whose names begin with `prefix`.
    void keepIn(const QString &prefix);

    /// As a table read finds it: unimplemented and code-protected locations read 0.
    unsigned char read(unsigned int address) const;
    unsigned char readEeprom(unsigned int address) const;

    static bool isConfiguration(unsigned int address);
    /// Is there memory that takes writes?
    bool isProgrammable(unsigned int address) const { return cell(address) != nullptr; }
    /// A write to it, or an erase of its row, does nothing until a bulk erase lifts the protection.
    bool isWriteProtected(unsigned int address) const { return ignoresWrites(protectionBit(address)); }

    /// A bit that is cleared stays cleared. Only configuration bits that protect nothing can be set, too.
    void program(unsigned int address, unsigned char value);
    void eraseRow(unsigned int address);
    /// False when the EEPROM is protected.
    bool writeEeprom(unsigned int address, unsigned char value);
    /// Erases the region of the bulk erase keys and lifts its protection. False when the keys are unknown.
    bool bulkErase(unsigned int keys);

    const Pic18Device &device() const { return m_Device; }

    // Contents for tests and reports, whatever the protection.
    KeptMemory &programMemory() { return m_Program; }
    KeptMemory &configuration() { return m_Configuration; }
    KeptMemory &eeprom() { return m_Eeprom; }

    // Faults.
    /// The bits of `mask` at `address` of program memory are 0 from now on.
    void breakErase(unsigned int address, unsigned char mask);
    /// The bits of `mask` come out inverted when `address` is programmed.
    void flipOnWrite(unsigned int address, unsigned char mask) { m_Flipped[address] = mask; }

private:
    static const unsigned int eepromSize = 1024;

    unsigned char *cell(unsigned int address) const;
    void erase(unsigned int begin, unsigned int end, unsigned int protectingBit);
    bool isProtected(unsigned int protection, unsigned int bit) const;
    bool ignoresWrites(unsigned int bit) const;
    void liftProtection(unsigned int bit);
    unsigned int protectionBit(unsigned int address) const;
    unsigned int bootSize() const;

    const Pic18Device &m_Device;
    KeptMemory m_Program;
    KeptMemory m_UserId;
    KeptMemory m_Configuration;
    KeptMemory m_Eeprom;
    QHash<unsigned int, unsigned char> m_Stuck;
    QHash<unsigned int, unsigned char> m_Flipped;
};

} // namespace simulator

#endif
