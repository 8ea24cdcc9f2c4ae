// The writers of kernel, root image and root files. They show nothing; the interpreter reports for them.

#include <QStringList>

#include "screens/UpdaterProgressScreen.h"
#include "update/SystemCommand.h"

namespace {

// Puts the file name of the command line into the place-holders, runs the command, and so on until one fails.
int runInOrder(const QStringList &commandTemplates, const QString &fileName)
{
    for (const QString &commandTemplate : commandTemplates) {
        QString commandLine = commandTemplate;
        if (commandTemplate.contains(QLatin1String("%1")))
            commandLine = commandTemplate.arg(fileName);
        if (runSystemCommand(commandLine) != 0)
            return -1;
    }
    return 0;
}

} // namespace

int UpdaterProgressScreen::updateSDCARDKernel(QString fileName)
{
    return runInOrder(QStringList() << QLatin1String("sdimage -f /tmp/firmware_update%1 -d /dev/mmcblk0"), fileName);
}

int UpdaterProgressScreen::updateNANDKernel(QString fileName)
{
    return runInOrder(QStringList() << QLatin1String("flash_eraseall /dev/mtd0")
                                    << QLatin1String("nandwrite /dev/mtd0 /tmp/firmware_update%1 -p"),
                      fileName);
}

// Tool and image go to /tmp first: once the partition is erased, the root file system can no longer provide them.
int UpdaterProgressScreen::updateUbiImage(QString fileName)
{
    return runInOrder(QStringList() << QLatin1String("cp /usr/bin/ubiformat /tmp")
                                    << QLatin1String("cp /tmp/firmware_update%1 /tmp")
                                    << QLatin1String("flash_eraseall /dev/mtd1")
                                    << QLatin1String("/tmp/ubiformat /dev/mtd1 -f /tmp%1"),
                      fileName);
}

int UpdaterProgressScreen::updateRootfs(QString fileName)
{
    return runInOrder(QStringList() << remountCommand() << QLatin1String("cp -a /tmp/firmware_update%1 %1"), fileName);
}

/// The command that makes the root file system writable. It is empty, and fails, for an unknown system type.
QString UpdaterProgressScreen::remountCommand() const
{
    if (m_SystemType == SYSTEM_UNKNOWN)
        return QString();
    return QLatin1String(m_SystemType == SYSTEM_NAND ? "mount ubi0:rootfs -o remount,rw" : "mount / -o remount,rw");
}
