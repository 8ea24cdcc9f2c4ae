#include "simulator/rehearsal/PackageInspection.h"

#include <QDirIterator>
#include <QFileInfo>
#include <QRegExp>
#include <algorithm>

#include "pic/PicPins.h"
#include "simulator/models/pic/HexFile.h"
#include "simulator/rehearsal/FileContent.h"
#include "update/UpdateLine.h"
#include "update/UpdatePaths.h"

using namespace simulator;

namespace {

const char systemKeyword[] = "SYSTEM";
const char scriptKeyword[] = "SCRIPT";
const char imageKeyword[] = "IMAGE";
const char fileKeyword[] = "FILE";
const char kernelKeyword[] = "KERNEL";
const char picWord[] = "PIC";
const char nandType[] = "NAND";
const char sdCardType[] = "SDCARD";
const char unknownType[] = "?";
const char scriptMagic[] = "#!";
const char programMagic[] = "\177ELF";

// The tool that writes the image waits under this name in the folder to which the image is copied.
const char imageToolPath[] = "/ubiformat";

UpdateLine::Kind kindOf(const QString &keyword)
{
    return UpdateLine(keyword + QLatin1Char(':')).kind;
}

bool isBoardCommand(const QString &keyword)
{
    return kindOf(keyword) == UpdateLine::Pic || kindOf(keyword) == UpdateLine::Esa;
}

int picNumberOf(const QString &keyword)
{
    return keyword.mid(static_cast<int>(qstrlen(picWord))).toInt();
}

// One character more, less or another, or two neighbours the wrong way round.
bool isOneEditAway(const QString &left, const QString &right)
{
    const int shorter = qMin(left.size(), right.size());
    int prefix = 0;
    while (prefix < shorter && left.at(prefix) == right.at(prefix))
        ++prefix;
    int suffix = 0;
    while (suffix < shorter - prefix && left.at(left.size() - 1 - suffix) == right.at(right.size() - 1 - suffix))
        ++suffix;
    const QString leftRest = left.mid(prefix, left.size() - prefix - suffix);
    const QString rightRest = right.mid(prefix, right.size() - prefix - suffix);
    const bool swapped = leftRest.size() == 2 && rightRest.size() == 2 && leftRest.at(0) == rightRest.at(1) &&
                         leftRest.at(1) == rightRest.at(0);
    return swapped || (leftRest.size() <= 1 && rightRest.size() <= 1);
}

QStringList writableKeywords()
{
    return QString::fromLatin1(
               "SYSTEM APP KERNEL IMAGE FILE SCRIPT PIC1 PIC2 PIC3 PIC4 ESA_IO_APP ESA_M_APP ESA_IO_EEP "
               "ESA_M_EEP")
        .split(QLatin1Char(' '));
}

/// "; did you mean KERNEL?", or nothing when no keyword is near. Letter case and blanks are no distance.
QString suggestionFor(const QString &keyword)
{
    const QStringList known = writableKeywords();
    const QString meant = keyword.trimmed().toUpper();
    const auto near = std::find_if(known.begin(), known.end(),
                                   [&meant](const QString &candidate) { return isOneEditAway(meant, candidate); });
    return near == known.end() ? QString() : QString::fromLatin1("; did you mean %1?").arg(*near);
}

} // namespace

PackageInspection::PackageInspection(const UnpackedPackage &package) : m_Package(package.folder())
{
    inspectArchive(package);
    const QFileInfo commandFile(package.commandFile());
    if (!m_Package.exists()) {
        addMistake("no package folder", QLatin1String("the archive holds no folder ") + m_Package.dirName());
    } else if (!commandFile.isFile()) {
        addMistake("no command file", QLatin1String("the package holds no file ") + commandFile.fileName());
    } else {
        m_Used << commandFile.fileName();
        inspectLines(package.commandLines());
        findUnusedPayload();
    }
}

