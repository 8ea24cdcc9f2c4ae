#include "tests/fuzz/FuzzTty.h"

#include <cstring>

#include "serial/TtyHandler.h"

namespace {

QByteArray unread;

} // namespace

QList<QByteArray> FuzzTty::chunks;
QByteArray FuzzTty::sent;

void FuzzTty::setInput(const QByteArray &input)
{
    chunks = input.split('\xFE');
    sent.clear();
    unread.clear();
}

TtyHandler::TtyHandler(const QString &, QObject *parent)
    : QIODevice(parent), m_FileDescriptor(-1), m_Termios(), m_Notifier(nullptr), m_BytesDropped(false)
{
    QIODevice::open(ReadWrite | Unbuffered);
}

TtyHandler::~TtyHandler() {}

void TtyHandler::sendByteArray(QByteArray data)
{
    FuzzTty::sent += data;
}

void TtyHandler::sendString(QString text)
{
    sendByteArray(text.toLocal8Bit());
}

void TtyHandler::drain() {}

void TtyHandler::notify(int)
{
    unread = FuzzTty::chunks.isEmpty() ? QByteArray() : FuzzTty::chunks.takeFirst();
    emit readyRead();
}

qint64 TtyHandler::readData(char *data, qint64 maxSize)
{
    const QByteArray bytes = unread.left(static_cast<int>(maxSize));
    unread.remove(0, bytes.size());
    memcpy(data, bytes.constData(), static_cast<size_t>(bytes.size()));
    return bytes.size();
}

qint64 TtyHandler::writeData(const char *, qint64 maxSize)
{
    return maxSize;
}
