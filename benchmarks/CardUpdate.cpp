#include "benchmarks/CardUpdate.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>

#include "screens/ScreenTypes.h"
#include "screens/UpdaterProgressScreen.h"
#include "simulator/tools/InstrumentState.h"

namespace {

void write(const QString &fileName, const QByteArray &content)
{
    QFile file(fileName);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        file.write(content);
    file.setPermissions(file.permissions() | QFile::ExeOwner);
}

} // namespace

double secondsOfUpdate(UpdaterProgressScreen *screen, const QByteArray &commandFile, const QByteArray &payload)
{
    const QString card = QString::fromStdString(simulator::InstrumentState::media / "mmcblk0p4");
    QDir().mkpath("/tmp/new/firmware_update");
    QDir().mkpath(card);
    write("/tmp/new/firmware_update/payload", payload);
    write("/tmp/new/firmware_update/update_config", commandFile);
    QProcess::execute("/usr/bin/tar", {"cjf", card + "/firmware_update.tar.bz2", "-C", "/tmp/new", "firmware_update"});
    QMetaObject::invokeMethod(screen, "setUpdateType", Q_ARG(int, UpdateViaSdCard));
    screen->show();
    QApplication::processEvents();

    QElapsedTimer timer;
    timer.start();
    QMetaObject::invokeMethod(screen, "F1Clicked");
    return static_cast<double>(timer.nsecsElapsed()) / 1e9;
}
