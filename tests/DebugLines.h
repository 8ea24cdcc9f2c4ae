#ifndef TESTS_DEBUGLINES_H
#define TESTS_DEBUGLINES_H

#include <QStringList>
#include <QtGlobal>

/// Collects the lines of the debug output while it exists, in place of their being printed. One at a time.
class DebugLines
{
public:
    DebugLines();
    ~DebugLines();

    /// The lines since the last call.
    static QStringList take();

private:
    static void collect(QtMsgType type, const QMessageLogContext &context, const QString &line);

    QtMessageHandler m_Before;
};

#endif
