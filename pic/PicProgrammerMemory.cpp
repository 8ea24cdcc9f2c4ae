#include "pic/PicProgrammer.h"

#include <QCoreApplication>
#include <QDebug>
#include <QEvent>

#include "pic/PicInstructions.h"
#include "pic/PicMemoryMap.h"

using namespace PicInstructions;
using namespace PicMemoryMap;

unsigned char au8EepromCopy[1024];
unsigned char au8ReadPicData[16];
unsigned char au8DeviceConfig[16];
unsigned short u16DeviceId;
unsigned int u32VerifyAddress;
unsigned char u8VerifyCorrect;
unsigned char u8VerifyActual;

namespace {

const unsigned char writeInProgress = 0x02; // WR of EECON1

// Boot block and code blocks 0 to 3: all program memory of a 64 KiB device.
const struct
{
    unsigned char high;
    unsigned char low;
} eraseKeys[] = {{0x00, 0x81}, {0x01, 0x80}, {0x02, 0x80}, {0x04, 0x80}, {0x08, 0x80}};

const unsigned int blankCheckSize = 0x200;
const int rowsPerErase = 8;
const unsigned char erasedByte = 0xFF;

// A write of the EEPROM takes about 4 ms. A poll is 80 clocks or 5.12 us at the very least, so this is over 10 ms.
const int eepromPollLimit = 2000;

} // namespace

void PicProgrammer::ev_pic_begin_erase()
{
    vEnterIspMode();
    bProgrammed = false;
    for (const auto &key : eraseKeys)
        vPicBulkErase(key.high, key.low);
    u32EraseAddress = 0;
    QCoreApplication::postEvent(this, new QEvent(PIC_ERASE_EVENT));
}

void PicProgrammer::ev_pic_erase_next_block()
{
    if (!u8PicBlankCheck(u32EraseAddress)) {
        qDebug().nospace() << "ev_pic_erase_next_block - erase error " << u32EraseAddress;
        emit eraseError();
        bFinished = true;
        return;
    }
    u32EraseAddress += blankCheckSize;
    if (u32EraseAddress < programMemorySize) {
        emit eraseNextBlock(static_cast<int>(100 * u32EraseAddress / programMemorySize));
        QCoreApplication::postEvent(this, new QEvent(PIC_ERASE_EVENT));
    } else {
        emit eraseDone();
    }
}

// The target erases by itself from the end of the second NOP's command on, and must see no data meanwhile. Three waits
// of P11 exceed twice the chip's minimum.
void PicProgrammer::vPicBulkErase(unsigned char keyHigh, unsigned char keyLow)
{
    vSetCoreAddress(eraseKeyHigh);
    vWriteCmd(tableWrite);
    vWriteOperand(keyHigh, keyHigh);
    vSetCoreAddress(eraseKeyLow);
    vWriteCmd(tableWrite);
    vWriteOperand(keyLow, keyLow);
    vWriteCore(noOperation);
    vWriteCmd(coreInstruction);
    for (const PIC_DELAY delay : {DELAY_P11, DELAY_P11, DELAY_P11, DELAY_P10})
        vGeneralDelay(delay);
    vWriteOperand(0x00, 0x00);
}

unsigned char PicProgrammer::u8PicBlankCheck(unsigned int address)
{
    vSetCoreAddress(address);
    for (unsigned int i = 0; i < blankCheckSize; ++i) {
        if (u8ReadNextAddress() != erasedByte)
            return false;
    }
    return true;
}

// The target takes pairs of bytes at even addresses, at most a row at a time. A record's odd start or end is filled up
// with what the target holds there.
unsigned char PicProgrammer::u8WriteToFlash()
{
    const unsigned int end = u32RecordAddress + u8RecordLength;
    const bool oddStart = u32RecordAddress & 1;
    const bool oddEnd = end & 1;
    unsigned char buffer[sizeof au8RecordData + 2];
    unsigned int length = 0;
    unsigned int address = u32RecordAddress;

    if (oddStart || oddEnd)
        vEnterIspMode();
    if (oddStart) {
        --address;
        vSetCoreAddress(address);
        buffer[length++] = u8ReadNextAddress();
    }
    for (unsigned int i = 0; i < u8RecordLength; ++i)
        buffer[length++] = au8RecordData[i];
    if (oddEnd) {
        vSetCoreAddress(end);
        buffer[length++] = u8ReadNextAddress();
    }

    for (unsigned int offset = 0; offset < length;) {
        const unsigned int chunk = qMin(rowSize - address % rowSize, length - offset);
        vProgramPicFlash(address, static_cast<unsigned char>(chunk), buffer + offset);
        offset += chunk;
        address += chunk;
    }
    return u8VerifyPicRecord();
}

void PicProgrammer::vProgramPicFlash(unsigned int address, unsigned char length, unsigned char *data)
{
    vEnterIspMode();
    if (length <= 1)
        return;
    vWriteCore(setEepgd);
    vWriteCore(clearCfgs);
    vSetCoreAddress(address);
    const int lastPair = length - 2;
    for (int i = 0; i < lastPair; i += 2) {
        vWriteCmd(tableWritePostIncrement);
        vWriteOperand(data[i], data[i + 1]);
        vGeneralDelay(DELAY_COMMAND);
    }
    vWriteCmd(tableWriteStartProgramming);
    vWriteOperand(data[lastPair], data[lastPair + 1]);
    vProgramFlashCmd();
    vWriteCore(noOperation);
    vGeneralDelay(DELAY_P10);
}

