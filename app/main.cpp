#include <QApplication>
#include <QBrush>
#include <QSettings>
#include <QStringList>

#include "app/CommandLine.h"
#include "app/TarselScreenManager.h"
#include "platform/Qt5.h"

int main(int argc, char **argv)
{
    QApplication application(argc, argv);
    QApplication::setOrganizationName(QLatin1String("Vantrel"));
    QApplication::setApplicationName(QLatin1String("Updater"));
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, QLatin1String("/mnt/data/settings"));

    QSettings settings;
    const QStringList arguments = QApplication::arguments();
    applyCommandLine(arguments, &settings);

    const TarselScreenManager manager(nullptr, Qt::CustomizeWindowHint | Qt::FramelessWindowHint);
    QWSServer::setCursorVisible(false);
    QWSServer::setBackground(QBrush(Qt::black, Qt::SolidPattern));
    return QApplication::exec();
}
