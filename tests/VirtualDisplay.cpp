#include "tests/VirtualDisplay.h"

#include <QFile>

namespace {

const int width = 320;
const int height = 240;
const int pixelBytes = width * height * 4;
const int xdotoolLimitMs = 10000;

// The fast clock of simulator/sandbox, for the program alone: it would shorten the waits of the test as well.
QProcessEnvironment fastClock()
{
    QProcessEnvironment clock;
    clock.insert("LD_PRELOAD", "/usr/$LIB/faketime/libfaketime.so.1");
    clock.insert("FAKETIME", "+0 x100");
    clock.insert("FAKETIME_DONT_FAKE_MONOTONIC", "1");
    clock.insert("NO_FAKE_STAT", "1");
    return clock;
}

} // namespace

// The root is white, so that only the program can make the display black. A key that a busy machine releases late must
// not repeat.
VirtualDisplay::VirtualDisplay()
{
    start(&m_Server, "Xvfb",
          {"-displayfd", "1", "-screen", "0", QString("%1x%2x24").arg(width).arg(height), "-wr", "-r", "-fbdir",
           m_Folder.path(), "-noreset", "-nolisten", "tcp"});
}

VirtualDisplay::~VirtualDisplay()
{
    for (QProcess *process : {&m_Program, &m_WindowManager, &m_Server}) {
        process->kill();
        process->waitForFinished();
    }
}

// The server prints the number of its display when it is ready.
bool VirtualDisplay::isRunning()
{
    if (m_Server.canReadLine())
        m_Name = ':' + m_Server.readLine().trimmed();
    return !m_Name.isEmpty();
}

void VirtualDisplay::startWindowManager()
{
    start(&m_WindowManager, "openbox", {"--sm-disable", "--startup", "touch " + m_Folder.filePath("managed")});
}

bool VirtualDisplay::isManaged() const
{
    return QFile::exists(m_Folder.filePath("managed"));
}

void VirtualDisplay::startProgram(const QString &program, const QStringList &arguments)
{
    start(&m_Program, program, arguments, fastClock());
}

void VirtualDisplay::start(QProcess *process, const QString &program, const QStringList &arguments,
                           const QProcessEnvironment &clock) const
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(clock);
    environment.insert("DISPLAY", m_Name);
    environment.insert("QT_QPA_PLATFORM", "xcb");
    process->setProcessEnvironment(environment);
    process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process->start(program, arguments);
}

bool VirtualDisplay::typeKey(const QString &name) const
{
    QProcess xdotool;
    return runXdotool(&xdotool, {"key", name});
}

QString VirtualDisplay::focusedWindow() const
{
    QProcess xdotool;
    runXdotool(&xdotool, {"getwindowfocus", "getwindowname", "getwindowgeometry"});
    return QString(xdotool.readAllStandardOutput()).simplified();
}

bool VirtualDisplay::runXdotool(QProcess *xdotool, const QStringList &arguments) const
{
    start(xdotool, "xdotool", arguments);
    return xdotool->waitForFinished(xdotoolLimitMs) && xdotool->exitCode() == 0;
}

// The server keeps the display as an X window dump, in which the pixels come last.
QImage VirtualDisplay::picture() const
{
    QFile file(m_Folder.filePath("Xvfb_screen0"));
    file.open(QIODevice::ReadOnly);
    const QByteArray pixels = file.readAll().right(pixelBytes);
    if (pixels.size() < pixelBytes)
        return QImage();
    return QImage(reinterpret_cast<const uchar *>(pixels.constData()), width, height, QImage::Format_RGB32).copy();
}
