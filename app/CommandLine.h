#ifndef APP_COMMANDLINE_H
#define APP_COMMANDLINE_H

#include <QSettings>
#include <QStringList>

/// Stores the options of the command line in the settings, so that they also hold for later starts. `arguments` begins
/// with the program name. Each argument is written to the debug output; one that is not known is named there and
/// ignored.
void applyCommandLine(const QStringList &arguments, QSettings *settings);

#endif
