#ifndef BENCHMARKS_BENCHMARKUPDATE_H
#define BENCHMARKS_BENCHMARKUPDATE_H

#include <QByteArray>

class UpdaterProgressScreen;

/// Puts a package with this command file and one executable payload, /payload, on the SD card.
void putPackageOnCard(const QByteArray &commandFile, const QByteArray &payload);

/// Carries out the package on the SD card. Returns how long that took.
double secondsOfUpdateFromCard(UpdaterProgressScreen *screen);

#endif
