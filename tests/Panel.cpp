#include "tests/Panel.h"

#include <QPushButton>
#include <QTextEdit>
#include <QtTest>

#include "screens/ScreenTypes.h"
#include "simulator/panel/PanelAccess.h"

using namespace simulator;

Panel::Panel() : m_Manager(nullptr, Qt::CustomizeWindowHint | Qt::FramelessWindowHint), m_Screens(findScreens())
{
    if (!QTest::qWaitForWindowActive(m_Screens))
        QFAIL("the screens do not get the keyboard");
}

// A key pushes its button down for a tenth of a second. Here the button comes up at once.
void Panel::press(Qt::Key key)
{
    QTimer::singleShot(0, m_Screens, [this] {
        for (QPushButton *button : m_Screens->currentWidget()->findChildren<QPushButton *>()) {
            if (button->isDown())
                button->animateClick(0);
        }
    });
    pressFunctionKey(m_Screens, key);
}

void Panel::press(const QList<Qt::Key> &keys)
{
    for (const Qt::Key key : keys)
        press(key);
}

void Panel::updateFromCard()
{
    if (!showsMainScreen())
        press(Qt::Key_F1);
    press({Qt::Key_F3, Qt::Key_F1});
}

QStringList Panel::messages() const
{
    QStringList lines;
    for (const PanelMessage &message : panelMessages(*messageWindow()->document()))
        lines << (message.colour == "plain" ? message.text : message.colour + ": " + message.text);
    return lines;
}

bool Panel::showsMainScreen() const
{
    return m_Screens->currentIndex() == MainScreenIndex;
}

QWidget *Panel::window() const
{
    return m_Screens;
}

QTextEdit *Panel::messageWindow() const
{
    return m_Screens->findChild<QTextEdit *>("progressMessageWindow");
}

QPoint Panel::endOfMessages() const
{
    QTextCursor cursor(messageWindow()->document());
    cursor.movePosition(QTextCursor::End);
    return messageWindow()->cursorRect(cursor).center() - QPoint(4, 0);
}

QPushButton *Panel::button(const char *name) const
{
    return m_Screens->currentWidget()->findChild<QPushButton *>(name);
}
