#include "app/CommandLine.h"

#include <QtDebug>

namespace {

struct FlagOption
{
    const char *argument;
    const char *key;
    bool value;
};

const FlagOption flagOptions[] = {
    {"--pic-enable", "PicEnable", true},
    {"--pic-disable", "PicEnable", false},
    {"--avr-enable", "AvrEnable", true},
    {"--avr-disable", "AvrEnable", false},
};

const char *const productNames[] = {"Quorvin", "Telmara", "Ventrix"};

bool storeFlag(const QString &argument, QSettings *settings)
{
    for (const FlagOption &option : flagOptions) {
        if (argument == QLatin1String(option.argument)) {
            settings->setValue(QLatin1String(option.key), option.value);
            return true;
        }
    }
    return false;
}

bool storeProductName(const QString &argument)
{
    for (const char *productName : productNames) {
        if (argument == QLatin1String(productName)) {
            // A settings object of its own writes the name to the file at once, when it is destroyed.
            QSettings().setValue(QLatin1String("ProductName"), argument);
            return true;
        }
    }
    return false;
}

} // namespace

void applyCommandLine(const QStringList &arguments, QSettings *settings)
{
    for (int index = 1; index < arguments.size(); ++index) {
        const QString &argument = arguments.at(index);
        qDebug().nospace() << index << ": " << qPrintable(argument);
        if (!storeFlag(argument, settings) && !storeProductName(argument))
            qDebug().nospace() << "unknown command line argument: " << qPrintable(argument);
    }
}
