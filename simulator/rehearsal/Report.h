#ifndef SIMULATOR_REHEARSAL_REPORT_H
#define SIMULATOR_REHEARSAL_REPORT_H

#include <QDir>
#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>
#include <memory>

#include "simulator/rehearsal/BoardReport.h"
#include "simulator/rehearsal/UnpackedPackage.h"
#include "simulator/tools/InstrumentState.h"

/// What an update did to the virtual instrument, read from the instrument's folder after the run: every line of the
/// command file with its outcome, the flash and the files that changed, and what was left behind.
class Report
{
public:
    /// `instrument` is the folder that bench/new-instrument made, `skeleton` the files of its delivered state.
    Report(const QString &instrument, const QString &skeleton, const UnpackedPackage &package);

    /// Of a stand-in tool.
    struct Call
    {
        QString commandLine;
        int exitCode;
    };

    struct Line
    {
        QString command;
        bool carriedOut;      ///< false when the update ended before the line
        QStringList messages; ///< in red
        QStringList changes;  ///< files, flash and boards
        QList<Call> calls;

        bool failed() const { return !carriedOut || !messages.isEmpty(); }
    };

    /// What the update as a whole did and left.
    struct Section
    {
        QString title;
        QStringList entries;
    };

    const QList<Line> &lines() const { return m_Lines; }
    QList<Section> sections() const;
    QString lastMessage() const;
    /// For the medium and the unpacking.
    const QList<Call> &callsBeforeLines() const { return m_CallsBeforeLines; }

    /// The update ended in its success message, the medium was released, and the boards hold what they should.
    bool isGood() const;
    /// The operator saw the update end in a red message.
    bool isFailureTold() const;

private:
    void digestPayload(const QDir &package);
    void readCommandLines(const QStringList &commands);
    int endOfLineMessages() const;
    void readChanges();
    void readBoards(const UnpackedPackage &package);
    int lineAtMessage(int message) const;
    QString pathOf(const InstrumentState::Path &path) const;
    QString payloadEqualTo(const QByteArray &content) const;
    QString describeFlash(const QString &file) const;
    QStringList changedFiles() const;
    QStringList removedFiles() const;
    QStringList leftBehind() const;
    QStringList failedTools() const;

    QDir m_Instrument;
    QDir m_Skeleton;
    QStringList m_Messages; ///< colour, tab, text
    QList<Line> m_Lines;
    QList<int> m_LineEnds; ///< of each line: the index of the first message behind its own
    int m_FirstLineMessage = 0;
    QList<Call> m_CallsBeforeLines;
    QHash<QByteArray, QString> m_Payload; ///< digest of the content, path in the package
    QList<qint64> m_PayloadSizes;
    std::unique_ptr<const BoardReport> m_Boards;
};

#endif
