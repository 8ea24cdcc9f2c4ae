#include "update/UpdateLine.h"

#include <QBuffer>
#include <QTextStream>

namespace {

enum KeywordMatch { Whole, Contained };

struct Keyword
{
    const char *word;
    KeywordMatch match;
    UpdateLine::Kind kind;
    const char *announcement;
    const char *failure;
    ESA_BOARD_ID esaBoard = ESA_IO_BOARD;
    ESA_UPDATE_TYPE esaUpdateType = ESA_APPLICATION;
};

// The first row that fits counts. A keyword that contains the word of a board line is a line for that board.
const Keyword keywords[] = {
    {"SYSTEM", Whole, UpdateLine::System, nullptr, nullptr},
    {"APP", Whole, UpdateLine::App, QT_TRANSLATE_NOOP("UpdaterProgressScreen", "Updating Application with file: %1"),
     QT_TRANSLATE_NOOP("UpdaterProgressScreen", "Failed - Updating Application with file: %1")},
    {"KERNEL", Whole, UpdateLine::Kernel, QT_TRANSLATE_NOOP("UpdaterProgressScreen", "Updating kernel with file: %1"),
     QT_TRANSLATE_NOOP("UpdaterProgressScreen", "Failed - Updating kernel with file: %1")},
    {"IMAGE", Whole, UpdateLine::Image, QT_TRANSLATE_NOOP("UpdaterProgressScreen", "Updating root image with file: %1"),
     QT_TRANSLATE_NOOP("UpdaterProgressScreen", "Failed - Updating root image with file: %1")},
    {"FILE", Whole, UpdateLine::File, QT_TRANSLATE_NOOP("UpdaterProgressScreen", "Updating root files with folder: %1"),
     QT_TRANSLATE_NOOP("UpdaterProgressScreen", "Failed - Updating root files with folder: %1")},
    {"SCRIPT", Whole, UpdateLine::Script, QT_TRANSLATE_NOOP("UpdaterProgressScreen", "Running script file: %1"),
     QT_TRANSLATE_NOOP("UpdaterProgressScreen", "Failed - Running script file: %1")},
    {"PIC", Contained, UpdateLine::Pic, QT_TRANSLATE_NOOP("UpdaterProgressScreen", "Updating PIC %1 with file: %2"),
     QT_TRANSLATE_NOOP("UpdaterProgressScreen", "Failed - Updating PIC[%1] with file %2")},
    {"ESA_IO_APP", Contained, UpdateLine::Esa,
     QT_TRANSLATE_NOOP("UpdaterProgressScreen", "Updating ESA IO Board Application with file: %1"),
     QT_TRANSLATE_NOOP("UpdaterProgressScreen", "Failed - Updating ESA IO Board Application with file: %1"),
     ESA_IO_BOARD, ESA_APPLICATION},
    {"ESA_M_APP", Contained, UpdateLine::Esa,
     QT_TRANSLATE_NOOP("UpdaterProgressScreen", "Updating ESA Measurement Board Application with file: %1"),
     QT_TRANSLATE_NOOP("UpdaterProgressScreen", "Failed - Updating ESA Measurement Board Application with file: %1"),
     ESA_MEASUREMENT_BOARD, ESA_APPLICATION},
    {"ESA_IO_EEP", Contained, UpdateLine::Esa,
     QT_TRANSLATE_NOOP("UpdaterProgressScreen", "Updating ESA IO Board EEPROM with file: %1"),
     QT_TRANSLATE_NOOP("UpdaterProgressScreen", "Failed - Updating ESA IO Board EEPROM with file: %1"), ESA_IO_BOARD,
     ESA_EEPROM},
    {"ESA_M_EEP", Contained, UpdateLine::Esa,
     QT_TRANSLATE_NOOP("UpdaterProgressScreen", "Updating ESA Measurement Board EEPROM with file: %1"),
     QT_TRANSLATE_NOOP("UpdaterProgressScreen", "Failed - Updating ESA Measurement Board EEPROM with file: %1"),
     ESA_MEASUREMENT_BOARD, ESA_EEPROM},
};

const int picWordLength = 3;

const Keyword *findKeyword(const QString &text)
{
    for (const Keyword &keyword : keywords) {
        const QLatin1String word(keyword.word);
        if (keyword.match == Whole ? text == word : text.contains(word))
            return &keyword;
    }
    return nullptr;
}

SYSTEM_TYPE systemTypeOf(const QString &argument)
{
    if (argument == QLatin1String("SDCARD"))
        return SYSTEM_SDCARD;
    if (argument == QLatin1String("NAND"))
        return SYSTEM_NAND;
    return SYSTEM_UNKNOWN;
}

} // namespace

QStringList UpdateLine::linesOf(const QByteArray &content)
{
    QStringList lines;
    QBuffer buffer; // decoded first, so that a CR of a UTF-16 file is found as well
    buffer.setData(content);
    buffer.open(QIODevice::ReadOnly | QIODevice::Text);
    QTextStream stream(&buffer);
    while (!stream.atEnd())
        lines << stream.readLine();
    return lines;
}

UpdateLine::UpdateLine(const QString &text)
    : kind(Malformed),
      systemType(SYSTEM_UNKNOWN),
      picNumber(0),
      esaBoard(ESA_IO_BOARD),
      esaUpdateType(ESA_APPLICATION),
      announcement(),
      failure{QT_TRANSLATE_NOOP("UpdaterProgressScreen", "Bad command format.   "), QStringList()}
{
    const QStringList pieces = text.split(QLatin1Char(':'));
    if (pieces.size() != 2)
        return;
    keyword = pieces.at(0);
    argument = pieces.at(1);

    const Keyword *const known = findKeyword(keyword);
    if (!known) {
        kind = Unknown;
        failure = {QT_TRANSLATE_NOOP("UpdaterProgressScreen", "Unknown command: %1:%2"), pieces};
        return;
    }
    kind = known->kind;
    esaBoard = known->esaBoard;
    esaUpdateType = known->esaUpdateType;
    announcement = {known->announcement, QStringList(argument)};
    failure = {known->failure, QStringList(argument)};
    if (kind == System) {
        failure = Message();
        systemType = systemTypeOf(argument);
        announcement.text = systemType == SYSTEM_UNKNOWN
                                ? QT_TRANSLATE_NOOP("UpdaterProgressScreen", "System Type error: Unknown Type: %1")
                                : QT_TRANSLATE_NOOP("UpdaterProgressScreen", "System Type set to: %1");
    } else if (kind == Pic) {
        picNumberText = keyword.mid(picWordLength);
        picNumber = picNumberText.toInt();
        announcement.values.prepend(picNumberText);
        failure.values.prepend(QString::number(picNumber));
    }
}

QString UpdateLine::Message::filledIn(const QString &translation) const
{
    if (values.isEmpty())
        return translation;
    return values.size() == 1 ? translation.arg(values.at(0)) : translation.arg(values.at(0), values.at(1));
}
