#ifndef PLATFORM_DISPLAY_H
#define PLATFORM_DISPLAY_H

class QWidget;

/// Paints `widget` and puts it on the display before it returns, without handling any input. On a frame buffer Qt 5
/// only notes what was painted and copies it to the display when events are processed, which may be minutes later here.
void showNow(QWidget *widget);

#endif
