// The interpreter of update_config: one command a line, in the order of the file. A line that fails is reported and the
// next one is carried out all the same.

#include <QApplication>
#include <QElapsedTimer>
#include <QStringList>
#include <QTime>

#include "screens/UpdaterProgressScreen.h"
#include "update/SystemCommand.h"
#include "update/UpdatePaths.h"

struct UpdaterProgressScreen::Command
{
    const char *keyword;
    bool (UpdaterProgressScreen::*process)(const QString &argument);
};

const UpdaterProgressScreen::Command UpdaterProgressScreen::commands[] = {
    {"SYSTEM", &UpdaterProgressScreen::processSystem}, {"APP", &UpdaterProgressScreen::processApp},
    {"KERNEL", &UpdaterProgressScreen::processKernel}, {"IMAGE", &UpdaterProgressScreen::processImage},
    {"FILE", &UpdaterProgressScreen::processFile},     {"SCRIPT", &UpdaterProgressScreen::processScript},
};

namespace {

const int settleSeconds = 5; // for the media to finish what sync began
const int longestSettleMs = 10000;

const QLatin1String mainApplication("/usr/local/Trolltech/Qt-Target-version-optimised/mainApp");

} // namespace

QStringList UpdaterProgressScreen::commandKeywords()
{
    QStringList keywords;
    for (const Command &command : commands)
        keywords << QLatin1String(command.keyword);
    return keywords;
}

bool UpdaterProgressScreen::processCommandList(QStringList commandLines)
{
    bool allSucceeded = true;
    while (!commandLines.isEmpty()) {
        if (!processCommandLine(commandLines.takeFirst()))
            allSucceeded = false;
    }
    finaliseUpdate();
    return allSucceeded;
}

bool UpdaterProgressScreen::processCommandLine(const QString &commandLine)
{
    const QStringList pieces = commandLine.split(QLatin1Char(':'));
    if (pieces.size() != 2) {
        appendFailure(tr("Bad command format.   "));
        return false;
    }
    const QString &keyword = pieces.at(0);
    const QString &argument = pieces.at(1);
    for (const Command &command : commands) {
        if (keyword == QLatin1String(command.keyword))
            return (this->*command.process)(argument);
    }
    bool known = false;
    const bool boardUpdated = processBoardCommand(keyword, argument, &known);
    if (known)
        return boardUpdated;
    appendFailure(tr("Unknown command: %1:%2").arg(keyword, argument));
    return false;
}

void UpdaterProgressScreen::finaliseUpdate()
{
    appendLine(tr("Finalising update, please wait"));
    runSystemCommand(QLatin1String("sync"));
    const QTime end = QTime::currentTime().addSecs(settleSeconds);
    QElapsedTimer elapsed; // for a clock that is set back meanwhile, or passes midnight just before the end
    elapsed.start();
    while (QTime::currentTime() <= end && elapsed.elapsed() <= longestSettleMs)
        QApplication::processEvents(QEventLoop::AllEvents);
}

bool UpdaterProgressScreen::processSystem(const QString &argument)
{
    if (argument == QLatin1String("SDCARD")) {
        m_SystemType = SYSTEM_SDCARD;
    } else if (argument == QLatin1String("NAND")) {
        m_SystemType = SYSTEM_NAND;
    } else {
        m_SystemType = SYSTEM_UNKNOWN;
        appendLine(tr("System Type error: Unknown Type: %1").arg(argument));
        return true; // the lines that need the type fail or write nothing
    }
    appendLine(tr("System Type set to: %1").arg(argument));
    return true;
}

bool UpdaterProgressScreen::processApp(const QString &argument)
{
    const QString failureText = tr("Failed - Updating Application with file: %1").arg(argument);
    appendLine(tr("Updating Application with file: %1").arg(argument));
    // The copy is tried whatever became of the remount: the root may have been writable all along.
    const bool remounted = succeeded(runSystemCommand(remountCommand()), failureText);
    const QString copyCommand =
        QLatin1String("cp ") + UpdatePaths::packageDirectory + argument + QLatin1Char(' ') + mainApplication;
    const bool copied = succeeded(runSystemCommand(copyCommand), failureText);
    return remounted && copied;
}

bool UpdaterProgressScreen::processKernel(const QString &argument)
{
    appendLine(tr("Updating kernel with file: %1").arg(argument));
    int result = 0; // of an unknown system type nothing is written, and that is no failure
    if (m_SystemType == SYSTEM_NAND)
        result = updateNANDKernel(argument);
    else if (m_SystemType == SYSTEM_SDCARD)
        result = updateSDCARDKernel(argument);
    return succeeded(result, tr("Failed - Updating kernel with file: %1").arg(argument));
}

bool UpdaterProgressScreen::processImage(const QString &argument)
{
    appendLine(tr("Updating root image with file: %1").arg(argument));
    if (m_SystemType != SYSTEM_NAND) {
        appendFailure(tr("Failed - Updating root image with file: %1\nWrong System type").arg(argument));
        return false;
    }
    return succeeded(updateUbiImage(argument), tr("Failed - Updating root image with file: %1").arg(argument));
}

bool UpdaterProgressScreen::processFile(const QString &argument)
{
    appendLine(tr("Updating root files with folder: %1").arg(argument));
    return succeeded(updateRootfs(argument), tr("Failed - Updating root files with folder: %1").arg(argument));
}

bool UpdaterProgressScreen::processScript(const QString &argument)
{
    appendLine(tr("Running script file: %1").arg(argument));
    const int result = runSystemCommand(UpdatePaths::packageDirectory + argument + QLatin1Char(' '));
    return succeeded(result, tr("Failed - Running script file: %1").arg(argument));
}

/// The command that makes the root file system writable; empty, and so bound to fail, for an unknown system type.
QString UpdaterProgressScreen::remountCommand() const
{
    switch (m_SystemType) {
    case SYSTEM_SDCARD:
        return QLatin1String("mount / -o remount,rw");
    case SYSTEM_NAND:
        return QLatin1String("mount ubi0:rootfs -o remount,rw");
    case SYSTEM_UNKNOWN:
        break;
    }
    return QString();
}
