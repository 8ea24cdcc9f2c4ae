// An ESA board at the end of a paced line, for one transfer. Prints the seconds from the first packet to the end of the
// transfer, the image's size, and the program's turnaround in milliseconds (reply sent to next packet begun), median
// and 99th percentile.

#include <QTextStream>
#include <QVector>
#include <algorithm>

#include "benchmarks/PacedLine.h"
#include "simulator/models/esa/EsaBootLoader.h"

using namespace simulator;

int main(int argc, char **argv)
{
    if (argc != 2)
        return 2;
    PacedLine line(argv[1]);
    EsaBootLoader board(QLatin1String("ESA board"));
    QVector<qint64> turnarounds;
    qint64 begin = 0;
    while (board.application().isEmpty()) {
        const QByteArray bytes = line.receive();
        if (board.blockCount() == 0)
            begin = line.lastBegin();
        else
            turnarounds << line.lastBegin() - line.lastSent();
        QByteArray reply;
        for (const char byte : bytes)
            reply += board.receive(byte);
        if (!reply.isEmpty())
            line.send(reply);
    }
    std::sort(turnarounds.begin(), turnarounds.end());
    const auto percentile = [&turnarounds](int percent) {
        return static_cast<double>(turnarounds.at((turnarounds.size() - 1) * percent / 100)) / 1e6;
    };
    QTextStream(stdout) << static_cast<double>(line.lastSent() - begin) / 1e9 << ' ' << board.application().size()
                        << ' ' << percentile(50) << ' ' << percentile(99) << '\n';
    return board.violations().isEmpty() ? 0 : 1;
}
