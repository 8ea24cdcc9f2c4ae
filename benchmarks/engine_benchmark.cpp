// What the update engine itself costs for each command line: message, repaint and process start. Every line runs a
// program that does nothing; an update without lines, which has the same waits, is taken off. And how long the program
// takes to its first picture, beside a bare window: with an argument this program shows the one or the other. Runs in
// the sandbox.

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QLabel>
#include <QProcess>
#include <QTextEdit>
#include <QTextStream>
#include <QTimer>
#include <algorithm>
#include <cstdlib>
#include <sys/resource.h>

#include "app/TarselScreenManager.h"
#include "benchmarks/BenchmarkUpdate.h"
#include "screens/UpdaterProgressScreen.h"

namespace {

const int referenceLines = 100;
const int mostLines = 10000;
const double growthGoal = 1.5;
const double startGoal = 1.3;
const int starts = 9;

double secondsOfUpdate(int lines)
{
    QFile nothing(QLatin1String("/usr/bin/true"));
    const bool opened = nothing.open(QIODevice::ReadOnly);
    putPackageOnCard(QByteArray("SCRIPT:/payload\n").repeated(lines), opened ? nothing.readAll() : QByteArray());
    UpdaterProgressScreen screen(nullptr, Qt::FramelessWindowHint);
    const double seconds = secondsOfUpdateFromCard(&screen);
    if (!screen.findChild<QTextEdit *>()->toPlainText().contains(QLatin1String("Update complete")))
        exit(1);
    return seconds;
}

/// From the start of the program until it has shown its window and ended again.
double secondsOfStart(const QString &what)
{
    QElapsedTimer timer;
    timer.start();
    if (QProcess::execute(QApplication::applicationFilePath(), {what}) != 0)
        exit(1);
    return static_cast<double>(timer.nsecsElapsed()) / 1e9;
}

/// Ends the program when a widget has painted once.
class FirstPicture : public QObject
{
protected:
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::Paint)
            QTimer::singleShot(0, qApp, SLOT(quit()));
        return false;
    }
};

int showFirstPicture(const QString &what)
{
    FirstPicture picture;
    qApp->installEventFilter(&picture);
    if (what == QLatin1String("updater")) {
        const TarselScreenManager manager(nullptr, Qt::FramelessWindowHint);
        return QApplication::exec();
    }
    QLabel window(QLatin1String("F1"), nullptr, Qt::FramelessWindowHint); // with a text, so that a font is loaded
    window.setGeometry(3, 31, 281, 208);
    window.show();
    return QApplication::exec();
}

struct Starts
{
    double bare;
    double updater;
};

/// Medians of starts in turn.
Starts measureStarts()
{
    QVector<double> bare;
    QVector<double> updater;
    for (int start = 0; start < starts; ++start) {
        bare << secondsOfStart(QLatin1String("bare"));
        updater << secondsOfStart(QLatin1String("updater"));
    }
    std::sort(bare.begin(), bare.end());
    std::sort(updater.begin(), updater.end());
    return {bare.at(starts / 2), updater.at(starts / 2)};
}

} // namespace

int main(int argc, char **argv)
{
    const QApplication application(argc, argv);
    if (argc > 1)
        return showFirstPicture(QString::fromLatin1(argv[1]));
    QTextStream out(stdout);
    const Starts start = measureStarts();
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
    out << "figure engine.start_ms " << start.updater * 1e3 << " -\n";
    out << "figure engine.start_ratio " << start.updater / start.bare << ' ' << startGoal << '\n';
    out << "figure engine.peak_memory_kib " << usage.ru_maxrss << " -\n";
    out << "figure engine.growth " << growth << ' ' << growthGoal << '\n';
    return 0;
}
