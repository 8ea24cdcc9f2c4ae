#include "tests/KeyPresser.h"

#include <QPushButton>
#include <QTextEdit>
#include <QtTest>
#include <utility>

#include "tests/Panel.h"

// Qt's platform plugins put keys into the queue by this class, whose header is not installed. QTest's own keys are
// handled at once instead.
class QWindowSystemInterface
{
public:
    struct AsynchronousDelivery
    {
    };
    template <typename Delivery>
    static bool handleKeyEvent(QWindow *window, QEvent::Type type, int key, Qt::KeyboardModifiers modifiers,
                               const QString &text, bool autoRepeat, unsigned short count);
};

KeyPresser::KeyPresser(Panel *panel, const QString &message, const QList<Qt::Key> &keys)
    : m_Panel(panel), m_Message(message), m_Keys(keys)
{
    const QWidget *progressScreen = panel->messageWindow()->parentWidget();
    connect(panel->messageWindow(), SIGNAL(textChanged()), this, SLOT(press()));
    connect(progressScreen->findChild<QPushButton *>("F3Button"), SIGNAL(pressed()), this, SLOT(keyHandled()));
}

void KeyPresser::press()
{
    if (m_Panel->lastMessage() != m_Message)
        return;
    for (const Qt::Key key : std::exchange(m_Keys, {})) {
        for (const QEvent::Type type : {QEvent::KeyPress, QEvent::KeyRelease})
            QWindowSystemInterface::handleKeyEvent<QWindowSystemInterface::AsynchronousDelivery>(
                m_Panel->window()->windowHandle(), type, key, Qt::NoModifier, QString(), false, 1);
    }
}

void KeyPresser::keyHandled()
{
    m_Messages = m_Panel->messages();
}
