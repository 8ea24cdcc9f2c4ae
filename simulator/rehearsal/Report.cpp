#include "simulator/rehearsal/Report.h"

#include <QCryptographicHash>
#include <QDirIterator>
#include <QFileInfo>
#include <algorithm>

#include "simulator/rehearsal/FileContent.h"

namespace {

const char successMessage[] = "green\tUpdate complete";
const char failureColour[] = "red\t";
const char hostPrefix[] = "/run/host/";
const char erasedByte = '\xFF';

// Folders of the root file system that hold no installed files.
const char *const passingFolders[] = {"dev", "proc", "run", "tmp", "root", "mnt/update", "mnt/data"};

QByteArray digest(const QByteArray &content)
{
    return QCryptographicHash::hash(content, QCryptographicHash::Sha256);
}

bool isInPassingFolder(const QString &path)
{
    return std::any_of(std::begin(passingFolders), std::end(passingFolders), [&path](const char *folder) {
        return path == QLatin1String(folder) || path.startsWith(QLatin1String(folder) + QLatin1Char('/'));
    });
}

bool isErased(const QByteArray &content)
{
    return std::all_of(content.begin(), content.end(), [](char byte) { return byte == erasedByte; });
}

// Whether a message is the first of a command line, and neither its progress nor its failure.
bool beginsLine(const QString &text, bool red)
{
    static const QRegExp progress(QLatin1String("\\d+%|Erasing PIC:|PIC Erase Complete|Programming PIC:"));
    if (!red)
        return !progress.exactMatch(text);
    return text == QLatin1String("Failed - PIC updates not enabled") || text.startsWith(QLatin1String("Bad command")) ||
           text.startsWith(QLatin1String("Unknown command"));
}

} // namespace

Report::Report(const QString &instrument, const QString &skeleton, const UnpackedPackage &package)
    : m_Instrument(instrument), m_Skeleton(skeleton)
{
    m_Messages = linesOf(pathOf(InstrumentState::directory / "messages"));
    digestPayload(package.folder());
    readCommandLines(package.commandLines());
    readChanges();
    readBoards(package);
}

QList<Report::Section> Report::sections() const
{
    QStringList flash;
    for (const char *name : {"mtd0", "mtd1", "mmcblk0"})
        flash << describeFlash(QLatin1String(name));
    return {
        {QLatin1String("Tools that failed"), failedTools()},
        {QLatin1String("Flash"), flash},
        {QLatin1String("Files of the root file system"), changedFiles() + removedFiles()},
        {QLatin1String("Boards"), m_Boards->lines().values()},
        {QLatin1String("What the boards would not accept"), m_Boards->violations()},
        {QLatin1String("Left behind"), leftBehind()},
    };
}

QString Report::lastMessage() const
{
    return m_Messages.isEmpty() ? QString() : m_Messages.last().section(QLatin1Char('\t'), 1);
}

bool Report::isGood() const
{
    return !m_Messages.isEmpty() && m_Messages.last().startsWith(QLatin1String(successMessage)) &&
           leftBehind().isEmpty() && m_Boards->isGood();
}

bool Report::isFailureTold() const
{
    return !m_Messages.isEmpty() && m_Messages.last().startsWith(QLatin1String(failureColour));
}

void Report::digestPayload(const QDir &package)
{
    QDirIterator files(package.path(), QDir::Files, QDirIterator::Subdirectories);
    while (files.hasNext()) {
        const QByteArray content = contentOf(files.next());
        m_Payload.insert(digest(content), package.relativeFilePath(files.filePath()));
        m_PayloadSizes << content.size();
    }
    std::sort(m_PayloadSizes.begin(), m_PayloadSizes.end());
}

// A line is announced in plain text, or has a single red message of its own. The red messages behind an announcement
// are the line's failures.
void Report::readCommandLines(const QStringList &commands)
{
    const int end = endOfLineMessages();
    int next = m_Messages.indexOf(QLatin1String("plain\tExtracting update")) + 1;
    m_FirstLineMessage = next;
    for (const QString &command : commands) {
        Line line{command, false, QStringList(), QStringList(), QList<Call>()};
        for (; next < end; ++next) {
            const QString text = m_Messages.at(next).section(QLatin1Char('\t'), 1);
            const bool red = m_Messages.at(next).startsWith(QLatin1String(failureColour));
            if (line.carriedOut && beginsLine(text, red))
                break;
            line.carriedOut = true;
            if (red)
                line.messages << text;
        }
        m_Lines << line;
        m_LineEnds << next;
    }
}

/// The index of the first message behind those of the lines; 0 when the update never came to its lines.
int Report::endOfLineMessages() const
{
    const int end = m_Messages.indexOf(QLatin1String("plain\tFinalising update, please wait"));
    if (end >= 0)
        return end;
    return lastMessage().contains(QLatin1String("press F1 to return to the main screen")) ? 0 : m_Messages.size();
}

/// The index of the line that shows this message; -1 for none.
int Report::lineAtMessage(int message) const
{
    if (message < m_FirstLineMessage)
        return -1;
    for (int line = 0; line < m_LineEnds.size(); ++line) {
        if (message < m_LineEnds.at(line))
            return line;
    }
    return -1;
}

