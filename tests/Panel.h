#ifndef TESTS_PANEL_H
#define TESTS_PANEL_H

#include <QStringList>
#include <Qt>

#include "app/TarselScreenManager.h"

class QPushButton;
class QTextEdit;

/// The program's screens as the operator meets them: keys go in, lines of the message window come out.
class Panel
{
public:
    Panel();

    /// Presses a function key and waits until what it started is over.
    void press(Qt::Key key);
    void press(const QList<Qt::Key> &keys);
    /// Executes the package on the SD card, after an earlier update, too.
    void updateFromCard();

    /// The lines of the message window, red, green and orange ones after their colour ("red: Failed - ...").
    QStringList messages() const;
    QStringList redMessages() const { return messages().filter(QRegExp("^red: ")); }
    QString lastMessage() const { return QStringList(messages()).value(messages().size() - 1); }

    bool showsMainScreen() const;
    QWidget *window() const;
    QTextEdit *messageWindow() const;
    /// The middle of the last character, in the viewport of the message window.
    QPoint endOfMessages() const;
    QPushButton *button(const char *name) const;

private:
    TarselScreenManager m_Manager;
    QStackedWidget *m_Screens;
};

#endif
