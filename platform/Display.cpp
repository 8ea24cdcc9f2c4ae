#include "platform/Display.h"

#include <QCoreApplication>
#include <QEvent>
#include <QWidget>

void showNow(QWidget *widget)
{
    widget->repaint();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::UpdateRequest);
}
