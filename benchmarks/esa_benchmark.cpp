// A 64 KiB image to an ESA board at paced 115200 baud, as a ratio to what the line allows when every block waits for
// its reply; beside it sx of lrzsz over the same line. Runs in the sandbox.

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QSettings>
#include <QTextStream>
#include <QThread>
#include <QVector>
#include <algorithm>

#include "benchmarks/BenchmarkUpdate.h"
#include "screens/UpdaterProgressScreen.h"
#include "serial/TtyHandler.h"

namespace {

const int imageSize = 64 * 1024;
const double lineLimit = 128 * 11520.0 / 134; // bytes a second: 133 bytes and one reply for each 128
const double ratioGoal = 0.98;
const double turnaroundGoalMs = 0.2;

/// Takes the time from the moment at which the program is told of a reply to the end of its write of the next packet.
class TurnaroundMeter : public QObject
{
    Q_OBJECT

public:
    explicit TurnaroundMeter(UpdaterProgressScreen *screen)
    {
        connect(screen->findChild<TtyHandler *>(), SIGNAL(readyRead()), this, SLOT(replyArrived()));
        connect(screen, SIGNAL(ESAUpdateSendNextPacket()), this, SLOT(packetSent()));
    }

    double percentileMs(int percent)
    {
        std::sort(m_Nanoseconds.begin(), m_Nanoseconds.end());
        return static_cast<double>(m_Nanoseconds.at((m_Nanoseconds.size() - 1) * percent / 100)) / 1e6;
    }

protected slots:
    void replyArrived() { m_Timer.start(); }
    void packetSent() { m_Nanoseconds << m_Timer.nsecsElapsed(); }

private:
    QElapsedTimer m_Timer;
    QVector<qint64> m_Nanoseconds;
};

QString program(const char *name)
{
    return QApplication::applicationDirPath() + QLatin1Char('/') + QLatin1String(name);
}

/// Starts a far end of the line and waits for its port.
void start(QProcess *process, const char *name, const QStringList &ports)
{
    process->start(program(name), ports);
    while (!QFile::exists(ports.last()))
        QThread::msleep(10);
}

double ratioOf(double seconds)
{
    return imageSize / seconds / lineLimit;
}

QByteArray image()
{
    QByteArray bytes;
    for (int index = 0; index < imageSize; ++index)
        bytes.append(static_cast<char>(index * 31 + index / 256));
    return bytes;
}

void startOnPort(QProcess *process, const QString &name, const QStringList &arguments, const QString &port)
{
    process->setStandardInputFile(port);
    process->setStandardOutputFile(port);
    process->start(name, arguments);
}

double secondsOfSx()
{
    const QStringList ports = QStringList() << QLatin1String("/dev/ttySender") << QLatin1String("/dev/ttyReceiver");
    QFile file(QLatin1String("/tmp/image"));
    if (file.open(QIODevice::WriteOnly))
        file.write(image());
    file.close();
    QProcess relay;
    start(&relay, "esa-paced-relay", ports);
    QProcess receiver;
    startOnPort(&receiver, QLatin1String("rx"), QStringList() << QLatin1String("-c") << QLatin1String("/tmp/received"),
                ports.last());
    QProcess sender;
    startOnPort(&sender, QLatin1String("sx"), QStringList(file.fileName()), ports.first());
    relay.waitForFinished(60000);
    receiver.waitForFinished(1000);
    QFile received(QLatin1String("/tmp/received"));
    const bool complete = received.open(QIODevice::ReadOnly) && received.readAll() == image();
    return complete ? relay.readAllStandardOutput().trimmed().toDouble() : 0;
}

} // namespace

int main(int argc, char **argv)
{
    const QApplication application(argc, argv);
    QApplication::setOrganizationName(QLatin1String("Vantrel"));
    QApplication::setApplicationName(QLatin1String("Updater"));
    QSettings().setValue(QLatin1String("AvrEnable"), true);
    QTextStream out(stdout);

    QProcess board;
    start(&board, "esa-paced-board", QStringList(QLatin1String("/dev/ttyAPP1")));
    putPackageOnCard("ESA_M_APP:/payload\n", image());
    UpdaterProgressScreen screen(nullptr, Qt::FramelessWindowHint);
    TurnaroundMeter turnaround(&screen);
    secondsOfUpdateFromCard(&screen);
    board.waitForFinished(1000);
    const QList<QByteArray> result = board.readAllStandardOutput().trimmed().split(' ');
    if (result.size() != 4 || result.at(1).toInt() != imageSize || board.exitCode() != 0) {
        out << "the board did not get the image\n";
        return 0;
    }
    const double sxSeconds = secondsOfSx();
    if (sxSeconds > 0)
        out << "figure esa.sx_ratio_to_limit " << ratioOf(sxSeconds) << " -\n";
    out << "figure esa.line_turnaround_median_ms " << result.at(2) << " -\n";
    out << "figure esa.line_turnaround_p99_ms " << result.at(3) << " -\n";
    out << "figure esa.turnaround_p99_ms " << turnaround.percentileMs(99) << " -\n";
    out << "figure esa.turnaround_median_ms " << turnaround.percentileMs(50) << ' ' << turnaroundGoalMs << '\n';
    out << "figure esa.ratio_to_limit " << ratioOf(result.at(0).toDouble()) << ' ' << ratioGoal << '\n';
    return 0;
}

#include "esa_benchmark.moc"
