#include "tests/DebugLines.h"

#include <utility>

namespace {

QStringList lines;

} // namespace

DebugLines::DebugLines() : m_Before(qInstallMessageHandler(collect))
{
    lines.clear();
}

DebugLines::~DebugLines()
{
    qInstallMessageHandler(m_Before);
}

QStringList DebugLines::take()
{
    return std::exchange(lines, QStringList());
}

void DebugLines::collect(QtMsgType, const QMessageLogContext &, const QString &line)
{
    lines << line;
}
