#ifndef SIMULATOR_REHEARSAL_FILECONTENT_H
#define SIMULATOR_REHEARSAL_FILECONTENT_H

#include <QByteArray>
#include <QString>
#include <QStringList>

/// The content of a file; empty when it cannot be read.
QByteArray contentOf(const QString &fileName);

/// The lines of a text file without their ends, LF or CR LF.
QStringList linesOf(const QString &fileName);

#endif
