// The lines of update_config that reprogram the microcontrollers on the instrument's boards.

#include "screens/UpdaterProgressScreen.h"

struct UpdaterProgressScreen::EsaCommand
{
    const char *word;
    ESA_BOARD_ID board;
    ESA_UPDATE_TYPE updateType;
    const char *announcement;
    const char *failure;
};

const UpdaterProgressScreen::EsaCommand UpdaterProgressScreen::esaCommands[] = {
    {"ESA_IO_APP", ESA_IO_BOARD, ESA_APPLICATION, QT_TR_NOOP("Updating ESA IO Board Application with file: %1"),
     QT_TR_NOOP("Failed - Updating ESA IO Board Application with file: %1")},
    {"ESA_M_APP", ESA_MEASUREMENT_BOARD, ESA_APPLICATION,
     QT_TR_NOOP("Updating ESA Measurement Board Application with file: %1"),
     QT_TR_NOOP("Failed - Updating ESA Measurement Board Application with file: %1")},
    {"ESA_IO_EEP", ESA_IO_BOARD, ESA_EEPROM, QT_TR_NOOP("Updating ESA IO Board EEPROM with file: %1"),
     QT_TR_NOOP("Failed - Updating ESA IO Board EEPROM with file: %1")},
    {"ESA_M_EEP", ESA_MEASUREMENT_BOARD, ESA_EEPROM, QT_TR_NOOP("Updating ESA Measurement Board EEPROM with file: %1"),
     QT_TR_NOOP("Failed - Updating ESA Measurement Board EEPROM with file: %1")},
};

namespace {

const QLatin1String picWord("PIC");

} // namespace

QStringList UpdaterProgressScreen::boardCommandWords()
{
    QStringList words(picWord);
    for (const EsaCommand &command : esaCommands)
        words << QLatin1String(command.word);
    return words;
}

/// Carries out the line if its keyword contains the word of a board command anywhere; `*known` says whether it does.
bool UpdaterProgressScreen::processBoardCommand(const QString &keyword, const QString &argument, bool *known)
{
    *known = true;
    if (keyword.contains(picWord))
        return processPic(keyword, argument);
    for (const EsaCommand &command : esaCommands) {
        if (keyword.contains(QLatin1String(command.word)))
            return processEsa(command, argument);
    }
    *known = false;
    return false;
}

bool UpdaterProgressScreen::processPic(const QString &keyword, const QString &argument)
{
    if (!m_PicUpdateEnabled) {
        appendFailure(tr("Failed - PIC updates not enabled"));
        return false;
    }
    const QString numberText = keyword.mid(QString(picWord).size());
    const int picNumber = numberText.toInt();
    appendLine(tr("Updating PIC %1 with file: %2").arg(numberText, argument));
    return succeeded(updatePic(picNumber, argument),
                     tr("Failed - Updating PIC[%1] with file %2").arg(QString::number(picNumber), argument));
}

bool UpdaterProgressScreen::processEsa(const EsaCommand &command, const QString &argument)
{
    appendLine(tr(command.announcement).arg(argument));
    return succeeded(updateESA(argument, command.board, command.updateType), tr(command.failure).arg(argument));
}
