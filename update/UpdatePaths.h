#ifndef UPDATE_UPDATEPATHS_H
#define UPDATE_UPDATEPATHS_H

#include <QLatin1String>

/// The fixed places of an update on the instrument.
namespace UpdatePaths {

const QLatin1String mountPoint("/mnt/update");
const QLatin1String unpackDirectory("/tmp");
const QLatin1String packageDirectory("/tmp/firmware_update");
const QLatin1String commandFile("/tmp/firmware_update/update_config");
const QLatin1String packagePattern("*firmware_update*.tar.bz2");

} // namespace UpdatePaths

#endif
