#include "pic/PicDelay.h"

#include "simulator/models/pic/VirtualBoards.h"

using namespace simulator;

void waitFor(PIC_DELAY delay)
{
    VirtualBoards::installed().wait(picDelayNanoseconds[delay]);
}
