#ifndef SIMULATOR_MODELS_PIC_PIC18TARGET_H
#define SIMULATOR_MODELS_PIC_PIC18TARGET_H

#include "simulator/models/pic/Pic18Core.h"

namespace simulator {

/// A PIC18 on the programming lines, as its published programming data sheet describes it: it decodes every edge,
/// checks its timing by the virtual clock, and reports what a real chip would not accept.
class Pic18Target
{
public:
    enum class Mclr {
        Low,               ///< held in reset
        High,              ///< at the supply voltage: the chip runs its program
        ProgrammingVoltage ///< with PGC and PGD low when it rises, the chip enters programming mode
    };

    struct Lines
    {
        Mclr mclr;
        bool pgc;
        bool pgd;
        bool dataDriven; ///< the updater drives PGD
    };

    Pic18Target(const Pic18Device &device, const QString &name, BoardMonitor &monitor);

    /// The lines have taken these levels now.
    void drive(const Lines &lines);
    /// What this chip drives PGD with; nothing while it listens.
    std::optional<bool> dataOut() const;

    bool isOutOfReset() const { return !m_Absent && m_Lines.mclr != Mclr::Low; }
    bool isInProgrammingMode() const { return m_ProgrammingMode; }

    /// Contents, and the faults of single locations.
    Pic18Memory &memory() { return m_Memory; }

    // Faults.
    /// There is no chip; with a high `dataLevel` PGD rests high, and every read gives ones.
    void remove(bool dataLevel) { m_Absent = dataLevel; }
    /// How long the chip takes for a byte of its EEPROM.
    void setEepromWriteTime(qint64 nanoseconds) { m_Core.eepromWriteTime = nanoseconds; }

private:
    void changeMclr(const Lines &lines);
    void dataChanges(bool level);
    void clockRises(bool dataDriven);
    void clockFalls();
    bool isShiftingOut() const;
    void completeCommand();
    void completeOperand();
    void endHeldClock();
    void startBulkErase();
    void requireSince(qint64 begin, qint64 minimum, const char *what);

    BoardMonitor &m_Monitor;
    Pic18Memory m_Memory;
    Pic18Core m_Core;
    std::optional<bool> m_Absent;

    Lines m_Lines = {Mclr::High, false, false, false};
    bool m_ProgrammingMode = false;
    int m_Bit = 0;            ///< of the command (4), then its operand (16)
    unsigned int m_Shift = 0; ///< what has been shifted in, the command first
    std::optional<bool> m_DataOut;

    // Times, 0 when there was none since MCLR changed.
    qint64 m_MclrChange = 0;
    qint64 m_LastRise = 0;
    qint64 m_LastFall = 0;
    qint64 m_LastDataChange = 0;
    qint64 m_EraseEnd = 0;
    qint64 m_RestEnd = 0; ///< until then PGC stays low after a write or an erase
};

} // namespace simulator

#endif
