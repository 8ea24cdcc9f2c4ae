#ifndef BENCHMARKS_CARDUPDATE_H
#define BENCHMARKS_CARDUPDATE_H

#include <QByteArray>

class UpdaterProgressScreen;

/// Executes a package on the SD card, with this command file and one executable payload, /payload. Returns how long the
/// update took.
double secondsOfUpdate(UpdaterProgressScreen *screen, const QByteArray &commandFile, const QByteArray &payload);

#endif
