#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTextStream>

#include "benchmarks/PicUpdate.h"
#include "simulator/models/pic/VirtualBoards.h"

// The update on the virtual clock. Its last line is the sum of all its delays in nanoseconds.
int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    QTextStream out(stdout);
    QElapsedTimer timer;
    timer.start();
    holdPicsInReset();
    PicProgrammer programmer(1, nullptr);
    const bool good = updatePic(&programmer);
    const double wall = static_cast<double>(timer.nsecsElapsed()) / 1e9;
    const simulator::VirtualBoards &boards = simulator::VirtualBoards::installed();
    const double simulated = static_cast<double>(boards.now()) / 1e9;
    out << "PIC update on the virtual clock: " << simulated << " s simulated in " << wall << " s\n";
    for (const QString &violation : boards.violations())
        out << "violation at " << violation << '\n';
    out << boards.waited() << '\n';
    return good && boards.violations().isEmpty() ? 0 : 1;
}
