#ifndef SIMULATOR_MODELS_PIC_PIC18CORE_H
#define SIMULATOR_MODELS_PIC_PIC18CORE_H

#include <array>
#include <map>
#include <optional>

#include "simulator/models/BoardMonitor.h"
#include "simulator/models/pic/Pic18Memory.h"

namespace simulator {

/// The part of a PIC18 that programming mode uses: the core instructions, the special function registers, the table
/// pointer and its latches, and the control of writes and erases. `mode` is the low two bits of a table command, with
/// the same meaning for reads and writes.
class Pic18Core
{
public:
    Pic18Core(Pic18Memory &memory, BoardMonitor &monitor, const QString &name);

    void reset(); ///< by MCLR
    void execute(unsigned int instruction);
    void tableRead(unsigned int mode);
    void tableWrite(unsigned int mode, unsigned int operand);
    /// What is shifted out after a table read.
    unsigned char tablat() const { return m_Registers[sfrTablat]; }
    /// TABLAT is about to be shifted out by a command of its own.
    void latchTablat();

    /// The latches are to be programmed, or the row erased, as soon as the clock is held.
    bool isWritePending() const { return m_WritePending; }
    void endWrite(bool heldLongEnough);

    /// The keys are loaded and a NOP has followed: the next one starts the bulk erase.
    bool isBulkEraseReady() const { return m_BulkErase == BulkErase::Ready; }
    void bulkErase();

    void report(const QString &violation) { m_Monitor.violation(m_Name, violation); }

    qint64 eepromWriteTime = 4000000; ///< nanoseconds

private:
    enum class BulkErase { Idle, KeysLoaded, Ready };

    // Special function registers, by their low address byte.
    static const unsigned int sfrEecon1 = 0xA6;
    static const unsigned int sfrEedata = 0xA8;
    static const unsigned int sfrEeadr = 0xA9;
    static const unsigned int sfrEeadrh = 0xAA;
    static const unsigned int sfrTablat = 0xF5;
    static const unsigned int sfrTblptrl = 0xF6;
    static const unsigned int sfrTblptrh = 0xF7;
    static const unsigned int sfrTblptru = 0xF8;

    void changeEecon1(unsigned char mask, bool set);
    bool selects(unsigned char memory, const char *action);
    void loadEraseKey(unsigned int operand);
    void startProgramming();
    void settleEepromWrite();
    void programLatches(unsigned int address);
    void moveTablePointer(unsigned int distance);
    bool isSet(unsigned char bits) const { return m_Registers[sfrEecon1] & bits; }
    unsigned int tablePointer() const;
    unsigned int eepromAddress() const { return m_Registers[sfrEeadrh] * 256U + m_Registers[sfrEeadr]; }

    Pic18Memory &m_Memory;
    BoardMonitor &m_Monitor;
    QString m_Name;

    unsigned char m_W = 0;
    std::array<unsigned char, 256> m_Registers{};
    unsigned char m_UndefinedBits; ///< of EECON1, since power-on
    bool m_TablatLatched = true;
    std::map<unsigned int, unsigned char> m_Latches; ///< by position in the row; without one a cell stays as it is
    bool m_WritePending = false;
    std::optional<unsigned int> m_WriteAddress; ///< if the write is valid
    std::optional<unsigned int> m_HighEraseKey;
    unsigned int m_EraseKeys = 0;
    BulkErase m_BulkErase = BulkErase::Idle;
    qint64 m_EepromWriteEnd = 0;
};

} // namespace simulator

#endif