void PackageInspection::inspectArchive(const UnpackedPackage &package)
{
    const QRegExp pattern(UpdatePaths::packagePattern, Qt::CaseInsensitive, QRegExp::Wildcard);
    if (!pattern.exactMatch(package.archiveName())) {
        addMistake("archive name", QString::fromLatin1("the updater looks for %1, and passes over %2")
                                       .arg(UpdatePaths::packagePattern, package.archiveName()));
    }
    if (package.archiveName().contains(QLatin1Char(' ')))
        addMistake("archive name", QLatin1String("a blank in the name of the archive keeps it from being unpacked"));
    if (!package.error().isEmpty())
        addMistake("archive", QLatin1String("tar cannot unpack it: ") + package.error());
}

void PackageInspection::inspectLines(const QStringList &lines)
{
    for (const QString &line : lines) {
        ++m_Line;
        inspectLine(line);
    }
    m_Line = 0;
}

void PackageInspection::inspectLine(const QString &line)
{
    const QStringList pieces = line.split(QLatin1Char(':'));
    if (pieces.size() != 2) {
        return addMistake("bad line", line.isEmpty()
                                          ? QString::fromLatin1("an empty line is no command")
                                          : QString::fromLatin1("%1 colons in place of one").arg(pieces.size() - 1));
    }
    const QString &keyword = pieces.at(0);
    if (kindOf(keyword) == UpdateLine::Unknown)
        return addMistake("unknown keyword", keyword + QLatin1String(" is no keyword") + suggestionFor(keyword));
    if (keyword == QLatin1String(systemKeyword))
        return inspectSystem(pieces.at(1));
    inspectCommand(keyword, pieces.at(1));
}

void PackageInspection::inspectSystem(const QString &type)
{
    const bool known = type == QLatin1String(nandType) || type == QLatin1String(sdCardType);
    m_SystemType = known ? type : QLatin1String(unknownType);
    if (!known)
        addMistake("system type", QString::fromLatin1("'%1' is neither %2 nor %3, and the lines below write nothing")
                                      .arg(type, QLatin1String(nandType), QLatin1String(sdCardType)));
}

void PackageInspection::inspectCommand(const QString &keyword, const QString &argument)
{
    const bool boardCommand = isBoardCommand(keyword);
    const bool script = keyword == QLatin1String(scriptKeyword);
    const QString path = script ? argument.section(QLatin1Char(' '), 0, 0) : argument;
    if (!boardCommand && !script)
        inspectSystemType(keyword);
    if (keyword == QLatin1String(imageKeyword))
        inspectImage(path);
    if (!boardCommand && path.contains(QLatin1Char(' ')))
        addMistake("blank in a path", QLatin1String("the tools take ") + path + QLatin1String(" for several files"));
    else if (inspectPath(keyword, path) && script)
        inspectScript(path);
    if (keyword.contains(QLatin1String(picWord)))
        inspectPic(keyword, path);
}

void PackageInspection::inspectSystemType(const QString &keyword)
{
    if (m_SystemType.isEmpty()) {
        addRemark("no system type",
                  QLatin1String("no SYSTEM line above: the type is that of the update before, or NAND"));
        m_SystemType = QLatin1String(nandType);
    }
    const bool unknown = m_SystemType == QLatin1String(unknownType);
    if (unknown && keyword == QLatin1String(kernelKeyword))
        addMistake("system type", QLatin1String("of an unknown type nothing is written, and counts as done"));
    else if (unknown)
        addMistake("system type", QLatin1String("fails for an unknown type"));
    else if (keyword == QLatin1String(imageKeyword) && m_SystemType != QLatin1String(nandType))
        addMistake("system type", QLatin1String("an image is for NAND only"));
}

