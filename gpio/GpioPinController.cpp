#include "gpio/GpioPinController.h"

#include <QtDebug>
#include <fcntl.h>
#include <unistd.h>

namespace {

const QLatin1String gpioFolder("/sys/class/gpio/");

int openFile(const QString &name, int flags)
{
    return ::open((gpioFolder + name).toLocal8Bit().constData(), flags);
}

bool isUsable(int file)
{
    return file > 0;
}

// The driver of a line needs the whole text in one write.
bool writeText(int file, const QString &text)
{
    if (!isUsable(file))
        return false;
    const QByteArray bytes = text.toLocal8Bit();
    const ssize_t written = ::write(file, bytes.constData(), static_cast<size_t>(bytes.size()));
    Q_UNUSED(written)
    return true;
}

} // namespace

GpioPinController::GpioPinController(QString pin, QObject *parent) : QObject(parent), m_Pin(pin)
{
    m_ExportFile = openFile(QLatin1String("export"), O_WRONLY);
    openPinFiles();
}

GpioPinController::~GpioPinController()
{
    ::close(m_ExportFile);
    closePinFiles();
}

bool GpioPinController::createDriver()
{
    if (!writeText(m_ExportFile, m_Pin))
        return false;
    // The export made new files; descriptors of an earlier export reach the line no more.
    closePinFiles();
    openPinFiles();
    return true;
}

bool GpioPinController::removeDriver()
{
    const int unexportFile = openFile(QLatin1String("unexport"), O_WRONLY);
    const bool written = writeText(unexportFile, m_Pin);
    ::close(unexportFile);
    return written;
}

bool GpioPinController::setDirection(QString direction)
{
    return writeText(m_DirectionFile, direction);
}

bool GpioPinController::setValue(QString value)
{
    return writeText(m_ValueFile, value);
}

QString GpioPinController::getValue()
{
    char level = 0;
    if (!isUsable(m_ValueFile) || lseek(m_ValueFile, 0, SEEK_SET) != 0 || ::read(m_ValueFile, &level, 1) != 1) {
        qDebug() << "getValue failed";
        return QLatin1String("-1");
    }
    return QString(QLatin1Char(level));
}

void GpioPinController::toggleValue()
{
    const QString value = getValue();
    if (value == QLatin1String("0"))
        setValue(QLatin1String("1"));
    else if (value == QLatin1String("1"))
        setValue(QLatin1String("0"));
}

void GpioPinController::openPinFiles()
{
    const QString pinFolder = QLatin1String("gpio") + m_Pin;
    m_DirectionFile = openFile(pinFolder + QLatin1String("/direction"), O_WRONLY);
    m_ValueFile = openFile(pinFolder + QLatin1String("/value"), O_RDWR);
}

void GpioPinController::closePinFiles()
{
    ::close(m_DirectionFile);
    ::close(m_ValueFile);
}
