#ifndef SIMULATOR_PANEL_PANELACCESS_H
#define SIMULATOR_PANEL_PANELACCESS_H

#include <QList>
#include <QString>

class QStackedWidget;
class QTextDocument;

namespace simulator {

/// The window that holds the program's screens, once it is shown; null before.
QStackedWidget *findScreens();

/// Presses a function key as a keyboard would, through the window system, and returns when what it started is over.
void pressFunctionKey(QStackedWidget *screens, Qt::Key key);

/// A line of the message window as the operator sees it.
struct PanelMessage
{
    QString colour; ///< "plain", "red", "green" or "orange"
    QString text;   ///< without the white space around it

    bool isPercentage() const { return colour == "orange"; }
};

/// The lines of the message window from top to bottom, without blank ones.
QList<PanelMessage> panelMessages(const QTextDocument &document);

} // namespace simulator

#endif
