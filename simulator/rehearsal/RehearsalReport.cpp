#include "simulator/rehearsal/RehearsalReport.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTextStream>
#include <algorithm>

#include "simulator/rehearsal/FileContent.h"

namespace {

const char good[] = "good";
const char failed[] = "FAILED";
const char notCarriedOut[] = "not carried out";

RehearsalReport::Trial readTrial(const QString &fileName)
{
    QStringList lines = linesOf(fileName);
    const QString title = lines.isEmpty() ? fileName : lines.takeFirst();
    const bool isGood = !lines.isEmpty() && lines.takeLast() == QLatin1String(good);
    return {title, lines, isGood};
}

QStringList textsOf(const QList<PackageInspection::Finding> &findings)
{
    QStringList texts;
    for (const PackageInspection::Finding &finding : findings) {
        const QString place = finding.line > 0 ? QString::fromLatin1("line %1, ").arg(finding.line) : QString();
        texts << place + finding.kind + QLatin1String(": ") + finding.text;
    }
    return texts;
}

QJsonArray jsonOf(const QList<PackageInspection::Finding> &findings)
{
    QJsonArray array;
    for (const PackageInspection::Finding &finding : findings)
        array << QJsonObject{{"line", finding.line}, {"kind", finding.kind}, {"text", finding.text}};
    return array;
}

QStringList textsOf(const QList<Report::Call> &calls)
{
    QStringList texts;
    for (const Report::Call &call : calls) {
        texts << (call.exitCode == 0
                      ? call.commandLine
                      : QString::fromLatin1("%1 (exit code %2)").arg(call.commandLine).arg(call.exitCode));
    }
    return texts;
}

/// What the line did, for a person: its red messages, what it changed, and the tools that a script called, which the
/// keyword does not tell.
QStringList describe(const Report::Line &line)
{
    QStringList entries = line.messages + line.changes;
    if (!line.carriedOut)
        entries << QLatin1String(notCarriedOut);
    if (line.command.startsWith(QLatin1String("SCRIPT:"))) {
        for (const QString &call : textsOf(line.calls))
            entries << QLatin1String("called ") + call;
    }
    return entries;
}

const char *outcomeOf(const Report::Line &line)
{
    if (!line.carriedOut)
        return notCarriedOut;
    return line.failed() ? "failed" : "ok";
}

QJsonObject jsonOf(const Report::Line &line, int number)
{
    return {{"number", number},
            {"command", line.command},
            {"outcome", QLatin1String(outcomeOf(line))},
            {"messages", QJsonArray::fromStringList(line.messages)},
            {"changes", QJsonArray::fromStringList(line.changes)},
            {"calls", QJsonArray::fromStringList(textsOf(line.calls))}};
}

QJsonObject jsonOf(const RehearsalReport::Trial &trial)
{
    return {{"title", trial.title},
            {"entries", QJsonArray::fromStringList(trial.entries)},
            {"verdict", QLatin1String(trial.good ? good : failed)}};
}

} // namespace

RehearsalReport::RehearsalReport(const QString &archive, const Report &update, const PackageInspection &inspection,
                                 const QStringList &trials)
    : m_Archive(archive), m_Update(update), m_Inspection(inspection)
{
    for (const QString &trial : trials)
        m_Trials << readTrial(trial);
}

bool RehearsalReport::isGood() const
{
    return m_Update.isGood() && m_Inspection.mistakes().isEmpty() &&
           std::all_of(m_Trials.begin(), m_Trials.end(), [](const Trial &trial) { return trial.good; });
}

QString RehearsalReport::verdict() const
{
    return QLatin1String(isGood() ? good : failed);
}

QList<Report::Section> RehearsalReport::sections() const
{
    QList<Report::Section> sections = {
        {QLatin1String("Mistakes in the package"), textsOf(m_Inspection.mistakes())},
        {QLatin1String("Remarks on the package"), textsOf(m_Inspection.remarks())},
    };
    sections += m_Update.sections();
    sections.append({QLatin1String("Last message"), QStringList(m_Update.lastMessage())});
    for (const Trial &trial : m_Trials)
        sections.append({trial.title, trial.entries + QStringList(QLatin1String(trial.good ? good : failed))});
    return sections;
}

QString RehearsalReport::text() const
{
    QString text;
    QTextStream out(&text);
    out << "Command lines\n";
    int number = 0;
    for (const Report::Line &line : m_Update.lines()) {
        out << (line.failed() ? "  FAILED  " : "  ok      ") << qSetFieldWidth(3) << ++number << qSetFieldWidth(0)
            << "  " << line.command << '\n';
        for (const QString &entry : describe(line))
            out << "               " << entry << '\n';
    }
    for (const Report::Section &section : sections()) {
        out << section.title << '\n';
        for (const QString &entry : section.entries)
            out << "  " << entry << '\n';
        if (section.entries.isEmpty())
            out << "  none\n";
    }
    out << "Verdict: " << verdict() << '\n';
    return text;
}

QByteArray RehearsalReport::json() const
{
    QJsonArray lines;
    for (const Report::Line &line : m_Update.lines())
        lines << jsonOf(line, lines.size() + 1);
    QJsonObject update;
    for (const Report::Section &section : m_Update.sections())
        update[section.title] = QJsonArray::fromStringList(section.entries);
    QJsonArray trials;
    for (const Trial &trial : m_Trials)
        trials << jsonOf(trial);
    return QJsonDocument(QJsonObject{{"package", m_Archive},
                                     {"verdict", verdict()},
                                     {"lines", lines},
                                     {"mistakes", jsonOf(m_Inspection.mistakes())},
                                     {"remarks", jsonOf(m_Inspection.remarks())},
                                     {"update", update},
                                     {"lastMessage", m_Update.lastMessage()},
                                     {"trials", trials}})
        .toJson();
}

QString RehearsalReport::markdown(const QStringList &pictures) const
{
    QString text;
    QTextStream out(&text);
    out << "# Rehearsal of " << m_Archive << ": " << verdict() << "\n\n";
    for (const QString &picture : pictures)
        out << "![" << picture.section(QLatin1Char('/'), -1) << "](" << picture << ")\n";
    out << "\n## Command lines\n\n";
    int number = 0;
    for (const Report::Line &line : m_Update.lines()) {
        out << ++number << ". " << (line.failed() ? "**FAILED** `" : "ok `") << line.command << "`\n";
        for (const QString &entry : describe(line))
            out << "    - `" << entry << "`\n";
    }
    for (const Report::Section &section : sections()) {
        out << "\n## " << section.title << "\n\n";
        for (const QString &entry : section.entries)
            out << "- `" << entry << "`\n";
        if (section.entries.isEmpty())
            out << "none\n";
    }
    return text;
}
