#ifndef BENCH_REPORT_H
#define BENCH_REPORT_H

#include <QDir>
#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>
#include <QTextStream>
#include <memory>

#include "bench/BoardReport.h"
#include "bench/tools/InstrumentState.h"

/// What an update did to the virtual instrument, read from the instrument's folder after the run: every line of the
/// command file with its outcome, the flash and the files that changed, and what was left behind.
class Report
{
public:
    /// `instrument` is the folder that bench/new-instrument made, `skeleton` the files of its delivered state.
    Report(const QString &instrument, const QString &skeleton);

    void print(QTextStream &out) const;

    /// The update ended in its success message, the medium was released, and the boards hold what they should.
    bool isGood() const;

private:
    struct Line
    {
        QString command;
        bool failed;
        QStringList messages;
    };

    void readMessages();
    void digestPayload();
    void readCommandLines();
    void readBoards();
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
    QHash<QByteArray, QString> m_Payload; ///< digest of the content, path in the package
    QList<qint64> m_PayloadSizes;
    std::unique_ptr<const BoardReport> m_Boards;
};

#endif
