#include "tests/VirtualDisplay.h"

#include <QFile>
#include <QtEndian>

namespace {

// The fields of an X window dump's header, in 32-bit words.
enum DumpField { HeaderSize = 0, Width = 4, Height = 5, BytesPerLine = 12, ColourCount = 19, FieldCount = 25 };

const quint32 colourEntrySize = 12;

const int xdotoolLimitMs = 10000;

void end(QProcess *process)
{
    process->kill();
    process->waitForFinished();
}

} // namespace

// The root is white, so that only the program can make the display black. A key that a busy machine releases late must
// not repeat.
VirtualDisplay::VirtualDisplay()
{
    m_Server.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_Server.start("Xvfb", {"-displayfd", "1", "-screen", "0", "320x240x24", "-wr", "-r", "-fbdir", m_Folder.path(),
                            "-noreset", "-nolisten", "tcp"});
}

VirtualDisplay::~VirtualDisplay()
{
    end(&m_Program);
    end(&m_WindowManager);
    end(&m_Server);
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
    m_WindowManager.setProcessChannelMode(QProcess::ForwardedChannels);
    m_WindowManager.setProcessEnvironment(environment());
    m_WindowManager.start("openbox", {"--sm-disable", "--startup", "touch " + m_Folder.filePath("managed")});
}

bool VirtualDisplay::isManaged() const
{
    return QFile::exists(m_Folder.filePath("managed"));
}

void VirtualDisplay::startProgram(const QString &program, const QStringList &arguments)
{
    m_Program.setProcessChannelMode(QProcess::ForwardedChannels);
    m_Program.setProcessEnvironment(environment());
    m_Program.start(program, arguments);
}

QProcessEnvironment VirtualDisplay::environment() const
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("DISPLAY", m_Name);
    environment.insert("QT_QPA_PLATFORM", "xcb");
    return environment;
}

bool VirtualDisplay::typeKey(const QString &name) const
{
    bool succeeded = false;
    runXdotool({"key", name}, &succeeded);
    return succeeded;
}

QString VirtualDisplay::focusedWindow() const
{
    bool succeeded = false;
    return QString(runXdotool({"getwindowfocus", "getwindowname", "getwindowgeometry"}, &succeeded)).simplified();
}

QByteArray VirtualDisplay::runXdotool(const QStringList &arguments, bool *succeeded) const
{
    QProcess xdotool;
    xdotool.setProcessEnvironment(environment());
    xdotool.start("xdotool", arguments);
    *succeeded = xdotool.waitForFinished(xdotoolLimitMs) && xdotool.exitCode() == 0;
    return xdotool.readAllStandardOutput();
}

QImage VirtualDisplay::picture() const
{
    QFile file(m_Folder.filePath("Xvfb_screen0"));
    if (!file.open(QIODevice::ReadOnly))
        return QImage();
    const QByteArray dump = file.readAll();
    const auto field = [&dump](DumpField index) {
        return qFromBigEndian<quint32>(dump.constData() + sizeof(quint32) * index);
    };
    if (dump.size() < static_cast<int>(FieldCount * sizeof(quint32)))
        return QImage();
    const quint32 start = field(HeaderSize) + field(ColourCount) * colourEntrySize;
    const QImage image(reinterpret_cast<const uchar *>(dump.constData()) + start, static_cast<int>(field(Width)),
                       static_cast<int>(field(Height)), static_cast<int>(field(BytesPerLine)), QImage::Format_RGB32);
    return image.copy();
}
