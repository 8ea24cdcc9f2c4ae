#ifndef BENCH_PANELMESSAGES_H
#define BENCH_PANELMESSAGES_H

#include <QList>
#include <QString>

class QTextDocument;

/// A line of the message window as the operator sees it.
struct PanelMessage
{
    QString colour; ///< "plain", "red", "green" or "orange"
    QString text;   ///< without the white space around it
};

/// The lines of the message window from top to bottom, blank ones left out.
QList<PanelMessage> panelMessages(const QTextDocument &document);

#endif
