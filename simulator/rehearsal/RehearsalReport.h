#ifndef SIMULATOR_REHEARSAL_REHEARSALREPORT_H
#define SIMULATOR_REHEARSAL_REHEARSALREPORT_H

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include "simulator/rehearsal/PackageInspection.h"
#include "simulator/rehearsal/Report.h"

/// The verdict on a package: what the update did, what a reading of the package tells, and how further trials ended, as
/// text for a person, as JSON for a program and as Markdown with the pictures of the panel.
class RehearsalReport
{
public:
    /// A repetition of the update under other conditions: its title, what happened, and the verdict.
    struct Trial
    {
        QString title;
        QStringList entries;
        bool good;
    };

    /// `trials` are files that hold a title, what happened, a line each, and at last "good" or "FAILED".
    RehearsalReport(const QString &archive, const Report &update, const PackageInspection &inspection,
                    const QStringList &trials);

    bool isGood() const;
    QString text() const;
    QByteArray json() const;
    /// `pictures` are paths as the report's reader finds them.
    QString markdown(const QStringList &pictures) const;

private:
    QString verdict() const;
    QList<Report::Section> sections() const;

    QString m_Archive;
    const Report &m_Update;
    const PackageInspection &m_Inspection;
    QList<Trial> m_Trials;
};

#endif
