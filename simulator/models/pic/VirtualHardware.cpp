#include "pic/MemoryMappedPinController.h"

#include "pic/PicDelay.h"
#include "simulator/models/pic/VirtualBoards.h"

using namespace simulator;

// Pins and delays of the virtual instrument: what the updater loads and stores reaches the virtual boards, and its
// waits pass on their clock.

namespace {

void change(unsigned int offset, unsigned int mask, bool set)
{
    VirtualBoards &boards = VirtualBoards::installed();
    const uint32_t word = boards.readRegister(offset);
    boards.writeRegister(offset, set ? word | mask : word & ~mask);
}

} // namespace

MemoryMappedPinController::MemoryMappedPinController(unsigned int) : m_MemoryMap(nullptr)
{
    Q_UNUSED(m_MemoryMap) // there is no memory to map
}

MemoryMappedPinController::~MemoryMappedPinController()
{}

bool MemoryMappedPinController::isMapped() const
{
    return true;
}

void MemoryMappedPinController::setDirection(unsigned int registerOffset, unsigned int pinMask, PIN_DIRECTION direction)
{
    change(registerOffset, pinMask, direction == PIN_OUTPUT);
}

void MemoryMappedPinController::setValue(unsigned int registerOffset, unsigned int pinMask, unsigned char value)
{
    change(registerOffset, pinMask, value == 1);
}

bool MemoryMappedPinController::getValue(unsigned int registerOffset, unsigned int pinMask)
{
    return (VirtualBoards::installed().readRegister(registerOffset) & pinMask) != 0;
}

void waitFor(PIC_DELAY delay)
{
    VirtualBoards::installed().wait(nanosecondsOf(delay));
}

// The C library's, with which the updater lets the boards settle: on their clock. A test may have one of its own.
extern "C" __attribute__((weak)) unsigned int sleep(unsigned int seconds)
{
    VirtualBoards::installed().advance(seconds * Q_INT64_C(1000000000));
    return 0;
}
