#include "bench/PanelMessages.h"

#include <QBrush>
#include <QColor>
#include <QTextBlock>
#include <QTextDocument>

namespace {

QString colourName(const QTextBlock &block)
{
    for (const char *name : {"red", "green", "orange"}) {
        const QBrush foreground = block.begin().fragment().charFormat().foreground();
        if (foreground.style() != Qt::NoBrush && foreground.color() == QColor(QLatin1String(name)))
            return QLatin1String(name);
    }
    return QLatin1String("plain");
}

} // namespace

QList<PanelMessage> panelMessages(const QTextDocument &document)
{
    QList<PanelMessage> messages;
    for (QTextBlock block = document.begin(); block.isValid(); block = block.next()) {
        const QString text = block.text().trimmed();
        if (!text.isEmpty())
            messages << PanelMessage{colourName(block), text};
    }
    return messages;
}
