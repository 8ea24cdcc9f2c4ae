#ifndef SCREENS_VERSIONSTRING_H
#define SCREENS_VERSIONSTRING_H

#include <QString>

/// The program's version, set before main() runs, in the form of a version control keyword ("$Version: N $").
/// The main screen takes the dollar signs out of it, in place, when it is built.
extern QString versionString;

#endif
