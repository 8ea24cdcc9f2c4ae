#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTextStream>

#include "benchmarks/BenchmarkRun.h"
#include "simulator/models/pic/VirtualBoards.h"

using namespace simulator;

// The run on the virtual clock. Its last line is the sum of all delays of the run in nanoseconds.
int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    QTextStream out(stdout);
    QElapsedTimer timer;
    timer.start();
    BenchmarkRun run;
    const bool good = run.updatePic();
    const double wall = static_cast<double>(timer.nsecsElapsed()) / 1e9;
    const VirtualBoards &boards = VirtualBoards::installed();
    const double simulated = static_cast<double>(boards.now()) / 1e9;
    out << "PIC update on the virtual clock: " << simulated << " s simulated in " << wall << " s\n";
    for (const QString &violation : boards.violations())
        out << "violation at " << violation << '\n';
    out << boards.waited() << '\n';
    return good && boards.violations().isEmpty() ? 0 : 1;
}
