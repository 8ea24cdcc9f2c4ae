#ifndef SERIAL_TTYHANDLER_H
#define SERIAL_TTYHANDLER_H

#include <QByteArray>
#include <QIODevice>
#include <QString>
#include <termios.h>

class QSocketNotifier;

/// A serial port: raw bytes at 115200 baud, 8 data bits, no parity, one stop bit, no flow control, for every user of
/// the class. The port is opened by the constructor and closed by the destructor. Received bytes are announced by
/// readyRead() and read with readAll(), which never blocks. While nothing is connected to that signal they are dropped.
///
/// A port that cannot be opened leaves a handler whose isOpen() is true, which sends nothing and never receives
/// anything. A failure to open, set or write to the port is one line on the debug output.
class TtyHandler : public QIODevice
{
    Q_OBJECT

public:
    /// `device` is the path of the port. What it had received before is discarded.
    TtyHandler(const QString &device, QObject *parent);
    ~TtyHandler() override;

    /// Sends `text` in the local 8-bit encoding. Returns when the kernel has taken the bytes, not when they have left.
    void sendString(QString text);
    /// Sends `data` in one write. Returns when the kernel has taken the bytes, not when they have left.
    void sendByteArray(QByteArray data);
    /// Returns when every byte that was sent has left.
    void drain();

protected slots:
    void notify(int socket);

protected:
    /// The number of bytes read, 0 when none is waiting, -1 on failure.
    qint64 readData(char *data, qint64 maxSize) override;
    /// The number of bytes that the kernel took, -1 on failure.
    qint64 writeData(const char *data, qint64 maxSize) override;

private:
    bool isOpened() const;
    short events(short wanted) const;
    void dropUnread();

    int m_FileDescriptor;        ///< of an opened port when greater than zero
    struct termios m_Termios;    ///< what the port is set to
    QSocketNotifier *m_Notifier; ///< only for an opened port
    bool m_BytesDropped;
};

#endif
