#ifndef PIC_PICMEMORYMAP_H
#define PIC_PICMEMORYMAP_H

/// The memories of a PIC18F4620, 4680, 4682 and 4685 as programming mode addresses them (programming data sheet).
namespace PicMemoryMap {

const unsigned int rowSize = 64; ///< bytes of the write buffer and of the smallest erase
/// The program memory that is erased and checked: all of a 64 KiB device, the first 64 KiB of a larger one.
const unsigned int programMemorySize = 0x10000;
/// A record is written when its last byte lies below this address.
const unsigned int programMemoryEnd = 0xFFFE;

const unsigned int configurationBegin = 0x300000;
const unsigned int lastConfigurationByte = 0x30000D;
const unsigned int lastConfigurationRecord = 0x30000C; ///< a record that begins after it is skipped

const unsigned int eraseKeyLow = 0x3C0004;
const unsigned int eraseKeyHigh = 0x3C0005;
const unsigned int deviceId = 0x3FFFFE;

} // namespace PicMemoryMap

#endif
