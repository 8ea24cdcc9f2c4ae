#include "pic/PicProgrammer.h"

#include "pic/MemoryMappedPinController.h"
#include "pic/PicInstructions.h"
#include "pic/PicMemoryMap.h"
#include "pic/PicPins.h"

using namespace PicInstructions;

namespace {

const unsigned short revisionMask = 0x1F;
const unsigned short pic18f4620 = 0x0C00;

unsigned short deviceOf(unsigned short id)
{
    return static_cast<unsigned short>(id & ~revisionMask);
}

unsigned short byteOf(unsigned int value, int byte)
{
    return (value >> (8 * byte)) & 0xFF;
}

} // namespace

void PicProgrammer::vGeneralDelay(PIC_DELAY delay)
{
    waitFor(delay);
}

void PicProgrammer::vSetPin(const PicPin &pin, unsigned char value)
{
    pPinController->setValue(pin.outputRegister, pin.mask, value);
}

void PicProgrammer::vSetMclr(unsigned char value)
{
    const PicPin *const mclr = mclrPin(iPicNumber);
    if (mclr)
        vSetPin(*mclr, value);
}

// The target takes the bit at the falling edge; data changes only while the clock is low.
void PicProgrammer::vWriteBit(unsigned char bit)
{
    vSetPin(pgdPin, bit);
    vSetPin(pgcPin, 1);
    vGeneralDelay(DELAY_CLOCK);
    vSetPin(pgcPin, 0);
    vGeneralDelay(DELAY_CLOCK);
}

void PicProgrammer::vWriteCmd(unsigned char command)
{
    vSetPin(pgdPin, 0);
    vSetPin(pgcPin, 0);
    for (int bit = 0; bit < 4; ++bit)
        vWriteBit((command >> bit) & 1);
    vSetPin(pgdPin, 0);
    vSetPin(pgcPin, 0);
    vGeneralDelay(DELAY_COMMAND);
}

void PicProgrammer::vWriteByte(unsigned char value)
{
    vSetPin(pgdPin, 0);
    vSetPin(pgcPin, 0);
    vGeneralDelay(DELAY_CLOCK);
    for (int bit = 0; bit < 8; ++bit)
        vWriteBit((value >> bit) & 1);
    vSetPin(pgcPin, 0);
    vSetPin(pgdPin, 0);
    vGeneralDelay(DELAY_OPERAND);
}

void PicProgrammer::vWriteOperand(unsigned char first, unsigned char second)
{
    vWriteByte(first);
    vWriteByte(second);
}

void PicProgrammer::vWriteCore(unsigned short instruction)
{
    vWriteCmd(coreInstruction);
    vWriteOperand(static_cast<unsigned char>(instruction), static_cast<unsigned char>(instruction >> 8));
}

unsigned char PicProgrammer::u8ReadByte()
{
    vSetPin(pgcPin, 0);
    pPinController->setDirection(pgdPin.directionRegister, pgdPin.mask, MemoryMappedPinController::PIN_INPUT);
    unsigned char value = 0;
    for (int bit = 0; bit < 8; ++bit) {
        vSetPin(pgcPin, 1);
        vGeneralDelay(DELAY_CLOCK);
        value = static_cast<unsigned char>(value >> 1);
        vSetPin(pgcPin, 0);
        vGeneralDelay(DELAY_CLOCK);
        if (pPinController->getValue(pgdInputRegister, pgdPin.mask))
            value |= 0x80;
    }
    vSetPin(pgcPin, 0);
    vSetPin(pgdPin, 0);
    pPinController->setDirection(pgdPin.directionRegister, pgdPin.mask, MemoryMappedPinController::PIN_OUTPUT);
    return value;
}

void PicProgrammer::vSetCoreAddress(unsigned int address)
{
    vWriteCore(moveLiteralToW | byteOf(address, 2));
    vWriteCore(moveWToTblptru);
    vWriteCore(moveLiteralToW | byteOf(address, 1));
    vWriteCore(moveWToTblptrh);
    vWriteCore(moveLiteralToW | byteOf(address, 0));
    vWriteCore(moveWToTblptrl);
}

unsigned char PicProgrammer::u8ReadNextAddress()
{
    vWriteCmd(tableReadPostIncrement);
    vWriteByte(0x00);
    return u8ReadByte();
}

void PicProgrammer::vProgramFlashCmd()
{
    vSetPin(pgcPin, 0);
    vSetPin(pgdPin, 0);
    vGeneralDelay(DELAY_CLOCK);
    for (int clock = 0; clock < 3; ++clock) {
        vSetPin(pgcPin, 1);
        vGeneralDelay(DELAY_CLOCK);
        vSetPin(pgcPin, 0);
        vGeneralDelay(DELAY_CLOCK);
    }
    vSetPin(pgcPin, 1);
    vGeneralDelay(DELAY_P9);
    vSetPin(pgcPin, 0);
    vGeneralDelay(DELAY_P10);
    vSetPin(pgcPin, 0);
    vSetPin(pgdPin, 0);
}

void PicProgrammer::vEnterIspMode()
{
    holdInReset(pPinController, iPicNumber);
    vSetPin(pgdPin, 0);
    vSetPin(pgcPin, 0);
    for (const PicPin *const pin : {&ispEnablePin, &pgdPin, &pgcPin})
        pPinController->setDirection(pin->directionRegister, pin->mask, MemoryMappedPinController::PIN_OUTPUT);
    vGeneralDelay(DELAY_RESET);
    vSetPin(ispEnablePin, 1);
    vGeneralDelay(DELAY_SETUP);
    vReleaseMclr();
    vGeneralDelay(DELAY_ENTRY);
}

void PicProgrammer::vReleaseMclr()
{
    vSetMclr(1);
}

void PicProgrammer::vRestoreIo()
{
    vSetMclr(1);
    vSetPin(ispEnablePin, 1);
    vSetPin(pgdPin, 0);
    vSetPin(pgcPin, 0);
    vGeneralDelay(DELAY_RELEASE);
    vSetMclr(0);
    vGeneralDelay(DELAY_PULSE);
    vSetMclr(1);
    const PicPin *const mclr = mclrPin(iPicNumber);
    if (mclr)
        pPinController->setDirection(mclr->directionRegister, mclr->mask, MemoryMappedPinController::PIN_INPUT);
}

unsigned short PicProgrammer::u16ReadDeviceId()
{
    vSetCoreAddress(PicMemoryMap::deviceId);
    const unsigned char low = u8ReadNextAddress();
    const unsigned char high = u8ReadNextAddress();
    return static_cast<unsigned short>(high * 256 + low);
}

unsigned char PicProgrammer::u8ValidPicId(unsigned short id)
{
    return deviceOf(id) == pic18f4620;
}

QString *PicProgrammer::pGetPicIdStr(unsigned short id)
{
    static const struct
    {
        unsigned short device;
        const char *text;
    } devices[] = {
        {pic18f4620, "PIC18F4620 version %1"},
        {0x0E80, "PIC18F4680 version %1"},
        {0x2740, "PIC18F4682 version %1"},
        {0x2760, "PIC18F4685 version %1"},
    };
    static QString RetStr;
    RetStr = QString::fromLatin1("Unknown PIC: %1").arg(id);
    for (const auto &device : devices) {
        if (device.device == deviceOf(id))
            RetStr = QString::fromLatin1(device.text).arg(id & revisionMask);
    }
    return &RetStr;
}
