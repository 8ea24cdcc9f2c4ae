#include "simulator/models/PseudoTerminal.h"

#include <QCoreApplication>
#include <QHash>
#include <QSocketNotifier>
#include <dlfcn.h>
#include <fcntl.h>
#include <pty.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace simulator {

namespace {

QHash<dev_t, PseudoTerminal *> terminals;

dev_t deviceOf(int descriptor)
{
    struct stat status = {};
    return fstat(descriptor, &status) == 0 ? status.st_rdev : 0;
}

} // namespace

PseudoTerminal::PseudoTerminal(const QString &name, QObject *parent) : QObject(parent), m_Name(name.toLocal8Bit())
{
    ::unlink(m_Name.constData());
    if (openpty(&m_Master, &m_Port, nullptr, nullptr, nullptr) != 0 || fcntl(m_Master, F_SETFL, O_NONBLOCK) != 0 ||
        ::symlink(ptsname(m_Master), m_Name.constData()) != 0)
        qFatal("the port %s cannot be made", m_Name.constData());
    terminals.insert(deviceOf(m_Port), this);
    struct termios raw = {};
    tcgetattr(m_Port, &raw);
    cfmakeraw(&raw);
    tcsetattr(m_Port, TCSANOW, &raw);
    m_Notifier = new QSocketNotifier(m_Master, QSocketNotifier::Read, this);
    connect(m_Notifier, &QSocketNotifier::activated, this, &PseudoTerminal::readyRead);
}

PseudoTerminal::~PseudoTerminal()
{
    unplug();
}

PseudoTerminal *PseudoTerminal::at(int descriptor)
{
    return terminals.value(deviceOf(descriptor));
}

QByteArray PseudoTerminal::readAll()
{
    QByteArray bytes;
    char buffer[4096];
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
    if (m_Master < 0 || bytes.isEmpty())
        return;
    const int expected = bytesAtPort() + bytes.size();
    if (::write(m_Master, bytes.constData(), static_cast<size_t>(bytes.size())) != bytes.size())
        qFatal("the serial line is full");
    while (bytesAtPort() < expected) {
    }
}

bool PseudoTerminal::deliver(const QByteArray &bytes)
{
    write(bytes);
    QCoreApplication::processEvents();
    return isRead();
}

void PseudoTerminal::unplug()
{
    if (m_Master < 0)
        return;
    terminals.remove(deviceOf(m_Port));
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

// A pseudo-terminal does not show that it was drained, nor all that it was set to. These come before the C library's
// own.

extern "C" int tcdrain(int descriptor)
{
    static const auto libraryCall = reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, "tcdrain"));
    const simulator::PseudoTerminal *terminal = simulator::PseudoTerminal::at(descriptor);
    if (terminal != nullptr && terminal->onDrain)
        terminal->onDrain();
    return libraryCall(descriptor);
}

extern "C" int tcsetattr(int descriptor, int when, const struct termios *settings) noexcept
{
    using Call = int (*)(int, int, const struct termios *);
    static const auto libraryCall = reinterpret_cast<Call>(dlsym(RTLD_NEXT, "tcsetattr"));
    const int result = libraryCall(descriptor, when, settings);
    simulator::PseudoTerminal *terminal = simulator::PseudoTerminal::at(descriptor);
    if (result == 0 && terminal != nullptr)
        terminal->setSettings(*settings);
    return result;
}
