#ifndef BENCHMARKS_PICUPDATE_H
#define BENCHMARKS_PICUPDATE_H

#include "pic/PicProgrammer.h"

/// Precedes the programmer of the PIC that is updated.
void holdPicsInReset();

/// The complete update that is measured: the erase phase with its blank check, then 32 KiB in records of 16 bytes, all
/// erased bytes. Its course is the same whatever the pins lead to, because it does not depend on the data. False when
/// it failed.
bool updatePic(PicProgrammer *programmer);

#endif
