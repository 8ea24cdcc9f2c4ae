#ifndef TESTS_DEBUGLINES_H
#define TESTS_DEBUGLINES_H

#include <QStringList>

/// Collects the debug lines while it lives.
class DebugLines
{
public:
    DebugLines();
    ~DebugLines();
    static QStringList take();
};

#endif
