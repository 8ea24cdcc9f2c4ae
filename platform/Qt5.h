#ifndef PLATFORM_QT5_H
#define PLATFORM_QT5_H

// What Qt 5 does differently from the instrument's Qt 4.7 for Embedded Linux.

#include <QtGlobal>

class QBrush;
class QTimer;
class QWidget;

/// Paints `widget` and puts it on the display before it returns, without handling any input. On a frame buffer Qt 5
/// copies what was painted to the display only when events are processed, which may be minutes later in an update.
void showNow(QWidget *widget);

/// Makes `timer` precise. Any other timer of Qt 5 may run out a twentieth of its interval too early or too late.
void makePrecise(QTimer *timer);

#if QT_VERSION < QT_VERSION_CHECK(5, 0, 0)
#include <QWSServer>
#else
/// The two operations that the program uses of Qt 4's window server. In Qt 5 the platform plugin is the server, and has
/// no such class.
class QWSServer
{
public:
    /// Shows or hides the pointer over all windows of the program.
    static void setCursorVisible(bool visible);

    /// Covers the display below all windows with `brush`. The topmost window keeps the keyboard; without a window
    /// manager this makes it the active one.
    static void setBackground(const QBrush &brush);
};
#endif

#endif
