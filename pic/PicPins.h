#ifndef PIC_PICPINS_H
#define PIC_PICPINS_H

class MemoryMappedPinController;

/// One SoC pin of the programming link: its registers, as offsets in the pin-control block, and its bit in them.
struct PicPin
{
    unsigned int outputRegister;
    unsigned int directionRegister;
    unsigned int mask;
};

/// Physical address of the pin-control block.
inline constexpr unsigned int pinControlBlock = 0x80018000;

inline constexpr int picCount = 4;

// Shared by all PICs. PGD is read in the input register of its bank.
inline constexpr PicPin pgcPin = {0x740, 0xB40, 1U << 14};
inline constexpr PicPin pgdPin = {0x740, 0xB40, 1U << 15};
inline constexpr unsigned int pgdInputRegister = 0x940;
inline constexpr PicPin ispEnablePin = {0x700, 0xB00, 1U << 17};

/// The MCLR line of PIC 1 to 4; null for any other number. High releases the PIC, low holds it in reset.
const PicPin *mclrPin(int picNumber);
/// The MCLR of PIC 1: the boards wire it to the selection of an ESA board as well. Low selects the IO board. High
/// selects the Measurement board and releases PIC 1.
const PicPin &esaSelectPin();

/// Drives the MCLR line of PIC 1 to 4 low. Touches no line for any other number.
void holdInReset(MemoryMappedPinController *pinController, int picNumber);

#endif
