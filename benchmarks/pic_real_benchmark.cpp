#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTextStream>

#include "benchmarks/PicUpdate.h"
#include "pic/PicDelay.h"
#include "pic/PicPins.h"

namespace {

const int bytesRead = 0x10000;
const int clocksPerByte = 20;

/// Plain memory in place of the registers, on which every PIC reads as erased.
bool makeMemory()
{
    QFile memory("/dev/mem");
    return memory.open(QIODevice::WriteOnly) && memory.resize(pinControlBlock + 0x1000LL) &&
           memory.seek(pinControlBlock + static_cast<qint64>(pgdInputRegister)) &&
           memory.write("\x00\x80\x00\x00", 4) == 4;
}

} // namespace

// The update in real time, against the sum of its delays in nanoseconds that is the argument. To be run in the sandbox.
int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    const double floor = QCoreApplication::arguments().value(1).toDouble();
    QTextStream out(stdout);
    if (floor <= 0 || !makeMemory())
        return 2;
    QElapsedTimer timer;
    holdPicsInReset();
    PicProgrammer programmer(1, nullptr);
    timer.start();
    const bool good = updatePic(&programmer);
    const double update = static_cast<double>(timer.nsecsElapsed());
    timer.restart();
    for (int byte = 0; byte < bytesRead; ++byte) // as the blank check does
        programmer.u8ReadNextAddress();
    const double bit = static_cast<double>(timer.nsecsElapsed()) / (bytesRead * clocksPerByte);
    out << "PIC update in real time: " << update / 1e9 << " s, the delays alone " << floor / 1e9 << " s\n";
    out << "figure pic.nanoseconds_per_bit " << bit << ' ' << 2 * nanosecondsOf(DELAY_CLOCK) << '\n';
    out << "figure pic.ratio_to_floor " << QString::number(update / floor, 'f', 4) << " 1.10\n";
    return good ? 0 : 1;
}
