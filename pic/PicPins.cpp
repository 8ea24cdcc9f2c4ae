#include "pic/PicPins.h"

#include "pic/MemoryMappedPinController.h"

const PicPin *mclrPin(int picNumber)
{
    return picNumber >= 1 && picNumber <= picCount ? &mclrPins[picNumber - 1] : nullptr;
}

// The latch is high while the pin becomes an output: MCLR falls once, when its driver is on.
void holdInReset(MemoryMappedPinController *pinController, int picNumber)
{
    const PicPin *const mclr = mclrPin(picNumber);
    if (!mclr)
        return;
    pinController->setValue(mclr->outputRegister, mclr->mask, 1);
    pinController->setDirection(mclr->directionRegister, mclr->mask, MemoryMappedPinController::PIN_OUTPUT);
    pinController->setValue(mclr->outputRegister, mclr->mask, 0);
}
