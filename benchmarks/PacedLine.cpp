#include "benchmarks/PacedLine.h"

#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <sched.h>
#include <termios.h>
#include <unistd.h>

namespace {

const qint64 nanosecondsPerByte = 10 * 1000000000LL / 115200;
const qint64 wakeUpTime = 200000; // the scheduler's part of a wait, spent in a loop instead
const int readSize = 4096;

void waitUntil(qint64 time)
{
    const qint64 sleepEnd = time - wakeUpTime;
    const timespec end = {static_cast<time_t>(sleepEnd / 1000000000), static_cast<long>(sleepEnd % 1000000000)};
    if (sleepEnd > PacedLine::now())
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr);
    while (PacedLine::now() < time) {
    }
}

} // namespace

PacedLine::PacedLine(const char *name) : m_Name(name), m_Master(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK))
{
    if (m_Master < 0 || grantpt(m_Master) != 0 || unlockpt(m_Master) != 0)
        qFatal("no pseudo-terminal can be made");
    m_Port = ::open(ptsname(m_Master), O_RDWR | O_NOCTTY);
    termios raw = {};
    tcgetattr(m_Port, &raw);
    cfmakeraw(&raw);
    tcsetattr(m_Port, TCSANOW, &raw);
    ::unlink(name);
    if (::symlink(ptsname(m_Master), name) != 0)
        qFatal("the port %s cannot be made", name);
}

PacedLine::~PacedLine()
{
    ::unlink(m_Name.constData());
    ::close(m_Port);
    ::close(m_Master);
}

QByteArray PacedLine::receive()
{
    char buffer[readSize];
    ssize_t count = 0;
    do { // without a sleep, whose end would be late and count as the program's turnaround
        count = ::read(m_Master, buffer, sizeof buffer);
    } while (count < 0 && errno == EAGAIN && sched_yield() == 0);
    if (count <= 0)
        return QByteArray();
    m_LastBegin = now();
    m_ReceiveFree = qMax(m_ReceiveFree, m_LastBegin) + count * nanosecondsPerByte;
    waitUntil(m_ReceiveFree);
    return QByteArray(buffer, static_cast<int>(count));
}

void PacedLine::send(const QByteArray &bytes)
{
    waitUntil(now() + bytes.size() * nanosecondsPerByte);
    deliver(bytes);
}

void PacedLine::deliver(const QByteArray &bytes)
{
    m_LastSent = now();
    if (::write(m_Master, bytes.constData(), static_cast<size_t>(bytes.size())) != bytes.size())
        qFatal("the serial line is full");
}

qint64 PacedLine::now()
{
    timespec time = {};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * 1000000000LL + time.tv_nsec;
}
