#ifndef TESTS_DEBUGLINES_H
#define TESTS_DEBUGLINES_H

#include <QStringList>
#include <QtGlobal>
#include <utility>

/// Collects the lines of the debug output while it exists, in place of their being printed. One at a time.
class DebugLines
{
public:
    DebugLines() : m_Before(qInstallMessageHandler(collect)) { lines.clear(); }
    ~DebugLines() { qInstallMessageHandler(m_Before); }

    /// The lines since the last call.
    static QStringList take() { return std::exchange(lines, QStringList()); }

private:
    static void collect(QtMsgType, const QMessageLogContext &, const QString &line) { lines << line; }

    inline static QStringList lines;
    QtMessageHandler m_Before;
};

#endif
