#ifndef UPDATE_SYSTEMTYPE_H
#define UPDATE_SYSTEMTYPE_H

/// Which root file system the package is for.
enum SYSTEM_TYPE { SYSTEM_SDCARD = 0, SYSTEM_NAND = 1, SYSTEM_UNKNOWN = 2 };

#endif
