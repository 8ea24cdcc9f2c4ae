#include "tests/Instrument.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSettings>
#include <QTemporaryDir>
#include <QtTest>

#include "simulator/tools/InstrumentState.h"
#include "update/UpdatePaths.h"

using namespace simulator;

namespace {

QString toQString(const InstrumentState::Path &path)
{
    return QString::fromStdString(path);
}

QString mediumFolder(const QString &device)
{
    return toQString(InstrumentState::media / device.toStdString());
}

void removeRecursively(const QString &path)
{
    if (QFileInfo(path).isDir() && !QFileInfo(path).isSymLink())
        QDir(path).removeRecursively();
    else
        QFile::remove(path);
}

} // namespace

// The mount point first: while something is mounted there it leads to the medium.
Instrument::Instrument()
{
    if (QFileInfo(UpdatePaths::mountPoint).isSymLink())
        QFile::remove(UpdatePaths::mountPoint);
    QDir().mkpath(UpdatePaths::mountPoint);
    removeRecursively(QString(UpdatePaths::packageDirectory));
    for (const InstrumentState::Path &path :
         {InstrumentState::power, InstrumentState::media, InstrumentState::journal, InstrumentState::plan})
        removeRecursively(toQString(path));
    QDir().mkpath(toQString(InstrumentState::media));
    QDir().mkpath(toQString(InstrumentState::power));
    InstrumentState::write(InstrumentState::mounts, {{"ubi0:rootfs", "/", "ro"}});
}

void Instrument::useItsSettings()
{
    QCoreApplication::setOrganizationName("Vantrel");
    QCoreApplication::setApplicationName("Updater");
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, "/mnt/data/settings");
}

QString Instrument::insertMedium(const QString &device) const
{
    QDir().mkpath(mediumFolder(device));
    return mediumFolder(device);
}

void Instrument::removeMedium(const QString &device) const
{
    removeRecursively(mediumFolder(device));
}

void Instrument::makePackage(const QString &fileName, const QByteArray &commandFile,
                             const QList<QPair<QString, QByteArray>> &files, const QString &topFolder) const
{
    const QTemporaryDir folder;
    const QDir package(folder.filePath(topFolder));
    write(package.filePath(QLatin1String("update_config")), commandFile);
    for (const QPair<QString, QByteArray> &file : files) {
        const QString path = package.filePath(file.first);
        write(path, file.second);
        if (file.second.startsWith("#!"))
            QFile::setPermissions(path, QFile::permissions(path) | QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther);
    }
    // The real tar: this call is the test's and not the instrument's.
    const int result = QProcess::execute(QLatin1String("/usr/bin/tar"), QStringList() << QLatin1String("cjf")
                                                                                      << fileName << QLatin1String("-C")
                                                                                      << folder.path() << topFolder);
    QCOMPARE(result, 0);
}

void Instrument::failTool(const QString &commandLine, int exitCode) const
{
    InstrumentState::append(InstrumentState::plan, {"tool", std::to_string(exitCode), commandLine.toStdString()});
}

void Instrument::mendTools() const
{
    removeRecursively(toQString(InstrumentState::plan));
}

void Instrument::useOldKernel() const
{
    InstrumentState::append(InstrumentState::plan, {"old-kernel"});
}

QStringList Instrument::takeCalls()
{
    QStringList commandLines;
    for (const InstrumentState::Record &call : InstrumentState::read(InstrumentState::journal, "call"))
        commandLines << QString::fromStdString(call.at(1));
    QStringList taken = commandLines.mid(m_CallsTaken);
    m_CallsTaken = commandLines.size();
    return taken;
}

QByteArray Instrument::contentOf(const QString &fileName)
{
    QFile file(fileName);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void Instrument::write(const QString &fileName, const QByteArray &content)
{
    QDir().mkpath(QFileInfo(fileName).path());
    QFile file(fileName);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(content), static_cast<qint64>(content.size()));
}
