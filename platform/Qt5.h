#ifndef PLATFORM_QT5_H
#define PLATFORM_QT5_H

// What Qt 5 does otherwise than the instrument's Qt 4.7 for Embedded Linux.

#include <QtGlobal>

class QBrush;
class QTimer;
class QWidget;

/// Paints `widget` and puts it on the display before it returns, without handling any input. On a frame buffer Qt 5
/// only notes what was painted and copies it to the display when events are processed, which may be minutes later here.
void showNow(QWidget *widget);

/// Lets `timer` run out at its time. A timer of Qt 5 may otherwise do so a twentieth of its interval earlier or later.
void makePrecise(QTimer *timer);

#if QT_VERSION < QT_VERSION_CHECK(5, 0, 0)
#include <QWSServer>
#else
/// What the program asks of the window server that it is itself on the instrument. The server of Qt 5 is its platform
/// plugin, which has no such class.
class QWSServer
{
public:
    /// Shows or hides the pointer over all windows of the program.
    static void setCursorVisible(bool visible);

    /// Covers the display behind all windows with `brush`. The keyboard stays with the window in front, which is made
    /// the active one where no window manager does that.
    static void setBackground(const QBrush &brush);
};
#endif

#endif
