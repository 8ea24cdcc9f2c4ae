#include "platform/PreciseTimer.h"

#include <QTimer>

void makePrecise(QTimer *timer)
{
    timer->setTimerType(Qt::PreciseTimer);
}
