#include "pic/PicPins.h"

#include "pic/MemoryMappedPinController.h"

const PicPin *mclrPin(int picNumber)
{
    static const PicPin pins[picCount] = {
        {0x740, 0xB40, 1U << 10},
        {0x720, 0xB20, 1U << 21},
        {0x720, 0xB20, 1U << 15},
        {0x720, 0xB20, 1U << 17},
    };
    return picNumber >= 1 && picNumber <= picCount ? &pins[picNumber - 1] : nullptr;
}

const PicPin &esaSelectPin()
{
    return *mclrPin(1);
}

// The latch is high while an input becomes an output: MCLR then falls once, when its driver is on.
void holdInReset(MemoryMappedPinController *pinController, int picNumber)
{
    const PicPin *const mclr = mclrPin(picNumber);
    if (!mclr)
        return;
    pinController->setValue(mclr->outputRegister, mclr->mask, 1);
    pinController->setDirection(mclr->directionRegister, mclr->mask, MemoryMappedPinController::PIN_OUTPUT);
    pinController->setValue(mclr->outputRegister, mclr->mask, 0);
}
