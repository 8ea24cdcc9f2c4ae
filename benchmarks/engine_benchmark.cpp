// What the update engine itself costs for each command line: message, repaint and process start. Every line runs a
// program that does nothing; an update without lines, which has the same waits, is taken off. And how long the program
// takes to its first picture, beside a bare window: the argument opens one of them once. Runs in the sandbox.

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
#include "benchmarks/CardUpdate.h"
#include "screens/UpdaterProgressScreen.h"

namespace {

const double growthGoal = 1.5;
const double startGoal = 1.3;
const int starts = 9;

double secondsOfUpdateWith(int lines)
{
    QFile nothing("/usr/bin/true");
    UpdaterProgressScreen screen(nullptr, Qt::FramelessWindowHint);
    const bool opened = nothing.open(QIODevice::ReadOnly);
    const double seconds = secondsOfUpdate(&screen, QByteArray("SCRIPT:/payload\n").repeated(lines), nothing.readAll());
    if (!opened || !screen.findChild<QTextEdit *>()->toPlainText().contains("Update complete"))
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
    if (what == "updater") {
        const TarselScreenManager manager(nullptr, Qt::FramelessWindowHint);
        return QApplication::exec();
    }
    QLabel window("F1", nullptr, Qt::FramelessWindowHint); // with a text, so that a font is loaded
    window.setGeometry(3, 31, 281, 208);
    window.show();
    return QApplication::exec();
}

double median(QVector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.at(values.size() / 2);
}

} // namespace

int main(int argc, char **argv)
{
    const QApplication application(argc, argv);
    if (argc > 1)
        return showFirstPicture(argv[1]);
    QTextStream out(stdout);
    QVector<double> bareStarts;
    QVector<double> updaterStarts;
    for (int start = 0; start < starts; ++start) {
        bareStarts << secondsOfStart("bare");
        updaterStarts << secondsOfStart("updater");
    }
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);

    const double withoutLines = secondsOfUpdateWith(0);
    QMap<int, double> perLine;
    for (const int lines : {10, 100, 1000, 10000}) {
        perLine[lines] = (secondsOfUpdateWith(lines) - withoutLines) / lines;
        out << lines << " lines: " << perLine[lines] * 1e6 << " us a line\n";
        out.flush();
    }
    out << "figure engine.start_ms " << median(updaterStarts) * 1e3 << " -\n";
    out << "figure engine.start_ratio " << median(updaterStarts) / median(bareStarts) << ' ' << startGoal << '\n';
    out << "figure engine.peak_memory_kib " << usage.ru_maxrss << " -\n";
    out << "figure engine.growth " << perLine[10000] / perLine[100] << ' ' << growthGoal << '\n';
    return 0;
}
