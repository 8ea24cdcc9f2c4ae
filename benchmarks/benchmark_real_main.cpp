#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTextStream>

#include "benchmarks/BenchmarkRun.h"
#include "pic/PicDelay.h"
#include "pic/PicPins.h"

namespace {

/// Plain memory in place of the registers, on which every PIC reads as erased.
bool makeMemory()
{
    const char inputs[] = {'\0', '\x80', '\0', '\0'};
    QFile memory(QLatin1String("/dev/mem"));
    return memory.open(QIODevice::WriteOnly) && memory.resize(pinControlBlock + 0x1000LL) &&
           memory.seek(pinControlBlock + static_cast<qint64>(pgdInputRegister)) &&
           memory.write(inputs, sizeof inputs) == sizeof inputs;
}

} // namespace

// The run in real time, against the sum of its delays in nanoseconds that is the argument. To be run in the sandbox.
int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    const double floor = application.arguments().value(1).toDouble();
    QTextStream out(stdout);
    if (floor <= 0 || !makeMemory())
        return 2;
    BenchmarkRun run;
    QElapsedTimer timer;
    timer.start();
    const bool good = run.updatePic();
    const double update = static_cast<double>(timer.nsecsElapsed());
    timer.restart();
    const int clocks = run.readBytes();
    const double bit = static_cast<double>(timer.nsecsElapsed()) / clocks;
    const unsigned int mandated = 2 * nanosecondsOf(DELAY_CLOCK);
    out << "PIC update in real time: " << update / 1e9 << " s, the delays alone " << floor / 1e9 << " s\n";
    out << "figure pic.nanoseconds_per_bit " << bit << ' ' << mandated << '\n';
    out << "figure pic.ratio_to_floor " << QString::number(update / floor, 'f', 4) << " 1.10\n";
    return good ? 0 : 1;
}
