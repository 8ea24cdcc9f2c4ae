#include "pic/PicDelay.h"

#include <ctime>

namespace {

// Below this the clock itself takes too long to read.
const unsigned int shortestOnClock = 1000;

// The processor is never faster than this: the instrument's ARM9, or a host that runs the tests.
#if defined(__ARM_ARCH) && __ARM_ARCH == 5
const unsigned int highestMegahertz = 454;
#else
const unsigned int highestMegahertz = 6000;
#endif

// A pass is two operations of which each needs the result of the one before it: two cycles on any processor, which no
// compiler can shorten because it knows neither value.
void loopFor(unsigned int nanoseconds)
{
    static volatile unsigned int memory = 1;
    const unsigned int operand = memory;
    const unsigned int passes = loopPasses(nanoseconds, highestMegahertz);
    unsigned int value = memory;
    for (unsigned int pass = 0; pass < passes; ++pass) {
        value ^= operand;
        value += operand;
    }
    memory = value;
}

long long monotonicNanoseconds()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000000000LL + now.tv_nsec;
}

// Counts from the clock's next tick, so that a coarse clock does not shorten the delay by the part of a tick that had
// passed already.
void waitOnClock(unsigned int nanoseconds)
{
    const long long called = monotonicNanoseconds();
    long long begin = called;
    while (begin == called)
        begin = monotonicNanoseconds();
    while (monotonicNanoseconds() - begin < nanoseconds) {
    }
}

} // namespace

void waitFor(PIC_DELAY delay)
{
    const unsigned int nanoseconds = nanosecondsOf(delay);
    if (nanoseconds < shortestOnClock)
        loopFor(nanoseconds);
    else
        waitOnClock(nanoseconds);
}
