// A 64 KiB image to an ESA board at 115200 baud, as a ratio to what the line allows when every block waits for its
// reply. Runs in the sandbox.

#include <QApplication>
#include <QElapsedTimer>
#include <QSettings>
#include <QTextStream>
#include <QVector>
#include <algorithm>

#include "benchmarks/BenchmarkUpdate.h"
#include "screens/UpdaterProgressScreen.h"
#include "simulator/models/esa/EsaBoards.h"

using namespace simulator;

namespace {

const int imageSize = 64 * 1024;
const double lineLimit = 128 * 11520.0 / 134; // bytes a second: 133 bytes and one reply for each 128
const double ratioGoal = 0.98;
const double turnaroundGoalMs = 0.2;

/// Takes the times at which the program sends its packets and the board gets them.
class TransferMeter : public QObject
{
    Q_OBJECT

public:
    TransferMeter(UpdaterProgressScreen *screen, EsaBoards *boards)
    {
        m_Clock.start();
        connect(screen, SIGNAL(ESAUpdateSendNextPacket()), this, SLOT(packetSent()));
        boards->onMoment = [this, boards](const QString &) {
            m_End = m_Clock.nsecsElapsed();
            m_ReplyArrival = m_End + boards->byteNanoseconds;
        };
    }

    double seconds() const { return static_cast<double>(m_End - m_Begin) / 1e9; }

    double turnaroundMs(int percent)
    {
        std::sort(m_Turnarounds.begin(), m_Turnarounds.end());
        return static_cast<double>(m_Turnarounds.at((m_Turnarounds.size() - 1) * percent / 100)) / 1e6;
    }

protected slots:
    void packetSent()
    {
        const qint64 now = m_Clock.nsecsElapsed();
        if (m_Begin == 0)
            m_Begin = now;
        else
            m_Turnarounds << now - m_ReplyArrival;
    }

private:
    QElapsedTimer m_Clock;
    qint64 m_Begin = 0;
    qint64 m_End = 0;
    qint64 m_ReplyArrival = 0;
    QVector<qint64> m_Turnarounds; ///< from a reply's arrival to the end of the write of what follows
};

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
    QApplication::setOrganizationName(QLatin1String("Vantrel"));
    QApplication::setApplicationName(QLatin1String("Updater"));
    QSettings().setValue(QLatin1String("AvrEnable"), true);
    QTextStream out(stdout);

    EsaBoards boards(nullptr);
    putPackageOnCard("ESA_M_APP:/payload\n", image());
    UpdaterProgressScreen screen(nullptr, Qt::FramelessWindowHint);
    TransferMeter meter(&screen, &boards);
    secondsOfUpdateFromCard(&screen);
    if (boards.measurementBoard().application() != image() || !boards.violations().isEmpty()) {
        out << "the board did not get the image: " << boards.violations().join(QLatin1String("; ")) << '\n';
        return 1;
    }
    out << "figure esa.turnaround_p99_ms " << meter.turnaroundMs(99) << " -\n";
    out << "figure esa.turnaround_median_ms " << meter.turnaroundMs(50) << ' ' << turnaroundGoalMs << '\n';
    out << "figure esa.ratio_to_limit " << imageSize / meter.seconds() / lineLimit << ' ' << ratioGoal << '\n';
    return 0;
}

#include "esa_benchmark.moc"
