#include "simulator/rehearsal/FaultDraw.h"

#include <QFileInfo>
#include <algorithm>

#include "simulator/models/pic/HexFile.h"

using namespace simulator;

namespace {

const int mostFaults = 3;
const int esaBlockSize = 128;
const unsigned int programMemoryEnd = 0x10000; // of the smallest PIC

// Failures that the update does not report, because it goes on all the same or has another way.
const char *const toleratedCalls[] = {"umount ", "losetup -d ", "modprobe g_mass_storage ", "sync"};

bool isTolerated(const QString &commandLine)
{
    return std::any_of(std::begin(toleratedCalls), std::end(toleratedCalls),
                       [&commandLine](const char *call) { return commandLine.startsWith(QLatin1String(call)); });
}

bool isScript(const Report::Line &line)
{
    return line.command.startsWith(QLatin1String("SCRIPT:"));
}

QString keywordOf(const Report::Line &line)
{
    return line.command.section(QLatin1Char(':'), 0, 0);
}

QString payloadOf(const Report::Line &line)
{
    return line.command.section(QLatin1Char(':'), 1).mid(1);
}

FaultDraw::Fault boardFault(int line, const QString &record, const QString &description)
{
    QString fields = record;
    return {QLatin1String("board-faults"), fields.replace(QLatin1Char(' '), QLatin1Char('\t')), description, {line}};
}

} // namespace

FaultDraw::FaultDraw(unsigned int seed, const Report &undisturbed, const QDir &package)
    : m_Random(seed), m_Undisturbed(undisturbed), m_Package(package)
{
    QList<int> places;
    for (int place = beforeLines; place < undisturbed.lines().size(); ++place)
        places << place;
    for (int count = 1 + drawBelow(mostFaults); count > 0 && !places.isEmpty();) {
        const int place = places.takeAt(drawBelow(places.size()));
        const QList<Fault> candidates = faultsAt(place);
        if (candidates.isEmpty())
            continue;
        const Fault &fault = candidates.at(drawBelow(candidates.size()));
        --count;
        if (place != beforeLines) {
            m_Faults << fault;
            continue;
        }
        m_Faults = {fault}; // the others would not come about
        return;
    }
}

QStringList FaultDraw::untold(const Report &disturbed) const
{
    QStringList untold;
    if (!disturbed.isFailureTold())
        untold << QLatin1String("the update did not end in red");
    for (const Fault &fault : m_Faults) {
        for (const int line : fault.lines) {
            if (line >= disturbed.lines().size() || !disturbed.lines().at(line).failed())
                untold << QString::fromLatin1("line %1 did not fail: %2")
                              .arg(QString::number(line + 1), m_Undisturbed.lines().at(line).command);
        }
    }
    return untold;
}

QList<FaultDraw::Fault> FaultDraw::faultsAt(int line)
{
    if (line == beforeLines)
        return toolFaults(m_Undisturbed.callsBeforeLines());
    if (isScript(m_Undisturbed.lines().at(line)))
        return {};
    return toolFaults(m_Undisturbed.lines().at(line).calls) + picFaults(line) + esaFaults(line);
}

QList<FaultDraw::Fault> FaultDraw::toolFaults(const QList<Report::Call> &calls) const
{
    QList<Fault> faults;
    for (const Report::Call &call : calls) {
        if (call.exitCode == 0 && !isTolerated(call.commandLine))
            faults.append({QLatin1String("faults"), QLatin1String("1\t") + call.commandLine,
                           QLatin1String("fails: ") + call.commandLine, linesThatCall(call.commandLine)});
    }
    return faults;
}

// A tool fails in every command line that begins like the drawn one.
QList<int> FaultDraw::linesThatCall(const QString &commandLine) const
{
    QList<int> lines;
    for (int index = 0; index < m_Undisturbed.lines().size(); ++index) {
        const Report::Line &line = m_Undisturbed.lines().at(index);
        const bool calls = std::any_of(line.calls.begin(), line.calls.end(), [&commandLine](const Report::Call &call) {
            return call.commandLine.startsWith(commandLine);
        });
        if (calls && !isScript(line))
            lines << index;
    }
    return lines;
}

QList<FaultDraw::Fault> FaultDraw::picFaults(int line)
{
    const QString keyword = keywordOf(m_Undisturbed.lines().at(line));
    if (!keyword.contains(QLatin1String("PIC")))
        return {};
    const QString pic = QLatin1String("pic ") + QString::number(keyword.mid(3).toInt());
    const HexFile hexFile(m_Package.filePath(payloadOf(m_Undisturbed.lines().at(line))));
    QList<Fault> faults = {boardFault(line, pic + QLatin1String(" absent"), pic + QLatin1String(" does not answer"))};
    QList<HexFile::Range> ranges = hexFile.written();
    ranges.erase(std::remove_if(ranges.begin(), ranges.end(),
                                [](const HexFile::Range &range) { return range.begin >= programMemoryEnd; }),
                 ranges.end());
    if (ranges.isEmpty())
        return faults;

    const HexFile::Range range = ranges.at(drawBelow(ranges.size()));
    const unsigned int address =
        range.begin + static_cast<unsigned int>(drawBelow(static_cast<int>(range.end - range.begin)));
    const QString bit = QString::fromLatin1("%1 %2").arg(address).arg(drawBelow(8));
    const QString place = QString::fromLatin1("%1: bit %2 at address %3").arg(pic, bit.right(1)).arg(address);
    faults << boardFault(line, pic + QLatin1String(" never-erased ") + bit, place + QLatin1String(" does not erase"));
    faults << boardFault(line, pic + QLatin1String(" flipped ") + bit, place + QLatin1String(" is programmed wrongly"));
    return faults;
}

QList<FaultDraw::Fault> FaultDraw::esaFaults(int line)
{
    const QString keyword = keywordOf(m_Undisturbed.lines().at(line));
    const QString payload = m_Package.filePath(payloadOf(m_Undisturbed.lines().at(line)));
    const int blocks = static_cast<int>((QFileInfo(payload).size() + esaBlockSize - 1) / esaBlockSize);
    if (!keyword.contains(QLatin1String("ESA_")) || keyword.contains(QLatin1String("PIC")) || blocks == 0)
        return {};
    const QString name = QLatin1String(keyword.contains(QLatin1String("ESA_IO")) ? "io" : "measurement");
    const QString board = QLatin1String("esa ") + name;
    const QString block = QString::number(drawBelow(blocks));
    return {
        boardFault(line, board + QLatin1String(" silent"), board + QLatin1String(" never asks for the image")),
        boardFault(line, board + QLatin1String(" refused ") + block, board + QLatin1String(" refuses block ") + block),
        boardFault(line, board + QLatin1String(" unanswered ") + block,
                   board + QLatin1String(": the reply to block ") + block + QLatin1String(" is lost"))};
}

// Not a distribution of the standard library, whose draws differ from one library to the next.
int FaultDraw::drawBelow(int limit)
{
    return static_cast<int>(m_Random() % static_cast<unsigned int>(limit));
}
