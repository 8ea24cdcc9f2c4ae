#include "serial/TtyHandler.h"

#include <QSocketNotifier>
#include <QtDebug>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace {

// The reason of the failure is taken first, before the debug output can change it.
void logFailure(const char *label, const QByteArray &port)
{
    const char *reason = strerror(errno);
    qDebug().nospace() << label << port.constData() << reason;
}

} // namespace

TtyHandler::TtyHandler(const QString &device, QObject *parent)
    : QIODevice(parent), m_FileDescriptor(-1), m_Termios(), m_Notifier(nullptr), m_BytesDropped(false)
{
    const QByteArray path = device.toLocal8Bit();

    m_Termios.c_cflag = B115200 | CS8 | CLOCAL | CREAD;
    m_Termios.c_iflag = IGNPAR;
    m_Termios.c_oflag = 0;
    m_Termios.c_lflag = 0;
    // A read returns at once with what is there, so that the blocking descriptor never blocks a reader.
    m_Termios.c_cc[VTIME] = 0;
    m_Termios.c_cc[VMIN] = 0;

    m_FileDescriptor = ::open(path.constData(), O_RDWR | O_NOCTTY);
    if (isOpened()) {
        fcntl(m_FileDescriptor, F_SETFD, FD_CLOEXEC); // a tool that outlives its call must not read the boards' replies
        tcflush(m_FileDescriptor, TCIFLUSH);
        if (tcsetattr(m_FileDescriptor, TCSANOW, &m_Termios) != 0)
            logFailure("Failed to set serial port: ", path + ": ");
        m_Notifier = new QSocketNotifier(m_FileDescriptor, QSocketNotifier::Read, this);
        connect(m_Notifier, SIGNAL(activated(int)), this, SLOT(notify(int)));
    } else {
        logFailure("Failed to open serial port: ", path + ": ");
    }

    QIODevice::open(ReadWrite);
}

TtyHandler::~TtyHandler()
{
    ::close(m_FileDescriptor);
}

void TtyHandler::sendString(QString text)
{
    sendByteArray(text.toLocal8Bit());
}

void TtyHandler::sendByteArray(QByteArray data)
{
    if (isOpened())
        writeData(data.constData(), data.size());
}

void TtyHandler::drain()
{
    if (isOpened())
        tcdrain(m_FileDescriptor);
}

void TtyHandler::notify(int)
{
    // A port that hung up stays readable, and would keep the event loop busy.
    if (events(0) & POLLHUP) {
        qDebug() << "Serial port hung up";
        m_Notifier->setEnabled(false);
    }
    emit readyRead();
    if (receivers(SIGNAL(readyRead())) == 0)
        dropUnread();
}

// Bytes that are not read would activate the notifier again and again, and keep the processor busy.
void TtyHandler::dropUnread()
{
    const QByteArray bytes = readAll();
    if (bytes.isEmpty())
        return;
    if (!m_BytesDropped)
        qDebug().nospace() << "Serial port: dropped what nobody reads: " << bytes.toHex().constData();
    m_BytesDropped = true;
}

qint64 TtyHandler::readData(char *data, qint64 maxSize)
{
    // A port that is no terminal, or has lost its settings, would block the panel in a read without bytes.
    if (m_FileDescriptor >= 0 && events(POLLIN) == 0)
        return 0;
    return ::read(m_FileDescriptor, data, static_cast<size_t>(maxSize));
}

qint64 TtyHandler::writeData(const char *data, qint64 maxSize)
{
    const qint64 written = ::write(m_FileDescriptor, data, static_cast<size_t>(maxSize));
    if (written < 0)
        logFailure("Failed to write to serial port: ", QByteArray());
    else if (written < maxSize)
        qDebug().nospace() << "Failed to write to serial port: only " << written << " of " << maxSize << " bytes taken";
    return written;
}

bool TtyHandler::isOpened() const
{
    return m_FileDescriptor > 0;
}

/// Which of `wanted` the port is ready for, and whether it hung up or failed.
short TtyHandler::events(short wanted) const
{
    pollfd port = {m_FileDescriptor, wanted, 0};
    return poll(&port, 1, 0) == 1 ? port.revents : short(0);
}
