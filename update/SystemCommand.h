#ifndef UPDATE_SYSTEMCOMMAND_H
#define UPDATE_SYSTEMCOMMAND_H

#include <QString>

/// Splits `commandLine` at its spaces, starts the program directly (no shell) and waits for its end. Its output passes
/// through, its standard input is empty. Returns its exit code; nonzero also when it cannot be started (an empty line
/// included) or crashes.
int runSystemCommand(const QString &commandLine);

#endif