void Report::readChanges()
{
    for (const QString &record : linesOf(pathOf(InstrumentState::directory / "changes"))) {
        const QStringList fields = record.split(QLatin1Char('\t'));
        const int message = fields.at(0).toInt();
        const int line = lineAtMessage(message);
        if (fields.at(1) == QLatin1String("called")) {
            const Call call = {fields.at(3), fields.at(2).toInt()};
            if (line >= 0)
                m_Lines[line].calls << call;
            else if (message < m_FirstLineMessage)
                m_CallsBeforeLines << call;
        } else if (line >= 0) {
            m_Lines[line].changes << fields.at(2);
        }
    }
}

void Report::readBoards(const UnpackedPackage &package)
{
    m_Boards = std::make_unique<BoardReport>(QDir(pathOf(InstrumentState::directory / "boards")), package.folder(),
                                             package.commandLines());
    for (auto board = m_Boards->lines().cbegin(); board != m_Boards->lines().cend(); ++board)
        m_Lines[board.key()].changes << board.value();
}

QString Report::pathOf(const InstrumentState::Path &path) const
{
    return m_Instrument.filePath(QString::fromStdString(path.relative_path()));
}

QString Report::payloadEqualTo(const QByteArray &content) const
{
    return m_Payload.value(digest(content));
}

// A payload is followed by erased bytes, and may end in some of its own.
QString Report::describeFlash(const QString &file) const
{
    const QByteArray content = contentOf(pathOf(InstrumentState::flash / file.toStdString()));
    const QString label = file + QLatin1String(": ");
    if (isErased(content))
        return label + QLatin1String("erased, as delivered");
    for (const qint64 size : m_PayloadSizes) {
        if (size > content.size() || !isErased(content.mid(static_cast<int>(size))))
            continue;
        const QString payload = payloadEqualTo(content.left(static_cast<int>(size)));
        if (!payload.isEmpty())
            return label + QString::fromLatin1("%1 bytes, equal to %2").arg(size).arg(payload);
    }
    return label + QLatin1String("written, EQUAL TO NO FILE OF THE PACKAGE");
}

QStringList Report::changedFiles() const
{
    QStringList changes;
    QDirIterator files(m_Instrument.path(), QDir::Files | QDir::System | QDir::Hidden, QDirIterator::Subdirectories);
    while (files.hasNext()) {
        const QString fileName = files.next();
        const QString path = m_Instrument.relativeFilePath(fileName);
        if (isInPassingFolder(path) || QFileInfo(fileName).symLinkTarget().startsWith(QLatin1String(hostPrefix)) ||
            path == QLatin1String("usr/bin/ubiformat") || path == QLatin1String("mnt/ubiData/backfile"))
            continue;
        const QByteArray content = contentOf(fileName);
        const bool delivered = m_Skeleton.exists(path);
        if (delivered && contentOf(m_Skeleton.filePath(path)) == content)
            continue;
        const QString payload = payloadEqualTo(content);
        changes << QString::fromLatin1("%1 /%2, %3 bytes%4")
                       .arg(QLatin1String(delivered ? "changed" : "new"), path)
                       .arg(content.size())
                       .arg(payload.isEmpty() ? QString() : QLatin1String(", equal to ") + payload);
    }
    changes.sort();
    return changes;
}

QStringList Report::removedFiles() const
{
    QStringList removals;
    QDirIterator files(m_Skeleton.path(), QDir::Files, QDirIterator::Subdirectories);
    while (files.hasNext()) {
        const QString path = m_Skeleton.relativeFilePath(files.next());
        if (!m_Instrument.exists(path))
            removals << QLatin1String("removed /") + path;
    }
    return removals;
}

QStringList Report::leftBehind() const
{
    QStringList leftovers;
    const QStringList mounts = linesOf(pathOf(InstrumentState::mounts));
    for (const QString &mount : mounts.mid(1))
        leftovers << QLatin1String("mounted: ") + mount.section(QLatin1Char('\t'), 0, 1);
    for (const QString &module : linesOf(pathOf(InstrumentState::modules)))
        leftovers << QLatin1String("module loaded: ") + module;
    for (const QString &loop : linesOf(pathOf(InstrumentState::loops)))
        leftovers << QLatin1String("loop device attached: ") + loop;
    return leftovers;
}

// Releasing what is not there is part of every update and no news.
QStringList Report::failedTools() const
{
    QStringList failures;
    for (const QString &call : linesOf(pathOf(InstrumentState::calls))) {
        const QString commandLine = call.section(QLatin1Char('\t'), 1);
        const bool release =
            commandLine.startsWith(QLatin1String("umount ")) || commandLine.startsWith(QLatin1String("losetup -d "));
        if (!call.startsWith(QLatin1String("0\t")) && !release)
            failures
                << QString::fromLatin1("%1 (exit code %2)").arg(commandLine, call.section(QLatin1Char('\t'), 0, 0));
    }
    return failures;
}
