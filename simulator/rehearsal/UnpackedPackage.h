#ifndef SIMULATOR_REHEARSAL_UNPACKEDPACKAGE_H
#define SIMULATOR_REHEARSAL_UNPACKEDPACKAGE_H

#include <QDir>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

/// A package as its author packed it, in a folder of its own that goes with the object. The one on the instrument may
/// be changed by a script.
class UnpackedPackage
{
public:
    explicit UnpackedPackage(const QString &archive);

    const QString &archiveName() const { return m_ArchiveName; }
    /// What tar says about an archive that it cannot unpack; else empty.
    const QString &error() const { return m_Error; }
    /// With the command file and the payload; need not exist.
    const QDir &folder() const { return m_Folder; }
    QString commandFile() const;
    QStringList commandLines() const;

private:
    QTemporaryDir m_Place;
    QString m_ArchiveName;
    QString m_Error;
    QDir m_Folder;
};

#endif
