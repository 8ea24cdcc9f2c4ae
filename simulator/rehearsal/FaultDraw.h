#ifndef SIMULATOR_REHEARSAL_FAULTDRAW_H
#define SIMULATOR_REHEARSAL_FAULTDRAW_H

#include <QDir>
#include <QList>
#include <QSet>
#include <QString>
#include <random>

#include "simulator/rehearsal/Report.h"

/// One to three faults of the instrument, drawn by a seed among those that an undisturbed update shows to matter: a
/// tool that it calls, a PIC or an ESA board that it programs. What an update passes over by design is not drawn:
/// releasing the medium, the second choice of the storage for a PC, what a script does about its own tools.
class FaultDraw
{
public:
    struct Fault
    {
        QString file;        ///< of the instrument's state that the record belongs to
        QString record;      ///< as the tools or the boards read it
        QString description; ///< for a person
        QList<int> lines;    ///< that must fail, by index; none: the update must not begin
    };

    FaultDraw(unsigned int seed, const Report &undisturbed, const QDir &package);

    const QList<Fault> &faults() const { return m_Faults; }

    /// What the operator of the `disturbed` update should have been told and was not; empty when all is well.
    QStringList untold(const Report &disturbed) const;

private:
    static const int beforeLines = -1;

    QList<Fault> faultsAt(int line);
    QList<Fault> toolFaults(const QList<Report::Call> &calls) const;
    QList<Fault> picFaults(int line);
    QList<Fault> esaFaults(int line);
    QList<int> linesThatCall(const QString &commandLine) const;
    int drawBelow(int limit);

    std::mt19937 m_Random;
    const Report &m_Undisturbed;
    QDir m_Package;
    QList<Fault> m_Faults;
};

#endif
