#ifndef SIMULATOR_MODELS_PIC_PIC18DEVICE_H
#define SIMULATOR_MODELS_PIC_PIC18DEVICE_H

#include <array>

namespace simulator {

/// What distinguishes the devices of the family, from their published data sheets.
struct Pic18Device
{
    using Configuration = std::array<unsigned char, 16>;

    const char *name;
    unsigned short id;                  ///< device id, revision 0
    unsigned int programSize;           ///< bytes, in blocks of 16 KiB; the boot block is cut off from the first
    bool bootSizeSelectable;            ///< by BBSIZ in CONFIG4L
    Configuration configurationMask;    ///< implemented bits; the others read 0
    Configuration configurationDefault; ///< as erased

    static const Pic18Device pic18f4620;
    static const Pic18Device pic18f4680;
    static const Pic18Device pic18f4682;
    static const Pic18Device pic18f4685;
};

} // namespace simulator

#endif
