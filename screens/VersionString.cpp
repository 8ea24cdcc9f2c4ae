#include "screens/VersionString.h"

QString versionString = QLatin1String("$Version: 2.1 $");
