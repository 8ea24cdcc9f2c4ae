#ifndef TESTS_EVENTLOOP_H
#define TESTS_EVENTLOOP_H

#include <QCoreApplication>
#include <QTimer>

/// Turns the event loop until `condition` holds, woken by events only; false if it does not hold within three seconds.
template <typename Condition>
bool eventually(Condition condition)
{
    QTimer limit;
    limit.setSingleShot(true);
    limit.start(3000);
    while (!condition()) {
        if (!limit.isActive())
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}

#endif
