#ifndef SIMULATOR_REHEARSAL_PACKAGEINSPECTION_H
#define SIMULATOR_REHEARSAL_PACKAGEINSPECTION_H

#include <QDir>
#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>

#include "simulator/rehearsal/UnpackedPackage.h"

/// What a reading of the package alone tells: lines that cannot do what they say, and what its author may not know.
class PackageInspection
{
public:
    struct Finding
    {
        int line; ///< of the command file, from 1 on; 0 for the package as a whole
        QString kind;
        QString text;
    };

    explicit PackageInspection(const UnpackedPackage &package);

    /// The line cannot do what it says, or the updater does not find or open the package.
    const QList<Finding> &mistakes() const { return m_Mistakes; }
    /// Carried out, but perhaps not as meant.
    const QList<Finding> &remarks() const { return m_Remarks; }

private:
    void inspectArchive(const UnpackedPackage &package);
    void inspectLines(const QStringList &lines);
    void inspectLine(const QString &line);
    void inspectCommand(const QString &keyword, const QString &argument);
    void inspectSystem(const QString &type);
    void inspectSystemType(const QString &keyword);
    bool inspectPath(const QString &keyword, const QString &path);
    void inspectImage(const QString &path);
    void inspectScript(const QString &path);
    void inspectPic(const QString &keyword, const QString &path);
    void findUnusedPayload();
    bool isNamedByScript(const QString &path) const;
    void addMistake(const char *kind, const QString &text);
    void addRemark(const char *kind, const QString &text);

    QDir m_Package;
    int m_Line = 0; ///< that is inspected
    QString m_SystemType;
    QSet<QString> m_Used; ///< paths in the package that lines name
    QByteArray m_Scripts; ///< the text of all scripts
    QList<Finding> m_Mistakes;
    QList<Finding> m_Remarks;
};

#endif
