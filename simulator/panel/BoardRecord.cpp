#include "simulator/panel/BoardRecord.h"

#include <QDir>
#include <QFile>

#include "simulator/models/esa/EsaBoards.h"
#include "simulator/models/pic/VirtualBoards.h"
#include "simulator/tools/InstrumentState.h"

using namespace simulator;

namespace {

const QDir folder(QString::fromStdString(InstrumentState::directory / "boards"));

void write(const QString &name, const QByteArray &content)
{
    QFile file(folder.filePath(name));
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        file.write(content);
}

QByteArray bytesOf(const Pic18Device::Configuration &configuration)
{
    return QByteArray(reinterpret_cast<const char *>(configuration.data()), static_cast<int>(configuration.size()));
}

void recordPic(int number)
{
    Pic18Memory &memory = VirtualBoards::installed().pic(number).memory();
    const QString name = QString::fromLatin1("pic%1.").arg(number);
    write(name + QLatin1String("program"), memory.programMemory().bytes());
    write(name + QLatin1String("configuration"), memory.configuration().bytes());
    write(name + QLatin1String("mask"), bytesOf(memory.device().configurationMask));
}

void recordEsaBoard(const QString &name, const EsaBootLoader &board)
{
    write(name + QLatin1String(".application"), board.application());
    write(name + QLatin1String(".eeprom"), board.eeprom());
}

} // namespace

void recordBoards(const EsaBoards &esaBoards)
{
    QDir().mkpath(folder.path());
    for (int number = 1; number <= VirtualBoards::picCount; ++number)
        recordPic(number);
    recordEsaBoard(QLatin1String("esa-io"), esaBoards.ioBoard());
    recordEsaBoard(QLatin1String("esa-measurement"), esaBoards.measurementBoard());
    const QStringList violations = VirtualBoards::installed().violations() + esaBoards.violations();
    write(QLatin1String("violations"), violations.join(QLatin1Char('\n')).toLocal8Bit());
}
