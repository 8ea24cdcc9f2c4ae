#include "tests/DebugLines.h"

#include <QtGlobal>

namespace {

QStringList debugLines;
QtMessageHandler previousHandler = nullptr;

void collect(QtMsgType, const QMessageLogContext &, const QString &text)
{
    debugLines << text;
}

} // namespace

DebugLines::DebugLines()
{
    debugLines.clear();
    previousHandler = qInstallMessageHandler(collect);
}

DebugLines::~DebugLines()
{
    qInstallMessageHandler(previousHandler);
}

QStringList DebugLines::take()
{
    QStringList taken;
    taken.swap(debugLines);
    return taken;
}
