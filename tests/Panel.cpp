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

void Panel::press(Qt::Key key)
{
    pressFunctionKey(m_Screens, key);
}

QStringList Panel::messages() const
{
    QStringList lines;
    const QList<PanelMessage> messages = panelMessages(*messageWindow()->document());
    for (const PanelMessage &message : messages) {
        const bool plain = message.colour == QLatin1String("plain");
        lines << (plain ? message.text : message.colour + QLatin1String(": ") + message.text);
    }
    return lines;
}

QStringList Panel::redMessages() const
{
    return messages().filter(QRegExp(QLatin1String("^red: ")));
}

QString Panel::lastMessage() const
{
    return messages().isEmpty() ? QString() : messages().last();
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
    return m_Screens->findChild<QTextEdit *>(QLatin1String("progressMessageWindow"));
}

QPoint Panel::endOfMessages() const
{
    QTextCursor cursor(messageWindow()->document());
    cursor.movePosition(QTextCursor::End);
    return messageWindow()->cursorRect(cursor).center() - QPoint(4, 0);
}

QPushButton *Panel::button(const char *name) const
{
    return m_Screens->currentWidget()->findChild<QPushButton *>(QLatin1String(name));
}
