#include "update/SystemCommand.h"

#include <QProcess>
#include <QStringList>

int runSystemCommand(const QString &commandLine)
{
    // The same results as those of QProcess::execute(), which cannot replace the standard input.
    const int cannotBeStarted = -2;
    const int crashed = -1;
    QStringList arguments = commandLine.split(QLatin1Char(' '));
    arguments.removeAll(QString()); // several spaces in a row separate like one
    if (arguments.isEmpty())
        return cannotBeStarted;

    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedChannels);
    process.setStandardInputFile(QLatin1String("/dev/null")); // the operator has no keyboard
    const QString program = arguments.takeFirst();
    process.start(program, arguments);
    if (!process.waitForFinished(-1) || process.error() == QProcess::FailedToStart)
        return cannotBeStarted;
    return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : crashed;
}
