#ifndef PIC_PICDELAY_H
#define PIC_PICDELAY_H

/// The waits of the PIC programming link.
enum PIC_DELAY {
    DELAY_CLOCK = 0,
    DELAY_COMMAND = 1,
    DELAY_OPERAND = 3,
    DELAY_P9 = 4,
    DELAY_P10 = 5,
    DELAY_P11 = 6,
    DELAY_ENTRY = 7,
    DELAY_RESET = 8,
    DELAY_SETUP = 9,
    DELAY_RELEASE = 10,
    DELAY_PULSE = 11
};

struct PicDelayRow
{
    PIC_DELAY delay;
    unsigned int nanoseconds;
};

inline constexpr PicDelayRow picDelays[] = {
    {DELAY_CLOCK, 32},      // each half period of PGC
    {DELAY_COMMAND, 32},    // after a 4-bit command, and after each pair of bytes of a row but the last
    {DELAY_OPERAND, 32},    // after an operand byte
    {DELAY_P9, 1000000},    // PGC high while the target programs, or erases a row: the chip's minimum is 1 ms
    {DELAY_P10, 100000},    // PGC low after programming or erasing: the chip's minimum is 100 us
    {DELAY_P11, 4000000},   // bulk erase: three waits of P11 exceed twice the chip's minimum of 5 ms
    {DELAY_ENTRY, 6000000}, // after the release of MCLR
    {DELAY_RESET, 6000000}, // MCLR low before the enable line rises
    {DELAY_SETUP, 1500},    // from the enable line's rise to the release of MCLR
    {DELAY_RELEASE, 32},    // before the reset pulse
    {DELAY_PULSE, 5000},    // MCLR low in the reset pulse: more than twice the chip's minimum of 2 us
};

constexpr unsigned int nanosecondsOf(PIC_DELAY delay)
{
    for (const PicDelayRow &row : picDelays) {
        if (row.delay == delay)
            return row.nanoseconds;
    }
    return 0;
}

/// Passes of the waiting loop, of two clock cycles each, that cover `nanoseconds` at `megahertz`; their product
/// must fit 32 bits.
constexpr unsigned int loopPasses(unsigned int nanoseconds, unsigned int megahertz)
{
    return (nanoseconds * megahertz + 1999) / 2000;
}

/// Waits in a loop, at least as long as the table says at any frequency of the processor. Never sleeps or yields.
void waitFor(PIC_DELAY delay);

#endif