// The value goes out in both halves of the operand: the target takes the low one for an even address, the high one for
// an odd address.
void PicProgrammer::vProgramPicConfig(unsigned int address, unsigned char value)
{
    vEnterIspMode();
    vWriteCore(setEepgd);
    vWriteCore(setCfgs);
    vSetCoreAddress(address);
    vWriteCmd(tableWriteStartProgramming);
    vWriteOperand(value, value);
    vProgramFlashCmd();
    vWriteCore(noOperation);
    vGeneralDelay(DELAY_P10);
}

unsigned char PicProgrammer::u8VerifyPicRecord()
{
    vEnterIspMode();
    vSetCoreAddress(u32RecordAddress);
    for (unsigned int i = 0; i < u8RecordLength; ++i) {
        const unsigned char actual = u8ReadNextAddress();
        if (actual == au8RecordData[i])
            continue;
        u32VerifyAddress = u32RecordAddress + i;
        u8VerifyCorrect = au8RecordData[i];
        u8VerifyActual = actual;
        qDebug().nospace() << "u32VerifyAddress: " << u32VerifyAddress << " u8VerifyCorrect: " << uint(u8VerifyCorrect)
                           << " u8VerifyActual " << uint(u8VerifyActual);
        return 1;
    }
    return 0;
}

unsigned short PicProgrammer::u16ReadPic()
{
    vEnterIspMode();
    const unsigned short id = u16ReadDeviceId();
    vReadDeviceConfig();
    vRestoreIo();
    return id;
}

void PicProgrammer::vReadPicRecord(unsigned int address)
{
    vSetCoreAddress(address);
    for (unsigned char &byte : au8ReadPicData)
        byte = u8ReadNextAddress();
}

void PicProgrammer::vReadDeviceConfig()
{
    vSetCoreAddress(configurationBegin);
    for (unsigned char &byte : au8DeviceConfig)
        byte = u8ReadNextAddress();
}

void PicProgrammer::vSetEepromAddress(unsigned short address)
{
    vWriteCore(clearEepgd);
    vWriteCore(clearCfgs);
    vWriteCore(static_cast<unsigned short>(moveLiteralToW | (address & 0xFF)));
    vWriteCore(moveWToEeadr);
    vWriteCore(static_cast<unsigned short>(moveLiteralToW | (address >> 8)));
    vWriteCore(moveWToEeadrh);
}

unsigned char PicProgrammer::u8ReadTablat()
{
    vWriteCore(moveWToTablat);
    vWriteCore(noOperation);
    vWriteCmd(shiftOutTablat);
    vWriteByte(0x00);
    return u8ReadByte();
}

unsigned char PicProgrammer::u8ReadPicEeprom(unsigned short address)
{
    vEnterIspMode();
    vSetEepromAddress(address);
    vWriteCore(setRd);
    vWriteCore(moveEedataToW);
    return u8ReadTablat();
}

bool PicProgrammer::vWritePicEeprom(unsigned short address, unsigned char value)
{
    vEnterIspMode();
    vSetEepromAddress(address);
    vWriteCore(moveLiteralToW | value);
    vWriteCore(moveWToEedata);
    vWriteCore(setWren);
    vWriteCore(setWr);
    bool writing = true;
    for (int poll = 0; writing && poll < eepromPollLimit; ++poll) {
        vWriteCore(moveEecon1ToW);
        writing = u8ReadTablat() & writeInProgress;
    }
    vGeneralDelay(DELAY_P10);
    return !writing;
}

void PicProgrammer::vReadEepromBlock()
{
    unsigned short address = 0;
    for (unsigned char &byte : au8ReadPicData)
        byte = u8ReadPicEeprom(address++);
}

void PicProgrammer::vGetEepromCopy()
{
    unsigned short address = 0;
    for (unsigned char &byte : au8EepromCopy)
        byte = u8ReadPicEeprom(address++);
}

bool PicProgrammer::vRestoreEeprom()
{
    unsigned short address = 0;
    for (const unsigned char byte : au8EepromCopy) {
        if (!vWritePicEeprom(address++, byte))
            return false;
    }
    return true;
}

void PicProgrammer::vEraseProgramMemory(unsigned int address)
{
    vEnterIspMode();
    for (int row = 0; row < rowsPerErase; ++row) {
        vWriteCore(setEepgd);
        vWriteCore(clearCfgs);
        vWriteCore(setWren);
        vSetCoreAddress(address);
        vWriteCore(setFree);
        vWriteCore(setWr);
        vProgramFlashCmd();
        vWriteOperand(0x00, 0x00);
        address += rowSize;
    }
    vWriteCore(noOperation);
}

void PicProgrammer::ev_pic_read()
{
    u16DeviceId = u16ReadPic();
    vEnterIspMode();
    vReadPicRecord(0);
    vReadEepromBlock();
}