// True when the path is that of a file in the package.
bool PackageInspection::inspectPath(const QString &keyword, const QString &path)
{
    if (!path.startsWith(QLatin1Char('/'))) {
        addMistake("path", QString::fromLatin1("'%1' does not begin with /").arg(path));
        return false;
    }
    const QString inPackage = QDir::cleanPath(path).mid(1);
    const QFileInfo file(m_Package.filePath(inPackage));
    m_Used << inPackage;
    if (!file.exists())
        addMistake("missing payload", path + QLatin1String(" is not in the package"));
    else if (file.isDir() && keyword != QLatin1String(fileKeyword))
        addMistake("missing payload", path + QLatin1String(" is a folder"));
    return file.isFile();
}

// The image is copied to /tmp under its bare name and looked for there under its path.
void PackageInspection::inspectImage(const QString &path)
{
    if (path.lastIndexOf(QLatin1Char('/')) > 0) {
        addMistake("image path", QString::fromLatin1("%1 is not at the top of the package: the line erases the flash "
                                                     "and then does not find the image")
                                     .arg(path));
    }
    if (path == QLatin1String(imageToolPath))
        addMistake("image path", QLatin1String("the image takes the place of the tool that writes it"));
}

void PackageInspection::inspectScript(const QString &path)
{
    const QString fileName = m_Package.filePath(path.mid(1));
    const QByteArray text = contentOf(fileName);
    m_Scripts += text;
    if (!QFileInfo(fileName).isExecutable())
        addMistake("script", path + QLatin1String(" is not executable"));
    if (text.startsWith(scriptMagic) && text.left(text.indexOf('\n')).endsWith('\r'))
        addMistake("script", path + QLatin1String(" has CR LF line ends: its interpreter is not found"));
    else if (!text.startsWith(scriptMagic) && !text.startsWith(programMagic))
        addMistake("script", path + QLatin1String(" does not begin with #!"));
}

void PackageInspection::inspectPic(const QString &keyword, const QString &path)
{
    const int number = picNumberOf(keyword);
    if (number < 1 || number > picCount)
        addMistake("no such PIC", keyword + QLatin1String(" selects no PIC") + suggestionFor(keyword));
    const HexFile hexFile(m_Package.filePath(path.mid(1)));
    if (hexFile.badLine() > 0) {
        addMistake("damaged HEX file", QString::fromLatin1("%1 stops the PIC at its line %2: cut short, or a wrong "
                                                           "checksum")
                                           .arg(path)
                                           .arg(hexFile.badLine()));
    }
    for (const HexFile::Range &range : hexFile.passedOver())
        addRemark("HEX range passed over", path + QLatin1String(": ") + range.text());
}

void PackageInspection::findUnusedPayload()
{
    QStringList unused;
    QDirIterator files(m_Package.path(), QDir::Files | QDir::System | QDir::Hidden, QDirIterator::Subdirectories);
    while (files.hasNext()) {
        const QString path = m_Package.relativeFilePath(files.next());
        QString place = path;
        while (!place.isEmpty() && !m_Used.contains(place))
            place = place.contains(QLatin1Char('/')) ? place.section(QLatin1Char('/'), 0, -2) : QString();
        if (place.isEmpty() && !isNamedByScript(path))
            unused << path;
    }
    unused.sort();
    for (const QString &path : qAsConst(unused))
        addRemark("unused payload", QString::fromLatin1("no line and no script names /%1").arg(path));
}

// A script may name the file, or a folder of the package that holds it.
bool PackageInspection::isNamedByScript(const QString &path) const
{
    if (m_Scripts.contains(path.toLocal8Bit()))
        return true;
    const QString package(UpdatePaths::packageDirectory);
    for (int end = path.lastIndexOf(QLatin1Char('/')); end > 0; end = path.lastIndexOf(QLatin1Char('/'), end - 1)) {
        if (m_Scripts.contains((package + QLatin1Char('/') + path.left(end)).toLocal8Bit()))
            return true;
    }
    return false;
}

void PackageInspection::addMistake(const char *kind, const QString &text)
{
    m_Mistakes << Finding{m_Line, QLatin1String(kind), text};
}

void PackageInspection::addRemark(const char *kind, const QString &text)
{
    m_Remarks << Finding{m_Line, QLatin1String(kind), text};
}
