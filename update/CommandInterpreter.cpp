// The interpreter of update_config: one command a line, in the order of the file. A line that fails is reported, and
// the next one is executed.

#include <QApplication>
#include <QElapsedTimer>
#include <QStringList>
#include <QTime>

#include "screens/UpdaterProgressScreen.h"
#include "update/SystemCommand.h"
#include "update/UpdateLine.h"
#include "update/UpdatePaths.h"

namespace {

const int settleSeconds = 5; // for the media to finish what sync began
const int longestSettleMs = 10000;

} // namespace

bool UpdaterProgressScreen::processCommandList(QStringList commandLines)
{
    bool allSucceeded = true;
    while (!commandLines.isEmpty()) {
        if (!processCommandLine(UpdateLine(commandLines.takeFirst())))
            allSucceeded = false;
    }
    finaliseUpdate();
    return allSucceeded;
}

bool UpdaterProgressScreen::processCommandLine(const UpdateLine &line)
{
    if (line.kind == UpdateLine::Pic && !m_PicUpdateEnabled) {
        appendFailure(tr("Failed - PIC updates not enabled"));
        return false;
    }
    const QString failureText = line.failure.filledIn(tr(line.failure.text));
    if (line.announcement.text)
        appendLine(line.announcement.filledIn(tr(line.announcement.text)));

    switch (line.kind) {
    case UpdateLine::Malformed:
    case UpdateLine::Unknown:
        break;
    case UpdateLine::System:
        m_SystemType = line.systemType; // an unknown one does not fail the line
        return true;
    case UpdateLine::App:
        return processApp(line, failureText);
    case UpdateLine::Kernel:
        return succeeded(updateKernel(line.argument), failureText);
    case UpdateLine::Image:
        if (m_SystemType == SYSTEM_NAND)
            return succeeded(updateUbiImage(line.argument), failureText);
        appendFailure(tr("Failed - Updating root image with file: %1\nWrong System type").arg(line.argument));
        return false;
    case UpdateLine::File:
        return succeeded(updateRootfs(line.argument), failureText);
    case UpdateLine::Script:
        return succeeded(runSystemCommand(UpdatePaths::packageDirectory + line.argument + QLatin1Char(' ')),
                         failureText);
    case UpdateLine::Pic:
        return succeeded(updatePic(line.picNumber, line.argument), failureText);
    case UpdateLine::Esa:
        return succeeded(updateESA(line.argument, line.esaBoard, line.esaUpdateType), failureText);
    }
    appendFailure(failureText);
    return false;
}

bool UpdaterProgressScreen::processApp(const UpdateLine &line, const QString &failureText)
{
    // The copy is made also after a failed remount: the root may have been writable before.
    const bool remounted = succeeded(runSystemCommand(QLatin1String(remountCommand())), failureText);
    const QString copyCommand = QLatin1String("cp ") + UpdatePaths::packageDirectory + line.argument +
                                QLatin1Char(' ') + UpdatePaths::mainApplication;
    const bool copied = succeeded(runSystemCommand(copyCommand), failureText);
    return remounted && copied;
}

int UpdaterProgressScreen::updateKernel(const QString &fileName)
{
    if (m_SystemType == SYSTEM_UNKNOWN)
        return 0; // nothing is written, and that is no failure
    return m_SystemType == SYSTEM_NAND ? updateNANDKernel(fileName) : updateSDCARDKernel(fileName);
}

void UpdaterProgressScreen::finaliseUpdate()
{
    appendLine(tr("Finalising update, please wait"));
    runSystemCommand(QLatin1String("sync"));
    const QTime end = QTime::currentTime().addSecs(settleSeconds);
    QElapsedTimer elapsed; // for a clock that is set back meanwhile, or that passes midnight
    elapsed.start();
    while (QTime::currentTime() <= end && elapsed.elapsed() <= longestSettleMs)
        QApplication::processEvents(QEventLoop::AllEvents);
}
