#include "simulator/rehearsal/BoardReport.h"

#include <QProcess>

#include "simulator/rehearsal/FileContent.h"

namespace {

const char erased = '\xFF';
const char padding = 0x1A;
const int blockSize = 128;
const int configurationBegin = 0x300000;
const int configurationSize = 14;

struct EsaMemory
{
    const char *word;
    const char *file;
};

const EsaMemory esaMemories[] = {
    {"ESA_IO_APP", "esa-io.application"},
    {"ESA_M_APP", "esa-measurement.application"},
    {"ESA_IO_EEP", "esa-io.eeprom"},
    {"ESA_M_EEP", "esa-measurement.eeprom"},
};

/// `size` bytes from `begin` of a HEX file, as srecord reads it; what the file does not hold is `fill`.
QByteArray hexContent(const QString &hexFile, int begin, int size, char fill)
{
    const QString first = QString::number(begin);
    const QString end = QString::number(begin + size);
    const QString filler = QString::number(static_cast<unsigned char>(fill));
    QProcess reader;
    reader.start(QLatin1String("srec_cat"),
                 QStringList() << hexFile << QLatin1String("-intel") << QLatin1String("-crop") << first << end
                               << QLatin1String("-fill") << filler << first << end << QLatin1String("-offset")
                               << QString::fromLatin1("-%1").arg(begin) << QLatin1String("-o") << QLatin1String("-")
                               << QLatin1String("-binary"));
    reader.waitForFinished();
    return reader.readAllStandardOutput();
}

} // namespace

// Of several lines for one memory the last one counts.
BoardReport::BoardReport(const QDir &boards, const QDir &package, const QStringList &commandLines)
    : m_Boards(boards), m_Package(package)
{
    QMap<int, Payload> picPayloads;
    QMap<QString, Payload> esaPayloads;
    for (int line = 0; line < commandLines.size(); ++line) {
        const QString keyword = commandLines.at(line).section(QLatin1Char(':'), 0, 0);
        const Payload payload = {commandLines.at(line).section(QLatin1Char(':'), 1).mid(1), line};
        if (keyword.contains(QLatin1String("PIC"))) {
            picPayloads[keyword.mid(3).toInt()] = payload;
            continue;
        }
        for (const EsaMemory &memory : esaMemories) {
            if (keyword.contains(QLatin1String(memory.word)))
                esaPayloads[QLatin1String(memory.file)] = payload;
        }
    }
    for (auto pic = picPayloads.cbegin(); pic != picPayloads.cend(); ++pic)
        describePic(pic.key(), pic.value());
    for (auto memory = esaPayloads.cbegin(); memory != esaPayloads.cend(); ++memory)
        describeEsaMemory(memory.key(), memory.value());

    const QByteArray violations = contentOf(m_Boards.filePath(QLatin1String("violations")));
    if (!violations.isEmpty())
        m_Violations = QString::fromLocal8Bit(violations).split(QLatin1Char('\n'));
    m_Good = m_Good && m_Violations.isEmpty();
}

void BoardReport::describePic(int number, const Payload &payload)
{
    const QByteArray program = contentOf(m_Boards.filePath(QString::fromLatin1("pic%1.program").arg(number)));
    const QString hexFile = m_Package.filePath(payload.path);
    const bool equal = !program.isEmpty() && program == hexContent(hexFile, 0, program.size(), erased) &&
                       isConfigurationOf(number, hexFile);
    add(QString::fromLatin1("PIC %1: program memory and configuration").arg(number), payload, equal);
}

// Only what the file holds is compared, and only bits that the device has.
bool BoardReport::isConfigurationOf(int number, const QString &hexFile) const
{
    const QString name = m_Boards.filePath(QString::fromLatin1("pic%1.").arg(number));
    const QByteArray configuration = contentOf(name + QLatin1String("configuration"));
    const QByteArray mask = contentOf(name + QLatin1String("mask"));
    const QByteArray ones = hexContent(hexFile, configurationBegin, configurationSize, '\xFF');
    const QByteArray zeros = hexContent(hexFile, configurationBegin, configurationSize, '\0');
    for (int index = 0; index < configurationSize; ++index) {
        const bool inFile = ones.at(index) == zeros.at(index);
        if (inFile && ((configuration.at(index) ^ ones.at(index)) & mask.at(index)) != 0)
            return false;
    }
    return true;
}

void BoardReport::describeEsaMemory(const QString &memory, const Payload &payload)
{
    const QByteArray received = contentOf(m_Boards.filePath(memory));
    const QByteArray sent = contentOf(m_Package.filePath(payload.path));
    const int blocks = (sent.size() + blockSize - 1) / blockSize;
    add(memory, payload, received == sent.leftJustified(blocks * blockSize, padding));
}

void BoardReport::add(const QString &what, const Payload &payload, bool equal)
{
    m_Lines[payload.line] =
        QString::fromLatin1("%1: %2 %3").arg(what, QLatin1String(equal ? "equal to" : "DIFFERS FROM"), payload.path);
    m_Good = m_Good && equal;
}
