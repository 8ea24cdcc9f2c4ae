// A 64 KiB image to an ESA board at 115200 baud, as a ratio to what the line allows when every block waits for its
// reply. Runs in the sandbox.

#include <QApplication>
#include <QElapsedTimer>
#include <QSettings>
#include <QTextStream>
#include <QVector>
#include <algorithm>

#include "benchmarks/CardUpdate.h"
#include "screens/UpdaterProgressScreen.h"
#include "simulator/models/esa/EsaBoards.h"

namespace {

const int imageSize = 64 * 1024;
const double lineLimit = 128 * 11520.0 / 134; // bytes a second: 133 bytes and one reply for each 128
const double ratioGoal = 0.98;
const double turnaroundGoalMs = 0.2;

QByteArray image()
{
    QByteArray bytes;
    for (int index = 0; index < imageSize; ++index)
        bytes.append(static_cast<char>(index * 31 + index / 256));
    return bytes;
}

} // namespace

int main(int argc, char **argv)
{
    const QApplication application(argc, argv);
    QApplication::setOrganizationName("Vantrel");
    QApplication::setApplicationName("Updater");
    QSettings().setValue("AvrEnable", true);

    simulator::EsaBoards boards(nullptr);
    UpdaterProgressScreen screen(nullptr, Qt::FramelessWindowHint);
    QElapsedTimer clock;
    clock.start();
    qint64 begin = 0;
    qint64 end = 0;
    QVector<qint64> turnarounds; // from a reply's arrival to the end of the write of what follows
    boards.onMoment = [&](const QString &) {
        end = clock.nsecsElapsed();
    };
    QObject::connect(&screen, &UpdaterProgressScreen::ESAUpdateSendNextPacket, &screen, [&] {
        const qint64 now = clock.nsecsElapsed();
        if (begin == 0)
            begin = now;
        else
            turnarounds << now - end - boards.byteNanoseconds;
    });
    secondsOfUpdate(&screen, "ESA_M_APP:/payload\n", image());

    QTextStream out(stdout);
    if (boards.measurementBoard().application() != image() || !boards.violations().isEmpty()) {
        out << "the board did not get the image: " << boards.violations().join("; ") << '\n';
        return 1;
    }
    std::sort(turnarounds.begin(), turnarounds.end());
    const auto turnaroundMs = [&](int percent) {
        return static_cast<double>(turnarounds.at((turnarounds.size() - 1) * percent / 100)) / 1e6;
    };
    out << "figure esa.turnaround_p99_ms " << turnaroundMs(99) << " -\n";
    out << "figure esa.turnaround_median_ms " << turnaroundMs(50) << ' ' << turnaroundGoalMs << '\n';
    out << "figure esa.ratio_to_limit " << imageSize * 1e9 / static_cast<double>(end - begin) / lineLimit << ' '
        << ratioGoal << '\n';
    return 0;
}
