#include "simulator/panel/PanelAccess.h"

#include <QApplication>
#include <QBrush>
#include <QColor>
#include <QPushButton>
#include <QStackedWidget>
#include <QTextBlock>
#include <QTextDocument>
#include <QWindow>
#include <QtTest>

namespace simulator {

namespace {

QString colourName(const QTextBlock &block)
{
    const QBrush foreground = block.begin().fragment().charFormat().foreground();
    for (const char *name : {"red", "green", "orange"}) {
        if (foreground.style() != Qt::NoBrush && foreground.color() == QColor(name))
            return name;
    }
    return "plain";
}

} // namespace

QStackedWidget *findScreens()
{
    const QWidgetList windows = QApplication::topLevelWidgets();
    for (QWidget *window : windows) {
        auto *screens = qobject_cast<QStackedWidget *>(window);
        if (screens != nullptr && screens->isVisible())
            return screens;
    }
    return nullptr;
}

// The key pushes the button down for a tenth of a second, and the button acts when it comes up again.
void pressFunctionKey(QStackedWidget *screens, Qt::Key key)
{
    QTest::keyClick(screens->windowHandle(), key);
    const QList<QPushButton *> buttons = screens->currentWidget()->findChildren<QPushButton *>();
    for (const QPushButton *button : buttons) {
        while (button->isDown())
            QApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
}

QList<PanelMessage> panelMessages(const QTextDocument &document)
{
    QList<PanelMessage> messages;
    for (QTextBlock block = document.begin(); block.isValid(); block = block.next()) {
        const QString text = block.text().trimmed();
        if (!text.isEmpty())
            messages << PanelMessage{colourName(block), text};
    }
    return messages;
}

} // namespace simulator
