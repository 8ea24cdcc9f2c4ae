#ifndef SIMULATOR_MODELS_PIC_PIC18CORE_H
#define SIMULATOR_MODELS_PIC_PIC18CORE_H

#include <QHash>
#include <QString>

#include "simulator/models/pic/Pic18Memory.h"

namespace simulator {

class Violations;
class VirtualClock;

/// The part of a PIC18 that programming mode uses: the core instructions, the table pointer and its latches, and the
/// control of writes and erases.
class Pic18Core
{
public:
    Pic18Core(Pic18Memory &memory, const VirtualClock &clock, Violations &violations, const QString &name);

    void reset();
    void execute(unsigned int instruction);

    unsigned char tablat() const { return m_Tablat; }
    void tableRead();
    void tableWrite(unsigned int operand);
    void moveTablePointer(int distance);

    /// The latches are to be programmed, or the row erased, as soon as the clock is held.
    bool isWritePending() const { return m_WritePending; }
    void startProgramming();
    void completeWrite();
    void abandonWrite();

    /// The keys are loaded and a NOP has followed: the next one starts the bulk erase.
    bool isBulkEraseReady() const { return m_BulkErase == BulkErase::Ready; }
    void bulkErase();

    void setEepromWriteTime(qint64 nanoseconds) { m_EepromWriteTime = nanoseconds; }

private:
    enum class BulkErase { Idle, KeysLoaded, Ready };

    void report(const QString &text);
    void moveWTo(unsigned int file);
    void moveToW(unsigned int file);
    void changeEecon1(unsigned int bit, bool set);
    void startWrite();
    void prepareWrite();
    void settleEepromWrite();
    void programLatches();
    void programByte(unsigned int address, unsigned char value);
    bool isSet(unsigned char bit) const { return m_Eecon1 & bit; }
    unsigned int eepromAddress() const { return m_Eeadrh * 256U + m_Eeadr; }

    Pic18Memory &m_Memory;
    const VirtualClock &m_Clock;
    Violations &m_Violations;
    QString m_Name;

    unsigned char m_W = 0;
    unsigned char m_Tablat = 0;
    unsigned char m_Eecon1 = 0;
    unsigned char m_Eeadr = 0;
    unsigned char m_Eeadrh = 0;
    unsigned char m_Eedata = 0;
    unsigned int m_TablePointer = 0;              ///< 22 bits
    QHash<unsigned int, unsigned char> m_Latches; ///< by position in the row; those not loaded leave their cell alone
    bool m_WritePending = false;
    unsigned int m_WriteAddress = 0;
    unsigned char m_EraseKeyHigh = 0;
    unsigned char m_EraseKeyLow = 0;
    BulkErase m_BulkErase = BulkErase::Idle;
    qint64 m_EepromWriteEnd = 0;
    qint64 m_EepromWriteTime = 4000000; ///< the longest that a chip takes
};

} // namespace simulator

#endif
