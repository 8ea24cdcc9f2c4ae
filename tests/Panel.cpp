#include "tests/Panel.h"

#include <QApplication>
#include <QPushButton>
#include <QTextEdit>
#include <QWindow>
#include <QtTest>

#include "bench/PanelMessages.h"
#include "screens/ScreenTypes.h"

namespace {

QStackedWidget *visibleScreens()
{
    const QWidgetList windows = QApplication::topLevelWidgets();
    for (QWidget *window : windows) {
        auto *screens = qobject_cast<QStackedWidget *>(window);
        if (screens != nullptr && screens->isVisible())
            return screens;
    }
    return nullptr;
}

} // namespace

Panel::Panel() : m_Manager(nullptr, Qt::CustomizeWindowHint | Qt::FramelessWindowHint), m_Screens(visibleScreens())
{
    if (!QTest::qWaitForWindowActive(m_Screens))
        QFAIL("the screens do not get the keyboard");
}

// A function key pushes its button down for a moment; the button acts when it comes up again.
void Panel::press(Qt::Key key)
{
    QTest::keyClick(m_Screens->windowHandle(), key);
    const QList<QPushButton *> buttons = m_Screens->currentWidget()->findChildren<QPushButton *>();
    for (const QPushButton *pressed : buttons) {
        while (pressed->isDown())
            QApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
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

QPushButton *Panel::button(const char *name) const
{
    return m_Screens->currentWidget()->findChild<QPushButton *>(QLatin1String(name));
}
