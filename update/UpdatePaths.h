#ifndef UPDATE_UPDATEPATHS_H
#define UPDATE_UPDATEPATHS_H

#include <QString>

/// The fixed places of an update on the instrument.
namespace UpdatePaths {

const QLatin1String backingFile("/mnt/ubiData/backfile"); ///< a disk whose FAT file system begins after 4096 bytes
const QLatin1String loopDevice("/dev/loop0");             ///< that file system
const QLatin1String sdCardPartition("/dev/mmcblk0p4");
const QLatin1String memoryStick("/dev/sda");
const QLatin1String mountPoint("/mnt/update");
const QLatin1String unpackDirectory("/tmp");
const QLatin1String packageDirectory("/tmp/firmware_update");
const QLatin1String commandFile("/tmp/firmware_update/update_config");
const QLatin1String packagePattern("*firmware_update*.tar.bz2");
const QLatin1String mainApplication("/usr/local/Trolltech/Qt-Target-version-optimised/mainApp");

} // namespace UpdatePaths

#endif
