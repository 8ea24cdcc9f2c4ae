#ifndef UPDATE_UPDATELINE_H
#define UPDATE_UPDATELINE_H

#include <QString>
#include <QStringList>

#include "serial/EsaBoard.h"

/// Which root file system the package is for.
enum SYSTEM_TYPE { SYSTEM_SDCARD = 0, SYSTEM_NAND = 1, SYSTEM_UNKNOWN = 2 };

/// A line of update_config as a value: what it asks for, and the messages that report it on the panel.
struct UpdateLine
{
    enum Kind { Malformed, Unknown, System, App, Kernel, Image, File, Script, Pic, Esa };

    /// A text in the translation context of the progress screen, and the values of its place-holders.
    struct Message
    {
        const char *text; ///< null when the line has no such message
        QStringList values;

        /// `translation` of the text with all place-holders filled in one call: a value may hold a "%2" of its own.
        QString filledIn(const QString &translation) const;
    };

    /// The lines of a command file with this content, without their line ends.
    static QStringList linesOf(const QByteArray &content);

    /// `text` is the line without its line end.
    explicit UpdateLine(const QString &text);

    Kind kind;
    QString keyword;  ///< what stands before the colon; empty in a malformed line
    QString argument; ///< what stands after the colon; empty in a malformed line

    SYSTEM_TYPE systemType; ///< of a System line
    QString picNumberText;  ///< of a Pic line: what follows the first three characters of the keyword
    int picNumber;          ///< of a Pic line: that text as a decimal number, 0 when it is not one
    ESA_BOARD_ID esaBoard;  ///< of an Esa line, as is the next
    ESA_UPDATE_TYPE esaUpdateType;

    Message announcement; ///< shown before the line is executed
    Message failure;      ///< shown when it failed
};

#endif
