#ifndef SIMULATOR_MODELS_PIC_PIC18TARGET_H
#define SIMULATOR_MODELS_PIC_PIC18TARGET_H

#include "simulator/models/pic/Pic18Core.h"

namespace simulator {

/// A PIC18 on the programming lines, as its published programming data sheet describes it: it decodes every edge,
/// judges its timing by the virtual clock, and reports what a real chip would not accept.
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
    /// There is no chip; while MCLR is high the data line rests at `dataLevel`.
    void remove(bool dataLevel) { m_Absent = dataLevel; }
    /// How long the chip takes for a byte of its EEPROM.
    void setEepromWriteTime(qint64 nanoseconds) { m_Core.setEepromWriteTime(nanoseconds); }

private:
    enum class Phase { Command, Operand, ReadOperand, DataOut };

    void changeMclr(const Lines &lines);
    void dataChanges(bool level);
    void clockRises(bool dataDriven);
    void clockFalls();
    void completePhase();
    void completeCommand();
    void completeOperand();
    void endHeldClock();
    void startBulkErase();
    void beginPhase(Phase phase, int bits);
    void requireAtLeast(qint64 minimum, qint64 actual, const char *what);
    void report(const char *text);

    BoardMonitor &m_Monitor;
    QString m_Name;
    Pic18Memory m_Memory;
    Pic18Core m_Core;
    std::optional<bool> m_Absent;

    Lines m_Lines = {Mclr::High, false, false, false};
    bool m_ProgrammingMode = false;
    Phase m_Phase = Phase::Command;
    int m_BitsLeft = 0;
    int m_BitsTaken = 0;
    unsigned int m_Shift = 0;
    unsigned int m_Command = 0;
    std::optional<bool> m_DataOut;

    qint64 m_MclrChange = 0;
    std::optional<qint64> m_LastRise;
    std::optional<qint64> m_LastFall;
    qint64 m_LastDataChange = 0;
    qint64 m_EraseEnd = 0;
    qint64 m_RestEnd = 0; ///< until then PGC stays low after a write or an erase
};

} // namespace simulator

#endif
