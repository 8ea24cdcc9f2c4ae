#include "simulator/models/PseudoTerminal.h"

#include <QCoreApplication>
#include <QSocketNotifier>
#include <cstdlib>
#include <fcntl.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace simulator {

namespace {

const int readSize = 4096;

int openMaster()
{
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK);
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0)
        qFatal("no pseudo-terminal can be made");
    return master;
}

} // namespace

PseudoTerminal::PseudoTerminal(const QString &name, QObject *parent)
    : QObject(parent),
      m_Name(name.toLocal8Bit()),
      m_Master(openMaster()),
      m_Port(::open(ptsname(m_Master), O_RDWR | O_NOCTTY)),
      m_Notifier(new QSocketNotifier(m_Master, QSocketNotifier::Read, this))
{
    ::unlink(m_Name.constData());
    if (m_Port < 0 || ::symlink(ptsname(m_Master), m_Name.constData()) != 0)
        qFatal("the port %s cannot be made", m_Name.constData());
    struct termios raw = settings();
    cfmakeraw(&raw);
    tcsetattr(m_Port, TCSANOW, &raw);
    connect(m_Notifier, SIGNAL(activated(int)), this, SIGNAL(readyRead()));
}

PseudoTerminal::~PseudoTerminal()
{
    unplug();
}

QByteArray PseudoTerminal::readAll()
{
    QByteArray bytes;
    char buffer[readSize];
    for (ssize_t count = 0; (count = ::read(m_Master, buffer, sizeof buffer)) > 0;)
        bytes.append(buffer, static_cast<int>(count));
    return bytes;
}

QByteArray PseudoTerminal::readAllSent()
{
    const QByteArray endMark("\xFF end of what was sent \xFF");
    QByteArray bytes = readAll();
    if (m_Port < 0)
        return bytes;
    if (::write(m_Port, endMark.constData(), static_cast<size_t>(endMark.size())) != endMark.size())
        qFatal("the serial line is full");
    while (!bytes.endsWith(endMark)) {
        sched_yield();
        bytes += readAll();
    }
    bytes.chop(endMark.size());
    return bytes;
}

// The kernel takes the bytes at once and hands them to the port a moment later, perhaps in pieces.
void PseudoTerminal::write(const QByteArray &bytes)
{
    const int expected = bytesAtPort() + bytes.size();
    if (::write(m_Master, bytes.constData(), static_cast<size_t>(bytes.size())) != bytes.size())
        qFatal("the serial line is full");
    while (bytesAtPort() < expected)
        sched_yield();
}

bool PseudoTerminal::deliver(const QByteArray &bytes)
{
    write(bytes);
    QCoreApplication::processEvents();
    return bytesAtPort() == 0;
}

struct termios PseudoTerminal::settings() const
{
    struct termios current = {};
    tcgetattr(m_Port, &current);
    return current;
}

void PseudoTerminal::unplug()
{
    if (m_Master < 0)
        return;
    m_Notifier->setEnabled(false);
    ::unlink(m_Name.constData());
    ::close(m_Port);
    ::close(m_Master);
    m_Master = m_Port = -1;
}

int PseudoTerminal::bytesAtPort() const
{
    int count = 0;
    ioctl(m_Port, FIONREAD, &count);
    return count;
}

} // namespace simulator
