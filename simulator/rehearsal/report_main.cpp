// Prints what an update did to a virtual instrument. Exit status: 0 good, 1 failed, 2 bad use.

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTextStream>

#include "simulator/rehearsal/RehearsalReport.h"
#include "simulator/tools/InstrumentState.h"

namespace {

const int badUse = 2;

bool write(const QString &fileName, const QByteArray &content)
{
    QFile file(fileName);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

/// Puts the pictures of the panel into a folder beside the report; returns their paths from there.
QStringList copyPictures(const QString &instrument, const QString &reportFile)
{
    const QDir pictures(instrument + QString::fromStdString(InstrumentState::directory / "pictures"));
    QDir folder(reportFile + QLatin1String(".pictures"));
    folder.removeRecursively();
    folder.mkpath(QLatin1String("."));
    QStringList paths;
    for (const QString &name : pictures.entryList(QDir::Files, QDir::Name)) {
        QFile::copy(pictures.filePath(name), folder.filePath(name));
        paths << folder.dirName() + QLatin1Char('/') + name;
    }
    return paths;
}

bool writeReport(const RehearsalReport &report, const QString &instrument, const QString &fileName)
{
    if (fileName.endsWith(QLatin1String(".json")))
        return write(fileName, report.json());
    return write(fileName, report.markdown(copyPictures(instrument, fileName)).toUtf8());
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(QLatin1String("Prints what an update did to a virtual instrument."));
    parser.addPositionalArgument(QLatin1String("INSTRUMENT"), QLatin1String("its folder"));
    parser.addPositionalArgument(QLatin1String("SKELETON"), QLatin1String("the folder of its delivered files"));
    parser.addPositionalArgument(QLatin1String("PACKAGE"), QLatin1String("the archive that it was updated with"));
    const QCommandLineOption reportOption(QLatin1String("report"), QLatin1String("writes the report here, too"),
                                          QLatin1String("FILE.json|FILE.md"));
    const QCommandLineOption trialOption(QLatin1String("trial"), QLatin1String("a trial that goes into the report"),
                                         QLatin1String("FILE"));
    parser.addOptions({reportOption, trialOption});
    const bool understood = parser.parse(QCoreApplication::arguments());
    const QStringList paths = parser.positionalArguments();
    if (!understood || paths.size() != 3 || !QFileInfo(paths.at(0)).isDir() || !QFileInfo(paths.at(1)).isDir() ||
        !QFileInfo(paths.at(2)).isFile()) {
        QTextStream(stderr) << parser.helpText();
        return badUse;
    }

    const UnpackedPackage package(paths.at(2));
    const Report update(paths.at(0), paths.at(1), package);
    const PackageInspection inspection(package);
    const RehearsalReport report(package.archiveName(), update, inspection, parser.values(trialOption));
    QTextStream(stdout) << report.text();
    const QString reportFile = parser.value(reportOption);
    if (!reportFile.isEmpty() && !writeReport(report, paths.at(0), reportFile)) {
        QTextStream(stderr) << "cannot write " << reportFile << '\n';
        return badUse;
    }
    return report.isGood() ? 0 : 1;
}
