#ifndef SIMULATOR_MODELS_PIC_PIC18DEVICE_H
#define SIMULATOR_MODELS_PIC_PIC18DEVICE_H

#include <array>

namespace simulator {

/// What distinguishes the devices of the family, from their published data sheets.
struct Pic18Device
{
    using Configuration = std::array<unsigned char, 16>;

    const char *name;
    unsigned int id;                 ///< device id, revision 0
    unsigned int programSize;        ///< bytes, in blocks of 16 KiB; the boot block is cut off from the first
    bool bootSizeSelectable;         ///< by BBSIZ in CONFIG4L
    Configuration configurationMask; ///< implemented bits; the others read 0

    static const Pic18Device pic18f4620, pic18f4680, pic18f4682, pic18f4685;
    /// As erased, where implemented.
    static constexpr Configuration configurationDefault = {0x00, 0x07, 0x1F, 0x1F, 0x00, 0x83, 0x85, 0x00,
                                                           0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00};
};

inline const Pic18Device Pic18Device::pic18f4620 = {
    "PIC18F4620", 0x0C00, 0x10000, false, {0, 0xCF, 0x1F, 0x1F, 0, 0x87, 0xC5, 0, 0x0F, 0xC0, 0x0F, 0xE0, 0x0F, 0x40}};
inline const Pic18Device Pic18Device::pic18f4680 = {
    "PIC18F4680", 0x0E80, 0x10000, true, {0, 0xCF, 0x1F, 0x1F, 0, 0x86, 0xF5, 0, 0x0F, 0xC0, 0x0F, 0xE0, 0x0F, 0x40}};
inline const Pic18Device Pic18Device::pic18f4682 = {
    "PIC18F4682", 0x2740, 0x14000, true, {0, 0xCF, 0x1F, 0x1F, 0, 0x86, 0xF5, 0, 0x1F, 0xC0, 0x1F, 0xE0, 0x1F, 0x40}};
inline const Pic18Device Pic18Device::pic18f4685 = {
    "PIC18F4685", 0x2760, 0x18000, true, {0, 0xCF, 0x1F, 0x1F, 0, 0x86, 0xF5, 0, 0x3F, 0xC0, 0x3F, 0xE0, 0x3F, 0x40}};

} // namespace simulator

#endif
