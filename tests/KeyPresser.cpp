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

KeyPresser::KeyPresser(const Panel *panel, const QString &message, const QList<Qt::Key> &keys) : m_Keys(keys)
{
    QObject::connect(panel->messageWindow(), &QTextEdit::textChanged, &m_Listener, [this, panel, message] {
        if (panel->lastMessage() != message)
            return;
        for (const Qt::Key key : std::exchange(m_Keys, {})) {
            for (const QEvent::Type type : {QEvent::KeyPress, QEvent::KeyRelease})
                QWindowSystemInterface::handleKeyEvent<QWindowSystemInterface::AsynchronousDelivery>(
                    panel->window()->windowHandle(), type, key, Qt::NoModifier, QString(), false, 1);
        }
    });
    const auto *f3 = panel->messageWindow()->parentWidget()->findChild<QPushButton *>("F3Button");
    QObject::connect(f3, &QPushButton::pressed, &m_Listener, [this, panel] { m_Messages = panel->messages(); });
}
