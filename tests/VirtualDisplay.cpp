#include "tests/VirtualDisplay.h"

#include <QFile>
#include <QtEndian>
#include <QtTest>

namespace {

const QString displayName = ":7"; // the sandbox has no other

// The fields of an X window dump's header, in 32-bit words.
enum DumpField { HeaderSize = 0, Width = 4, Height = 5, BytesPerLine = 12, ColourCount = 19, FieldCount = 25 };

const quint32 colourEntrySize = 12;

} // namespace

VirtualDisplay::VirtualDisplay()
{
    m_Server.setProcessChannelMode(QProcess::ForwardedChannels);
    m_Server.start("Xvfb", QStringList() << displayName << "-screen"
                                         << "0"
                                         << "320x240x24"
                                         << "-fbdir" << m_FrameBuffer.path() << "-noreset"
                                         << "-nolisten"
                                         << "tcp");
}

VirtualDisplay::~VirtualDisplay()
{
    m_Server.terminate();
    m_Server.waitForFinished();
}

// A server that answers: the socket alone may be what an earlier one has left.
bool VirtualDisplay::isRunning()
{
    const auto answers = [this] {
        bool succeeded = false;
        runXdotool(QStringList("getmouselocation"), &succeeded);
        return succeeded;
    };
    return QTest::qWaitFor(answers, 60000);
}

QProcessEnvironment VirtualDisplay::environment() const
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("DISPLAY", displayName);
    environment.insert("QT_QPA_PLATFORM", "xcb");
    return environment;
}

bool VirtualDisplay::typeKey(const QString &name) const
{
    bool succeeded = false;
    runXdotool(QStringList() << "key" << name, &succeeded);
    return succeeded;
}

QString VirtualDisplay::focusedWindow() const
{
    bool succeeded = false;
    return runXdotool(QStringList() << "getwindowfocus"
                                    << "getwindowname",
                      &succeeded)
        .trimmed();
}

QByteArray VirtualDisplay::runXdotool(const QStringList &arguments, bool *succeeded) const
{
    QProcess xdotool;
    xdotool.setProcessEnvironment(environment());
    xdotool.start("xdotool", arguments);
    *succeeded = xdotool.waitForFinished() && xdotool.exitCode() == 0;
    return xdotool.readAllStandardOutput();
}

QImage VirtualDisplay::picture() const
{
    QFile file(m_FrameBuffer.filePath("Xvfb_screen0"));
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
