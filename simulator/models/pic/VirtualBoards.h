#ifndef SIMULATOR_MODELS_PIC_VIRTUALBOARDS_H
#define SIMULATOR_MODELS_PIC_VIRTUALBOARDS_H

#include <memory>

#include "simulator/models/pic/Pic18Target.h"
#include "simulator/models/pic/PinBlock.h"

namespace simulator {

/// The boards of the virtual instrument on the SoC's pins: four PIC18 that share PGC, PGD and the programming voltage,
/// each with an MCLR line of its own that a resistor pulls up. While the enable line is high, an MCLR pin that the SoC
/// drives high carries the programming voltage; one that it leaves alone falls back to the supply.
class VirtualBoards : public BoardMonitor
{
public:
    static const int picCount = 4;
    /// Leads to the ESA boards, and to the MCLR of PIC 1.
    static constexpr PinBlock::Pin selectPin = {4, 10};
    using Devices = std::array<const Pic18Device *, picCount>;
    static const Devices deliveredDevices; ///< one PIC of each kind

    explicit VirtualBoards(const Devices &devices);

    /// The boards that the updater's pins lead to: the delivered ones, unless others were installed.
    static VirtualBoards &installed();
    /// Replaces them by new ones, switched on and erased.
    static VirtualBoards &install(const Devices &devices = deliveredDevices);
    /// Keeps the memories of the PICs in files of `folder`, and goes on with what these hold.
    void keepIn(const QString &folder);

    // The SoC's side.
    uint32_t readRegister(unsigned int offset);
    void writeRegister(unsigned int offset, uint32_t value);
    void wait(qint64 nanoseconds);

    /// Called before the pin that selects an ESA board changes: what has been sent until then is for the old board.
    std::function<void()> beforeSelectChange;

    Pic18Target &pic(int number) { return *m_Pics[static_cast<size_t>(number - 1)]; } ///< 1 to 4
    const PinBlock &pins() const { return m_Pins; }
    qint64 waited() const { return m_Waited; } ///< nanoseconds of delays alone, without the pin accesses

private:
    void settle();
    Pic18Target::Mclr mclr(size_t pic) const;

    PinBlock m_Pins;
    std::array<std::unique_ptr<Pic18Target>, picCount> m_Pics;
    bool m_Pgc = false;
    qint64 m_Waited = 0;
};

} // namespace simulator

#endif
