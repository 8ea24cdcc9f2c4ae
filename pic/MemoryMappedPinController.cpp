#include "pic/MemoryMappedPinController.h"

#include <QString>
#include <cstdint>
#include <unistd.h>

#include "pic/MemoryMap.h"

namespace {

const int readAndWrite = 3;

volatile uint32_t *registerAt(const MemoryMap *map, unsigned int offset)
{
    char *const page = static_cast<char *>(map->pointer());
    return page ? reinterpret_cast<volatile uint32_t *>(page + offset) : nullptr;
}

void change(volatile uint32_t *word, unsigned int mask, bool set)
{
    if (word)
        *word = set ? *word | mask : *word & ~mask;
}

} // namespace

MemoryMappedPinController::MemoryMappedPinController(unsigned int physicalBase)
    : m_MemoryMap(
          new MemoryMap(QLatin1String("/dev/mem"), getpagesize(), readAndWrite, true, static_cast<int>(physicalBase)))
{}

MemoryMappedPinController::~MemoryMappedPinController()
{
    delete m_MemoryMap;
}

bool MemoryMappedPinController::isMapped() const
{
    return m_MemoryMap->pointer() != nullptr;
}

void MemoryMappedPinController::setDirection(unsigned int registerOffset, unsigned int pinMask, PIN_DIRECTION direction)
{
    change(registerAt(m_MemoryMap, registerOffset), pinMask, direction == PIN_OUTPUT);
}

void MemoryMappedPinController::setValue(unsigned int registerOffset, unsigned int pinMask, unsigned char value)
{
    change(registerAt(m_MemoryMap, registerOffset), pinMask, value == 1);
}

bool MemoryMappedPinController::getValue(unsigned int registerOffset, unsigned int pinMask)
{
    const volatile uint32_t *const word = registerAt(m_MemoryMap, registerOffset);
    return word && (*word & pinMask) != 0;
}
