// Prints what an update did to a virtual instrument. Exit status: 0 good, 1 failed, 2 bad use.

#include <QCoreApplication>
#include <QFileInfo>
#include <QTextStream>

#include "bench/Report.h"

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() != 3 || !QFileInfo(arguments.at(1)).isDir() || !QFileInfo(arguments.at(2)).isDir()) {
        QTextStream(stderr) << "usage: update-report INSTRUMENT SKELETON (two folders)\n";
        return 2;
    }
    const Report report(arguments.at(1), arguments.at(2));
    QTextStream out(stdout);
    report.print(out);
    return report.isGood() ? 0 : 1;
}
