// Two ports joined by a paced line, for programs other than ours. Prints the seconds from the first packet to the
// answer to the end of the transfer, as the paced board does.

#include <QTextStream>
#include <thread>

#include "benchmarks/PacedLine.h"

namespace {

const int packetSize = 133;
const char endOfTransmission = 0x04;

} // namespace

int main(int argc, char **argv)
{
    if (argc != 3)
        return 2;
    PacedLine sender(argv[1]);
    PacedLine receiver(argv[2]);
    std::thread([&sender, &receiver] {
        for (;;)
            sender.deliver(receiver.receive());
    }).detach();
    qint64 begin = 0;
    for (;;) {
        const QByteArray bytes = sender.receive();
        if (begin == 0 && bytes.size() >= packetSize)
            begin = sender.lastBegin();
        receiver.deliver(bytes);
        if (begin != 0 && bytes == QByteArray(1, endOfTransmission))
            break;
    }
    QTextStream(stdout) << static_cast<double>(PacedLine::now() - begin) / 1e9 << '\n' << Qt::flush;
    std::this_thread::sleep_for(std::chrono::seconds(1)); // until both programs have ended
    std::_Exit(0);
}
