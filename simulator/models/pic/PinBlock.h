#ifndef SIMULATOR_MODELS_PIC_PINBLOCK_H
#define SIMULATOR_MODELS_PIC_PINBLOCK_H

#include <array>
#include <cstdint>

namespace simulator {

/// The registers of the pin-control block. The board sets the levels of input pins.
class PinBlock
{
public:
    struct Pin
    {
        unsigned int bank;
        unsigned int bit;
    };

    /// The bank of the register at `offset`.
    static unsigned int bankOf(unsigned int offset) { return offset / distance % 0x10; }

    uint32_t read(unsigned int offset) const { return isRegister(offset) ? m_Words[offset / distance] : 0; }
    /// Input registers cannot be written.
    void write(unsigned int offset, uint32_t value)
    {
        if (isRegister(offset) && offset / distance - bankOf(offset) != input)
            m_Words[offset / distance] = value;
    }

    bool isOutput(Pin pin) const { return m_Words[outputEnable + pin.bank] >> pin.bit & 1; }
    bool isDrivenHigh(Pin pin) const { return isOutput(pin) && (m_Words[output + pin.bank] >> pin.bit & 1); }
    void setInput(Pin pin, bool level)
    {
        uint32_t &word = m_Words[input + pin.bank];
        word = level ? word | 1U << pin.bit : word & ~(1U << pin.bit);
    }

private:
    // Between two registers lie the aliases that set, clear and toggle the bits of the first, which nobody uses.
    static const unsigned int distance = 0x10;
    // Indices of the registers of bank 0.
    static const unsigned int output = 0x70;
    static const unsigned int input = 0x90;
    static const unsigned int outputEnable = 0xB0;

    static bool isRegister(unsigned int offset) { return offset < 0x1000 && offset % distance == 0; }

    std::array<uint32_t, 0x100> m_Words{};
};

} // namespace simulator

#endif
