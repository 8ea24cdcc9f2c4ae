#ifndef TESTS_KEYPRESSER_H
#define TESTS_KEYPRESSER_H

#include <QObject>
#include <QStringList>
#include <Qt>

class Panel;

/// Presses keys while the program is busy: as soon as the message window shows `message`, the keys are in the queue of
/// the window system, and it is the program's own turn to handle them. F3, which scrolls, is the last of them.
class KeyPresser
{
public:
    KeyPresser(const Panel *panel, const QString &message, const QList<Qt::Key> &keys = {Qt::Key_F3});

    /// The messages at the moment when F3 was handled.
    const QStringList &messages() const { return m_Messages; }

private:
    QObject m_Listener;
    QList<Qt::Key> m_Keys; ///< not yet pressed
    QStringList m_Messages;
};

#endif
