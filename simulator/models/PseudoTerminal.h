#ifndef SIMULATOR_MODELS_PSEUDOTERMINAL_H
#define SIMULATOR_MODELS_PSEUDOTERMINAL_H

#include <QByteArray>
#include <QObject>
#include <QString>
#include <functional>
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

    /// True when the program has read all that was written.
    bool isRead() const { return bytesAtPort() == 0; }

    /// What the port was last set to, as it was asked for: the kernel drops what a pseudo-terminal cannot do.
    const struct termios &settings() const { return m_Settings; }
    /// Called when the program drains the port; returns when its bytes have left.
    std::function<void()> onDrain;

    /// The port disappears, like an adapter that is pulled out.
    void unplug();

    // For the program's calls, which the simulator defines.
    static PseudoTerminal *at(int descriptor);
    void setSettings(const struct termios &settings) { m_Settings = settings; }

signals:
    /// The program has sent something.
    void readyRead();

private:
    int bytesAtPort() const;

    QByteArray m_Name;
    int m_Master = -1;
    int m_Port = -1; ///< held open, so that the line stays up while the program has the port closed
    struct termios m_Settings = {};
    QSocketNotifier *m_Notifier;
};

} // namespace simulator

#endif
