// Prints what the product's own grammar says about an unpacked package, and what the simulator's PICs are, as JSON.

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTextDocument>
#include <QTextDocumentFragment>
#include <QTextStream>
#include <iterator>

#include "pic/HexRecord.h"
#include "pic/PicPins.h"
#include "simulator/models/pic/VirtualBoards.h"
#include "update/UpdateLine.h"
#include "update/UpdatePaths.h"

using namespace simulator;

namespace {

const char *const kinds[] = {"malformed", "unknown", "SYSTEM", "APP", "KERNEL",
                             "IMAGE",     "FILE",    "SCRIPT", "PIC", "ESA"};
static_assert(std::size(kinds) == UpdateLine::Esa + 1, "a name for each UpdateLine::Kind");

bool isExecutable(const UpdateLine &line)
{
    const bool known = line.kind != UpdateLine::Malformed && line.kind != UpdateLine::Unknown;
    return known && (line.kind != UpdateLine::Pic || mclrPin(line.picNumber) != nullptr);
}

/// One character less, two neighbours the wrong way round, another character, one more. Letter case is no distance.
QStringList oneEditFrom(const QString &keyword)
{
    const QString characters = QLatin1String("ABCDEFGHIJKLMNOPQRSTUVWXYZ_0123456789");
    const QString meant = keyword.trimmed().toUpper();
    QStringList edits(meant);
    for (int at = 0; at < meant.size(); ++at)
        edits << QString(meant).remove(at, 1);
    for (int at = 0; at + 1 < meant.size(); ++at)
        edits << QString(meant).replace(at, 2, QString(meant.at(at + 1)) + meant.at(at));
    for (const QChar character : characters) {
        for (int at = 0; at < meant.size(); ++at)
            edits << QString(meant).replace(at, 1, character);
        for (int at = 0; at <= meant.size(); ++at)
            edits << QString(meant).insert(at, character);
    }
    return edits;
}

QString nearKeyword(const UpdateLine &line)
{
    if (isExecutable(line) || line.kind == UpdateLine::Malformed)
        return QString();
    const QStringList edits = oneEditFrom(line.keyword);
    for (const QString &keyword : edits) {
        if (isExecutable(UpdateLine(keyword + QLatin1String(":/"))))
            return keyword;
    }
    return QString();
}

/// As the panel shows it, which takes a text with tags for HTML. Several lines become one.
QString shown(const UpdateLine::Message &message, bool failure)
{
    const QString text = message.filledIn(QString::fromLatin1(message.text));
    const bool html = failure || Qt::mightBeRichText(text);
    return (html ? QTextDocumentFragment::fromHtml(text).toPlainText() : text).simplified();
}

QJsonObject describe(const QString &text)
{
    const UpdateLine line(text);
    const bool announced = line.announcement.text != nullptr;
    QJsonObject facts{{"text", text},
                      {"kind", kinds[line.kind]},
                      {"keyword", line.keyword},
                      {"argument", line.argument},
                      {"executable", isExecutable(line)},
                      {"nearKeyword", nearKeyword(line)},
                      {"firstMessage", shown(announced ? line.announcement : line.failure, !announced)}};
    if (line.kind == UpdateLine::System)
        facts["systemType"] = line.systemType == SYSTEM_UNKNOWN ? QString() : line.argument;
    if (line.kind == UpdateLine::Pic)
        facts["pic"] = line.picNumber;
    if (line.kind == UpdateLine::Esa) {
        facts["board"] = QLatin1String(line.esaBoard == ESA_IO_BOARD ? "io" : "measurement");
        facts["memory"] = QLatin1String(line.esaUpdateType == ESA_EEPROM ? "eeprom" : "application");
    }
    return facts;
}

void addRange(QJsonArray *ranges, unsigned int begin, unsigned int end)
{
    if (begin < end)
        ranges->append(QJsonArray{static_cast<qint64>(begin), static_cast<qint64>(end)});
}

/// Where its bytes go, and its records one a line, without comments and what follows a record.
QJsonObject describeHexFile(const QString &fileName)
{
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return {{"rejected", QLatin1String("cannot be opened")}};
    QJsonArray written;
    QJsonArray skipped;
    QByteArray records;
    unsigned int extendedAddress = 0;
    bool ends = false;
    for (int number = 1; !file.atEnd(); ++number) {
        const QByteArray text = file.readLine(HexRecord::longestLine + 2);
        const HexRecord record(text);
        if (record.kind == HexRecord::Rejected)
            return {{"rejected", QString::fromLatin1("line %1: %2").arg(QString::number(number), record.reason)}};
        if (record.kind == HexRecord::Comment)
            continue;
        const int shortestRecord = 11;
        records += ':' + text.mid(1, shortestRecord - 1 + 2 * record.data.size()) + '\n';
        ends = ends || record.type == HexRecord::EndOfFile;
        if (record.isExtendedAddress())
            extendedAddress = record.extendedAddress();
        if (record.isData()) {
            const auto length = static_cast<unsigned int>(record.data.size());
            const unsigned int begin = extendedAddress + record.address;
            const unsigned int count = HexRecord::destinationOf(begin, length).count;
            addRange(&written, begin, begin + count);
            addRange(&skipped, begin + count, begin + length);
        }
    }
    return {{"written", written}, {"skipped", skipped}, {"records", QString::fromLatin1(records)}, {"ends", ends}};
}

QJsonArray describePics()
{
    QJsonArray pics;
    for (int number = 1; number <= VirtualBoards::picCount; ++number) {
        const Pic18Device &device = VirtualBoards::installed().pic(number).memory().device();
        QJsonArray mask;
        for (const unsigned char byte : device.configurationMask)
            mask << byte;
        pics << QJsonObject{{"programSize", static_cast<qint64>(device.programSize)}, {"configurationMask", mask}};
    }
    return pics;
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    const QDir folder(QCoreApplication::arguments().value(1));
    const QDir package(folder.filePath(QFileInfo(UpdatePaths::packageDirectory).fileName()));
    QFile commandFile(package.filePath(QFileInfo(UpdatePaths::commandFile).fileName()));
    QJsonArray lines;
    QJsonObject hexFiles;
    const bool opened = QFileInfo(commandFile).isFile() && commandFile.open(QIODevice::ReadOnly); // a FIFO would block
    const QStringList texts = UpdateLine::linesOf(opened ? commandFile.readAll() : QByteArray());
    for (const QString &text : texts) {
        const QJsonObject line = describe(text);
        const QString path = line["argument"].toString();
        lines << line;
        if (line.contains("pic") && QFileInfo(package.path() + path).isFile())
            hexFiles[path] = describeHexFile(package.path() + path);
    }
    const QJsonObject facts{{"archivePattern", UpdatePaths::packagePattern},
                            {"folder", package.dirName()},
                            {"unpackedTo", UpdatePaths::packageDirectory},
                            {"commandFile", QFileInfo(commandFile).fileName()},
                            {"lines", lines},
                            {"hexFiles", hexFiles},
                            {"pics", describePics()}};
    QTextStream(stdout) << QJsonDocument(facts).toJson();
    return 0;
}
