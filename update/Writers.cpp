// The writers of kernel, root image and root files. They show nothing; the interpreter reports for them.

#include <initializer_list>

#include "screens/UpdaterProgressScreen.h"
#include "update/SystemCommand.h"

namespace {

// Puts the file name of the command line into the place-holders, runs the command, and so on until one fails.
int runInOrder(std::initializer_list<const char *> commandTemplates, const QString &fileName)
{
    for (const char *const commandTemplate : commandTemplates) {
        if (runSystemCommand(QString::fromLatin1(commandTemplate).replace(QLatin1String("%1"), fileName)) != 0)
            return -1;
    }
    return 0;
}

} // namespace

int UpdaterProgressScreen::updateSDCARDKernel(QString fileName)
{
    return runInOrder({"sdimage -f /tmp/firmware_update%1 -d /dev/mmcblk0"}, fileName);
}

int UpdaterProgressScreen::updateNANDKernel(QString fileName)
{
    return runInOrder({"flash_eraseall /dev/mtd0", "nandwrite /dev/mtd0 /tmp/firmware_update%1 -p"}, fileName);
}

// The tool goes to /tmp first: once the partition is erased, the root file system can no longer provide it. The image
// goes beside it.
int UpdaterProgressScreen::updateUbiImage(QString fileName)
{
    return runInOrder({"cp /usr/bin/ubiformat /tmp", "cp /tmp/firmware_update%1 /tmp", "flash_eraseall /dev/mtd1",
                       "/tmp/ubiformat /dev/mtd1 -f /tmp%1"},
                      fileName);
}

int UpdaterProgressScreen::updateRootfs(QString fileName)
{
    return runInOrder({remountCommand(), "cp -a /tmp/firmware_update%1 %1"}, fileName);
}

/// The command that makes the root file system writable. It is empty, and fails, for an unknown system type.
const char *UpdaterProgressScreen::remountCommand() const
{
    if (m_SystemType == SYSTEM_UNKNOWN)
        return "";
    return m_SystemType == SYSTEM_NAND ? "mount ubi0:rootfs -o remount,rw" : "mount / -o remount,rw";
}
