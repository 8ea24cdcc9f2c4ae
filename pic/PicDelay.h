#ifndef PIC_PICDELAY_H
#define PIC_PICDELAY_H

/// The waits of the PIC programming link.
enum PIC_DELAY {
    DELAY_CLOCK = 0,   ///< each half period of PGC
    DELAY_COMMAND = 1, ///< after a 4-bit command
    DELAY_OPERAND = 3, ///< after an operand byte
    DELAY_P9 = 4,      ///< PGC high while the target programs, or erases a row
    DELAY_P10 = 5,     ///< PGC low after programming or erasing
    DELAY_P11 = 6,     ///< bulk erase; three in a row
    DELAY_ENTRY = 7,   ///< after the release of MCLR
    DELAY_RESET = 8,   ///< MCLR low before the enable line rises
    DELAY_SETUP = 9,   ///< from the enable line's rise to the release of MCLR
    DELAY_RELEASE = 10,
    DELAY_PULSE = 11 ///< MCLR low in the reset pulse
};

/// Nanoseconds of each PIC_DELAY. P9 and P10 are the chip's minimum times. Three waits of P11, and the reset pulse,
/// exceed twice the chip's minimum of 5 ms and of 2 us.
inline constexpr unsigned int picDelayNanoseconds[] = {
    32, 32, 0, 32, 1000000, 100000, 4000000, 6000000, 6000000, 1500, 32, 5000,
};

/// Waits in a loop, at least as long as the table says at any processor frequency. Never sleeps or yields.
void waitFor(PIC_DELAY delay);

#endif
