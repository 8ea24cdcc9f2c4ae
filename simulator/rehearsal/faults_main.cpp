// Draws the faults of a rehearsal, or judges whether the operator was told of them. Exit status: 0 told, 1 not, 2 bad
// use.

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTextStream>

#include "simulator/rehearsal/FaultDraw.h"

namespace {

const int badUse = 2;

void writeFaults(const FaultDraw &draw, const QDir &folder)
{
    for (const FaultDraw::Fault &fault : draw.faults()) {
        QFile file(folder.filePath(fault.file));
        if (file.open(QIODevice::Append))
            file.write(fault.record.toLocal8Bit() + '\n');
        QTextStream(stdout) << fault.description << '\n';
    }
}

int judge(const FaultDraw &draw, const Report &disturbed)
{
    QTextStream out(stdout);
    int number = 0;
    for (const Report::Line &line : disturbed.lines()) {
        ++number;
        if (!line.carriedOut) {
            out << "not carried out: line " << number << " and those below it\n";
            break;
        }
        for (const QString &message : line.messages)
            out << "told at line " << number << ": " << message << '\n';
    }
    out << "told at the end: " << disturbed.lastMessage() << '\n';
    const QStringList untold = draw.untold(disturbed);
    for (const QString &omission : untold)
        out << "NOT TOLD: " << omission << '\n';
    return untold.isEmpty() ? 0 : 1;
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments().mid(1);
    bool isSeed = false;
    const unsigned int seed = arguments.value(1).toUInt(&isSeed);
    const QString action = arguments.value(0);
    if (arguments.size() != 6 || !isSeed || (action != QLatin1String("draw") && action != QLatin1String("judge"))) {
        QTextStream(stderr) << "usage: update-faults draw SEED INSTRUMENT SKELETON PACKAGE FOLDER\n"
                               "       update-faults judge SEED INSTRUMENT SKELETON PACKAGE DISTURBED\n"
                               "INSTRUMENT and DISTURBED are instruments after an undisturbed and a disturbed update\n";
        return badUse;
    }
    const UnpackedPackage package(arguments.at(4));
    const QString &skeleton = arguments.at(3);
    const QString &target = arguments.at(5);
    const Report undisturbed(arguments.at(2), skeleton, package);
    const FaultDraw draw(seed, undisturbed, package.folder());
    if (action == QLatin1String("judge"))
        return judge(draw, Report(target, skeleton, package));
    writeFaults(draw, QDir(target));
    return draw.faults().isEmpty() ? 1 : 0;
}
