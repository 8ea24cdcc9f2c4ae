#include "tests/VirtualDisplay.h"

#include <QFile>

namespace {

const int width = 320;
const int height = 240;
const int pixelBytes = width * height * 4;
const int xdotoolLimitMs = 10000;

} // namespace

// The root is white, so that only the program can make the display black. A key that a busy machine releases late must
// not repeat.
VirtualDisplay::VirtualDisplay()
{
    m_Server.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_Server.start("Xvfb", {"-displayfd", "1", "-screen", "0", QString("%1x%2x24").arg(width).arg(height), "-wr", "-r",
                            "-fbdir", m_Folder.path(), "-noreset", "-nolisten", "tcp"});
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
    start(&m_Program, program, arguments);
}

void VirtualDisplay::start(QProcess *process, const QString &program, const QStringList &arguments) const
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("DISPLAY", m_Name);
    environment.insert("QT_QPA_PLATFORM", "xcb");
    process->setProcessEnvironment(environment);
    process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process->start(program, arguments);
}

void VirtualDisplay::typeKey(const QString &name) const
{
    runXdotool({"key", name});
}

QString VirtualDisplay::focusedWindow() const
{
    return runXdotool({"getwindowfocus", "getwindowname", "getwindowgeometry"}).simplified();
}

QString VirtualDisplay::runXdotool(const QStringList &arguments) const
{
    QProcess xdotool;
    start(&xdotool, "xdotool", arguments);
    xdotool.waitForFinished(xdotoolLimitMs);
    return xdotool.readAllStandardOutput();
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
