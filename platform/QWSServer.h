#ifndef PLATFORM_QWSSERVER_H
#define PLATFORM_QWSSERVER_H

class QBrush;

/// What the program asks of the window server that it is itself on the instrument, for a Qt whose platform plugin is
/// the server. On a Qt for Embedded Linux with its own class of this name, that one takes its place.
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
