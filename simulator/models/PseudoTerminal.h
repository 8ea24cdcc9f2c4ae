#ifndef SIMULATOR_MODELS_PSEUDOTERMINAL_H
#define SIMULATOR_MODELS_PSEUDOTERMINAL_H

#include <QByteArray>
#include <QObject>
#include <QString>
#include <termios.h>

class QSocketNotifier;

namespace simulator {

/// A serial line of the virtual instrument: the program opens the port by its name, a board model holds the other end.
/// Both live in one process and one event loop, so that a model decides exactly which bytes one read of the program
/// finds.
class PseudoTerminal : public QObject
{
    Q_OBJECT

public:
    /// Makes the port `name` (/dev/ttyAPP1), in place of one that may be there.
    PseudoTerminal(const QString &name, QObject *parent);
    ~PseudoTerminal() override;

    /// What the program has sent and nobody has read.
    QByteArray readAll();
    /// The same, with the bytes that are still on their way: the program, which waits meanwhile, has sent no others.
    QByteArray readAllSent();

    /// Sends `bytes`, at most 4095 that are not yet read, to the program. When the call returns they all wait at the
    /// port.
    void write(const QByteArray &bytes);
    /// Sends `bytes` and lets the program read them as one chunk; false if it does not.
    bool deliver(const QByteArray &bytes);

    /// The settings of the port as the kernel holds them.
    struct termios settings() const;

    /// The port goes away under the program, like an adapter that is pulled out.
    void unplug();

signals:
    /// The program has sent something.
    void readyRead();

private:
    int bytesAtPort() const;

    QByteArray m_Name;
    int m_Master;
    int m_Port; ///< held open, so that the line stays up while the program has the port closed
    QSocketNotifier *m_Notifier;
};

} // namespace simulator

#endif
