// What the F1 key does on the progress screen: prepare and mount the update medium, then hand over to the update run.

#include "screens/UpdaterProgressScreen.h"
#include "update/SystemCommand.h"
#include "update/UpdatePaths.h"

using namespace UpdatePaths;

namespace {

int exportStorage(const QLatin1String &storage)
{
    return runSystemCommand(QLatin1String("modprobe g_mass_storage file=") + storage);
}

int mountUpdateDrive(const QString &drive)
{
    return runSystemCommand(QLatin1String("mount ") + drive + QLatin1Char(' ') + mountPoint);
}

} // namespace

void UpdaterProgressScreen::setUpdateType(int updateType)
{
    m_UpdateType = updateType;
    switch (updateType) {
    case UpdateViaPc:
        m_UpdateState = StatePcConnect;
        showPrompt(tr("Attach the unit to the PC via the USB cable provided then press F1\n"));
        break;
    case UpdateViaMemoryStick:
        m_UpdateState = StateMemoryStick;
        showPrompt(
            tr("Insert a memory stick containing the update_firmware.tar.bz2 file into the unit then press F1\n"));
        break;
    case UpdateViaSdCard:
        m_UpdateState = StateSdCard;
        showPrompt(tr("Insert an SD card containing the update_firmware.tar.bz2 file into the unit then press F1\n"));
        break;
    default:
        break;
    }
}

void UpdaterProgressScreen::F1Clicked()
{
    // The key acts a tenth of a second after it was pressed, when a click may have started an update already.
    if (!ui.F1Button->isEnabled())
        return;
    // Releases what an earlier run may have left mounted; most of the time there is nothing, and that is no failure.
    runSystemCommand(QLatin1String("umount ") + mountPoint);

    switch (m_UpdateState) {
    case StatePcConnect:
        openPcConnection();
        break;
    case StateMemoryStick:
        updateFromMemoryStick();
        break;
    case StateSdCard:
        updateFromSdCard();
        break;
    case StateFinished:
        emit requestChangeScreen(MainScreenIndex);
        break;
    case StatePcConnected:
        closePcConnection();
        break;
    default:
        break;
    }
}

void UpdaterProgressScreen::openPcConnection()
{
    appendLine(tr("Initialising PC connection"));
    if (runSystemCommand(QLatin1String("modprobe fsl_usb2_udc")) != 0)
        return endSequence(tr("Failed to initialise USB Device Controller press F1 to return to the main screen\n"));

    if (exportStorage(backingFile) == 0) {
        appendLine(tr("Copy the firmware_update_tar.bz2 file to the unit and press F1\n"));
        currentDevicePart = backingFile;
        m_UpdateState = StatePcConnected;
    } else if (exportStorage(sdCardPartition) == 0) {
        appendLine(tr("Copy the update_firmware.tar.bz2 file to the unit and press F1\n"));
        currentDevicePart = sdCardPartition;
        m_UpdateState = StatePcConnected;
    } else {
        endSequence(tr("Failed to initialise PC connection press F1 to return to the main screen\n"));
    }
}

void UpdaterProgressScreen::closePcConnection()
{
    if (runSystemCommand(QLatin1String("rmmod g_mass_storage")) != 0)
        return endSequence(tr("Failed to close PC connection, press F1 to return to the main screen\n"));
    if (runSystemCommand(QLatin1String("rmmod fsl_usb2_udc")) != 0)
        return endSequence(tr("Failed to close USB device controller, press F1 to return to the main screen\n"));

    appendLine(tr("Processing update\n"));
    updateFromExportedStorage();
}

void UpdaterProgressScreen::updateFromExportedStorage()
{
    if (currentDevicePart == backingFile) {
        if (!attachLoopDevice())
            return endSequence(tr("Failed to create loop device, press F1 to return to the main screen\n"));
        if (mountUpdateDrive(QLatin1String("-t vfat ") + loopDevice) != 0)
            return endSequence(tr("Failed to mount loop device, press F1 to return to the main screen\n"));
    } else if (mountUpdateDrive(currentDevicePart) != 0) {
        return endSequence(tr("Failed to mount update drive, press F1 to return to the main screen\n"));
    }
    performUpdate();
}

/// The PC sees a disk: its FAT file system begins after the first 4096 bytes.
bool UpdaterProgressScreen::attachLoopDevice()
{
    if (m_LoopDeviceAttached)
        detachLoopDevice();
    const QString command = QLatin1String("losetup -o 4096 ") + loopDevice + QLatin1Char(' ') + backingFile;
    m_LoopDeviceAttached = runSystemCommand(command) == 0;
    return m_LoopDeviceAttached;
}

void UpdaterProgressScreen::updateFromMemoryStick()
{
    appendLine(tr("Processing update\n"));
    if (!mountMemoryStick())
        return endSequence(tr("Failed to mount update drive, press F1 to return to the main screen\n"));
    performUpdate();
}

// A stick holds its file system either on the whole disk or in its first partition.
bool UpdaterProgressScreen::mountMemoryStick()
{
    m_UpdateDrive = memoryStick;
    if (mountUpdateDrive(m_UpdateDrive) == 0)
        return true;
    m_UpdateDrive += QLatin1Char('1');
    return mountUpdateDrive(m_UpdateDrive) == 0;
}

void UpdaterProgressScreen::updateFromSdCard()
{
    appendLine(tr("Processing update\n"));
    if (mountUpdateDrive(sdCardPartition) != 0)
        return endSequence(tr("Failed to mount update drive, press F1 to return to the main screen\n"));
    performUpdate();
}

void UpdaterProgressScreen::endSequence(const QString &failureText)
{
    appendFailure(failureText);
    m_UpdateState = StateFinished;
}
