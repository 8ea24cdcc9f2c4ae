#include "pic/PicDelay.h"

#include "bench/pic/VirtualBoards.h"

void waitFor(PIC_DELAY delay)
{
    VirtualBoards::installed().wait(picDelayNanoseconds[delay]);
}
