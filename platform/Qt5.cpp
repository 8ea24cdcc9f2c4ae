#include "platform/Qt5.h"

#include <QCoreApplication>
#include <QEvent>
#include <QTimer>
#include <QWidget>

void showNow(QWidget *widget)
{
    widget->repaint();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::UpdateRequest);
}

#if QT_VERSION < QT_VERSION_CHECK(5, 0, 0)

void makePrecise(QTimer *) {}

#else

#include <QApplication>
#include <QBrush>
#include <QPalette>
#include <QScreen>

void makePrecise(QTimer *timer)
{
    timer->setTimerType(Qt::PreciseTimer);
}

namespace {

QWidget *backdrop = nullptr;

void deleteBackdrop()
{
    delete backdrop;
    backdrop = nullptr;
}

void makeBackdrop()
{
    backdrop = new QWidget(nullptr, Qt::FramelessWindowHint | Qt::WindowStaysOnBottomHint |
                                        Qt::WindowDoesNotAcceptFocus | Qt::WindowTransparentForInput);
    backdrop->setAttribute(Qt::WA_ShowWithoutActivating);
    backdrop->setFocusPolicy(Qt::NoFocus);
    qAddPostRoutine(deleteBackdrop);
}

// Without a window manager nothing else gives the keyboard to the topmost window.
void activateFrontWindow()
{
    const QWidgetList windows = QApplication::topLevelWidgets();
    for (QWidget *window : windows) {
        if (window != backdrop && window->isVisible()) {
            window->raise();
            window->activateWindow();
        }
    }
}

} // namespace

void QWSServer::setCursorVisible(bool visible)
{
    const bool hidden = QApplication::overrideCursor() != nullptr;
    if (!visible && !hidden)
        QApplication::setOverrideCursor(QCursor(Qt::BlankCursor));
    else if (visible && hidden)
        QApplication::restoreOverrideCursor();
}

void QWSServer::setBackground(const QBrush &brush)
{
    if (backdrop == nullptr)
        makeBackdrop();
    QPalette palette;
    palette.setBrush(QPalette::Window, brush);
    backdrop->setPalette(palette);
    backdrop->setGeometry(QApplication::primaryScreen()->geometry());
    backdrop->show();
    backdrop->lower();
    activateFrontWindow();
}

#endif
