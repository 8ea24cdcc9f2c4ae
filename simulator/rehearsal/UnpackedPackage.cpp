#include "simulator/rehearsal/UnpackedPackage.h"

#include <QFileInfo>
#include <QProcess>

#include "simulator/rehearsal/FileContent.h"
#include "update/UpdatePaths.h"

UnpackedPackage::UnpackedPackage(const QString &archive)
    : m_ArchiveName(QFileInfo(archive).fileName()),
      m_Folder(m_Place.filePath(QFileInfo(UpdatePaths::packageDirectory).fileName()))
{
    QProcess tar;
    tar.start(QLatin1String("tar"), QStringList() << QLatin1String("xjf") << QFileInfo(archive).absoluteFilePath()
                                                  << QLatin1String("-C") << m_Place.path());
    if (!tar.waitForFinished(-1))
        m_Error = tar.errorString();
    else if (tar.exitCode() != 0)
        m_Error = QString::fromLocal8Bit(tar.readAllStandardError()).section(QLatin1Char('\n'), 0, 0);
}

QString UnpackedPackage::commandFile() const
{
    return m_Folder.filePath(QFileInfo(UpdatePaths::commandFile).fileName());
}

QStringList UnpackedPackage::commandLines() const
{
    return linesOf(commandFile());
}
