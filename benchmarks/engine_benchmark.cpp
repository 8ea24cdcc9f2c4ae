// What the update engine itself costs for each command line: message, repaint and process start. Every line runs a
// program that does nothing; an update without lines, which has the same waits, is taken off. Runs in the sandbox.

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTextStream>
#include <sys/resource.h>

#include "benchmarks/BenchmarkUpdate.h"
#include "screens/UpdaterProgressScreen.h"
#include "simulator/tools/InstrumentState.h"

using namespace simulator;

namespace {

const int referenceLines = 100;
const int mostLines = 10000;
const double growthGoal = 1.5;

double secondsOfUpdate(int lines)
{
    QFile nothing(QLatin1String("/usr/bin/true"));
    const bool opened = nothing.open(QIODevice::ReadOnly);
    putPackageOnCard(QByteArray("SCRIPT:/payload\n").repeated(lines), opened ? nothing.readAll() : QByteArray());
    UpdaterProgressScreen screen(nullptr, Qt::FramelessWindowHint);
    return secondsOfUpdateFromCard(&screen);
}

/// From the start of the program until it has shown its screen and ended again.
double secondsOfStart(const QString &program)
{
    InstrumentState::write(InstrumentState::plan, {{"operator", "nobody", "-"}});
    QElapsedTimer timer;
    timer.start();
    QProcess::execute(program, QStringList());
    return static_cast<double>(timer.nsecsElapsed()) / 1e9;
}

} // namespace

int main(int argc, char **argv)
{
    const QApplication application(argc, argv);
    QTextStream out(stdout);
    const double start =
        secondsOfStart(QApplication::applicationDirPath() + QLatin1String("/../simulator/virtual-updater"));
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);

    const double withoutLines = secondsOfUpdate(0);
    double reference = 0;
    double growth = 0;
    for (const int lines : {10, referenceLines, 1000, mostLines}) {
        const double perLine = (secondsOfUpdate(lines) - withoutLines) / lines;
        out << lines << " lines: " << perLine * 1e6 << " us a line\n";
        out.flush();
        if (lines == referenceLines)
            reference = perLine;
        growth = perLine / reference;
    }
    out << "figure engine.start_ms " << start * 1e3 << " -\n";
    out << "figure engine.peak_memory_kib " << usage.ru_maxrss << " -\n";
    out << "figure engine.growth " << growth << ' ' << growthGoal << '\n';
    return 0;
}
