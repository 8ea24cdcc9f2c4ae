#include "simulator/models/pic/PinBlock.h"

namespace simulator {

namespace {

const unsigned int outputRegisters = 0x700;
const unsigned int inputRegisters = 0x900;
const unsigned int outputEnableRegisters = 0xB00;
const unsigned int bankDistance = 0x10;

/// The register at `offset` when it is one of `registers`, which begin at `base`; else null.
template <typename Registers>
auto find(Registers &registers, unsigned int base, unsigned int offset) -> decltype(registers.data())
{
    const unsigned int bank = (offset - base) / bankDistance;
    return offset >= base && offset % bankDistance == 0 && bank < registers.size() ? &registers[bank] : nullptr;
}

} // namespace

uint32_t PinBlock::read(unsigned int offset) const
{
    if (const uint32_t *const word = find(m_Input, inputRegisters, offset))
        return *word;
    if (const uint32_t *const word = find(m_Output, outputRegisters, offset))
        return *word;
    const uint32_t *const word = find(m_OutputEnable, outputEnableRegisters, offset);
    return word ? *word : 0;
}

void PinBlock::write(unsigned int offset, uint32_t value)
{
    if (uint32_t *const word = find(m_Output, outputRegisters, offset))
        *word = value;
    else if (uint32_t *const enable = find(m_OutputEnable, outputEnableRegisters, offset))
        *enable = value;
}

void PinBlock::setInput(Pin pin, bool level)
{
    const uint32_t mask = 1U << pin.bit;
    m_Input[pin.bank] = level ? m_Input[pin.bank] | mask : m_Input[pin.bank] & ~mask;
}

} // namespace simulator
