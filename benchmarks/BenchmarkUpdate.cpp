#include "benchmarks/BenchmarkUpdate.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>

#include "screens/ScreenTypes.h"
#include "screens/UpdaterProgressScreen.h"
#include "simulator/tools/InstrumentState.h"

using namespace simulator;

namespace {

const QString folder = QLatin1String("/tmp/new/firmware_update/");

void write(const QString &fileName, const QByteArray &content)
{
    QFile file(fileName);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        file.write(content);
    file.setPermissions(file.permissions() | QFile::ExeOwner);
}

} // namespace

void putPackageOnCard(const QByteArray &commandFile, const QByteArray &payload)
{
    const QString card = QString::fromStdString(InstrumentState::media / "mmcblk0p4");
    QDir().mkpath(folder);
    QDir().mkpath(card);
    write(folder + QLatin1String("payload"), payload);
    write(folder + QLatin1String("update_config"), commandFile);
    QProcess::execute(QLatin1String("/usr/bin/tar"), QStringList() << QLatin1String("cjf")
                                                                   << card + QLatin1String("/firmware_update.tar.bz2")
                                                                   << QLatin1String("-C") << QLatin1String("/tmp/new")
                                                                   << QLatin1String("firmware_update"));
}

double secondsOfUpdateFromCard(UpdaterProgressScreen *screen)
{
    QMetaObject::invokeMethod(screen, "setUpdateType", Q_ARG(int, UpdateViaSdCard));
    screen->show();
    QApplication::processEvents();

    QElapsedTimer timer;
    timer.start();
    QMetaObject::invokeMethod(screen, "F1Clicked");
    return static_cast<double>(timer.nsecsElapsed()) / 1e9;
}
