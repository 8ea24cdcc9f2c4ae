// The update run: finds the one package on the mounted medium, unpacks it, executes its command file, cleans up.

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include "screens/UpdaterProgressScreen.h"
#include "update/SystemCommand.h"
#include "update/UpdateLine.h"
#include "update/UpdatePaths.h"

using namespace UpdatePaths;

namespace {

const QLatin1String packageDirectoryName("firmware_update");

// The name of the package; empty unless there is exactly one: the updater never chooses among several.
QString findPackage()
{
    const QStringList packages = QDir(mountPoint).entryList(QStringList(packagePattern));
    return packages.size() == 1 ? packages.first() : QString();
}

int unpack(const QString &package)
{
    return runSystemCommand(QLatin1String("tar jxvf ") + mountPoint + QLatin1Char('/') + package +
                            QLatin1String(" -C ") + unpackDirectory);
}

// Directories are listed too; deleting one as a file fails, and it stays.
void deleteFiles(QDir directory)
{
    const QStringList names = directory.entryList();
    for (const QString &name : names)
        directory.remove(name);
}

} // namespace

void UpdaterProgressScreen::performUpdate()
{
    ui.F1Button->setEnabled(false);
    appendLine(tr("Extracting update\n"));

    const QString package = findPackage();
    if (package.isEmpty())
        return abandonUpdate(tr("Could not find update file, press F1 to return to the main screen\n"));
    if (unpack(package) != 0)
        return abandonUpdate(tr("Failed to extract update files, press F1 to return to the main screen\n"));
    QFile file(commandFile);
    const bool opened = QFileInfo(file).isFile() && file.open(QIODevice::ReadOnly); // a FIFO would block
    const QByteArray content = opened ? file.readAll() : QByteArray();
    if (!opened || file.error() != QFile::NoError)
        return abandonUpdate(tr("Failed to open update file, press F1 to return to the main screen\n"));

    const bool allSucceeded = processCommandList(UpdateLine::linesOf(content));

    appendLine(tr("Removing temporary files\n"));
    file.close();
    cleanUpMedium();

    if (allSucceeded)
        appendSuccess(tr("Update complete, restart the system or press F1 to return to the main screen\n"));
    else
        appendFailure(tr("Some of the updates failed, press F1 to return to the main screen\n"));
    ui.F1Button->setEnabled(true);
    m_UpdateState = StateFinished;
    ui.progressMessageWindow->setFocus();
}

/// The run cannot begin. The medium stays mounted until the next F1; the loop device is detached, because a restarted
/// program would not know of it and could not attach it again.
void UpdaterProgressScreen::abandonUpdate(const QString &failureText)
{
    ui.F1Button->setEnabled(true);
    appendFailure(failureText);
    if (m_UpdateType == UpdateViaPc)
        detachLoopDevice();
    m_UpdateState = StateFinished;
}

/// After an update from a PC the files at the top of the storage and in the package's folder are deleted; any other
/// medium belongs to the operator and is only released.
void UpdaterProgressScreen::cleanUpMedium()
{
    if (m_UpdateType == UpdateViaPc) {
        QDir medium(mountPoint);
        deleteFiles(QDir(medium.filePath(packageDirectoryName)));
        deleteFiles(medium);
        medium.rmdir(packageDirectoryName);
        runSystemCommand(QLatin1String("sync"));
    }
    runSystemCommand(QLatin1String("umount ") + mountPoint);
    if (m_UpdateType == UpdateViaPc)
        detachLoopDevice();
}

/// Kernels before 3.7 do not detach a loop device that is mounted. The device is then detached before it is attached
/// again.
void UpdaterProgressScreen::detachLoopDevice()
{
    if (runSystemCommand(QLatin1String("losetup -d ") + loopDevice) == 0)
        m_LoopDeviceAttached = false;
}
