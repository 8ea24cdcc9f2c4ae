#ifndef BENCH_FILECONTENT_H
#define BENCH_FILECONTENT_H

#include <QByteArray>
#include <QString>

/// The content of a file; empty when it cannot be read.
QByteArray contentOf(const QString &fileName);

#endif
