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

// While something is mounted, the mount point is a link to the medium.
Instrument::Instrument()
{
    const InstrumentState::Path mountPoint = UpdatePaths::mountPoint.data();
    for (const InstrumentState::Path &path :
         {mountPoint, InstrumentState::Path(UpdatePaths::packageDirectory.data()), InstrumentState::power,
          InstrumentState::media, InstrumentState::journal, InstrumentState::plan})
        std::filesystem::remove_all(path);
    for (const InstrumentState::Path &path : {mountPoint, InstrumentState::power, InstrumentState::media})
        std::filesystem::create_directories(path);
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
    const InstrumentState::Path folder = InstrumentState::media / device.toStdString();
    std::filesystem::create_directories(folder);
    return QString::fromStdString(folder);
}

// The real tar: this call is the test's and not the instrument's.
QString Instrument::insertPackage(const QString &device, const QByteArray &commandFile, const Files &files,
                                  const QString &topFolder) const
{
    const QTemporaryDir folder;
    const QDir package(folder.filePath(topFolder));
    write(package.filePath("update_config"), commandFile);
    for (const auto &[name, content] : files) {
        const QString path = package.filePath(name);
        write(path, content);
        if (content.startsWith("#!"))
            QFile::setPermissions(path, QFile::permissions(path) | QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther);
    }
    QString medium = insertMedium(device);
    if (QProcess::execute("/usr/bin/tar",
                          {"cjf", medium + "/firmware_update.tar.bz2", "-C", folder.path(), topFolder}) != 0)
        QTest::qFail("the package cannot be made", __FILE__, __LINE__);
    return medium;
}

void Instrument::failTools(const QStringList &commandLines) const
{
    for (const QString &commandLine : commandLines)
        InstrumentState::append(InstrumentState::plan, {"tool", "1", commandLine.toStdString()});
}

void Instrument::restoreTools() const
{
    std::filesystem::remove(InstrumentState::plan);
}

void Instrument::useOldKernel() const
{
    InstrumentState::append(InstrumentState::plan, {"old-kernel"});
}

QStringList Instrument::takeCalls()
{
    const InstrumentState::Records calls = InstrumentState::read(InstrumentState::journal, "call");
    QStringList taken;
    for (; m_CallsTaken < static_cast<int>(calls.size()); ++m_CallsTaken)
        taken << QString::fromStdString(calls.at(static_cast<size_t>(m_CallsTaken)).at(1));
    return taken;
}

int Instrument::openDescriptors()
{
    return QDir("/proc/self/fd").entryList(QDir::NoDotAndDotDot | QDir::System | QDir::AllEntries).size();
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
