#ifndef SIMULATOR_MODELS_PIC_PINBLOCK_H
#define SIMULATOR_MODELS_PIC_PINBLOCK_H

#include <array>
#include <cstdint>

namespace simulator {

/// The registers of the pin-control block: seven banks of 32 pins. What is on an input pin is the board's business.
class PinBlock
{
public:
    struct Pin
    {
        unsigned int bank;
        unsigned int bit;
    };

    /// The bank of the register at `offset`.
    static unsigned int bankOf(unsigned int offset) { return offset / 0x10 % 0x10; }

    uint32_t read(unsigned int offset) const;
    /// Writes to an output or output-enable register; input registers cannot be written.
    void write(unsigned int offset, uint32_t value);

    bool isOutput(Pin pin) const { return m_OutputEnable[pin.bank] >> pin.bit & 1; }
    bool isDrivenHigh(Pin pin) const { return isOutput(pin) && (m_Output[pin.bank] >> pin.bit & 1); }
    bool isDrivenLow(Pin pin) const { return isOutput(pin) && !(m_Output[pin.bank] >> pin.bit & 1); }
    void setInput(Pin pin, bool level);

private:
    static const unsigned int bankCount = 7;
    using Registers = std::array<uint32_t, bankCount>;

    Registers m_Output{};
    Registers m_Input{};
    Registers m_OutputEnable{};
};

} // namespace simulator

#endif
