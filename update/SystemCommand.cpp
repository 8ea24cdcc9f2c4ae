#include "update/SystemCommand.h"

#include <QProcess>
#include <QStringList>

int runSystemCommand(const QString &commandLine)
{
    const int cannotBeStarted = -2; // the process facility's own result for that
    QStringList arguments = commandLine.split(QLatin1Char(' '));
    arguments.removeAll(QString()); // several blanks in a row separate like one
    if (arguments.isEmpty())
        return cannotBeStarted;
    const QString program = arguments.takeFirst();
    return QProcess::execute(program, arguments);
}
