#include "pic/PicDelay.h"

#include "simulator/models/pic/VirtualBoards.h"

using namespace simulator;

void waitFor(PIC_DELAY delay)
{
    VirtualBoards::installed().wait(picDelayNanoseconds[delay]);
}

// The C library's, with which the updater lets the boards settle: on their clock. A test may have one of its own.
extern "C" __attribute__((weak)) unsigned int sleep(unsigned int seconds)
{
    VirtualBoards::installed().advance(seconds * Q_INT64_C(1000000000));
    return 0;
}
