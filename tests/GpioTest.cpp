#include <QDir>
#include <QFile>
#include <QtTest>

#include "gpio/GpioPinController.h"
#include "tests/DebugLines.h"
#include "tests/Instrument.h"

namespace {

const char gpio[] = "/sys/class/gpio";
const QString exportFile = "/sys/class/gpio/export";
const QString unexportFile = "/sys/class/gpio/unexport";
const QString direction = "/sys/class/gpio/gpio117/direction";
const QString value = "/sys/class/gpio/gpio117/value";

/// The files that the kernel shows for an exported line at level 0.
void exportLine()
{
    Instrument::write(direction, "");
    Instrument::write(value, "0\n");
}

long openDescriptors()
{
    return QDir("/proc/self/fd").entryList(QDir::NoDotAndDotDot | QDir::System | QDir::AllEntries).size();
}

} // namespace

/// A GPIO line on a private /sys/class/gpio. Its files are plain ones: what is written to one stays there, behind what
/// was read or written before.
class GpioTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void lineThatWasExportedBeforeWorksAtOnce();
    void lineIsReachedAfterItsExport();
    void exportAgainLeavesTheFilesOfTheFirst();
    void levelIsReadFromTheStartEachTime();
    void toggleChangesNothingButZeroAndOne();
    void lineThatIsNotThereRefusesEverything();
    void removalNeedsOnlyItsOwnFile();
    void descriptorsAreClosed();
};

void GpioTest::init()
{
    QDir(gpio).removeRecursively();
    QVERIFY(QDir().mkpath(gpio));
    Instrument::write(exportFile, "");
    Instrument::write(unexportFile, "");
}

void GpioTest::lineThatWasExportedBeforeWorksAtOnce()
{
    exportLine();
    GpioPinController pin("117", nullptr);
    QVERIFY(pin.setDirection("out"));
    QCOMPARE(Instrument::contentOf(direction), QByteArray("out"));
    QCOMPARE(pin.getValue(), QString("0"));
    pin.toggleValue();
    QCOMPARE(Instrument::contentOf(value), QByteArray("01"));
    QCOMPARE(Instrument::contentOf(exportFile), QByteArray());
}

void GpioTest::lineIsReachedAfterItsExport()
{
    GpioPinController pin("117", nullptr);
    QVERIFY(!pin.setDirection("out"));
    exportLine();
    QVERIFY(!pin.setDirection("out"));
    QVERIFY(pin.createDriver());
    QCOMPARE(Instrument::contentOf(exportFile), QByteArray("117"));
    QVERIFY(pin.setDirection("in"));
    QCOMPARE(Instrument::contentOf(direction), QByteArray("in"));
    QVERIFY(pin.setValue("1"));
    QCOMPARE(pin.getValue(), QString("1"));
}

void GpioTest::exportAgainLeavesTheFilesOfTheFirst()
{
    exportLine();
    GpioPinController pin("117", nullptr);
    QVERIFY(pin.removeDriver());
    QCOMPARE(Instrument::contentOf(unexportFile), QByteArray("117"));
    QVERIFY(QDir(QString(gpio) + "/gpio117").removeRecursively());
    exportLine();
    Instrument::write(value, "1\n");
    QCOMPARE(pin.getValue(), QString("0")); // of the file that is gone
    QVERIFY(pin.createDriver());
    QCOMPARE(pin.getValue(), QString("1"));
}

void GpioTest::levelIsReadFromTheStartEachTime()
{
    exportLine();
    GpioPinController pin("117", nullptr);
    for (const char *level : {"1\n", "0\n", "1\n"}) {
        Instrument::write(value, level);
        QCOMPARE(pin.getValue(), QString(QLatin1Char(level[0])));
        QCOMPARE(pin.getValue(), QString(QLatin1Char(level[0])));
    }
}

void GpioTest::toggleChangesNothingButZeroAndOne()
{
    // The level is read, which leaves the file behind its first byte, where the new one goes.
    const QList<QPair<QByteArray, QByteArray>> filesBeforeAndAfter = {
        {"0\n", "01"}, {"1\n", "10"}, {"2\n", "2\n"}, {"x\n", "x\n"}, {" \n", " \n"}, {"-1", "-1"}, {"", ""}};
    exportLine();
    GpioPinController pin("117", nullptr);
    for (const QPair<QByteArray, QByteArray> &files : filesBeforeAndAfter) {
        Instrument::write(value, files.first);
        DebugLines debug;
        pin.toggleValue();
        QCOMPARE(Instrument::contentOf(value), files.second);
        QCOMPARE(debug.take(), files.first.isEmpty() ? QStringList("getValue failed") : QStringList());
    }
}

void GpioTest::lineThatIsNotThereRefusesEverything()
{
    QVERIFY(QFile::remove(exportFile));
    GpioPinController pin("117", nullptr);
    QVERIFY(!pin.createDriver());
    QVERIFY(!pin.setDirection("out"));
    QVERIFY(!pin.setValue("1"));
    DebugLines debug;
    QCOMPARE(pin.getValue(), QString("-1"));
    pin.toggleValue();
    QCOMPARE(debug.take(), QStringList() << "getValue failed"
                                         << "getValue failed");
}

void GpioTest::removalNeedsOnlyItsOwnFile()
{
    QVERIFY(QFile::remove(exportFile));
    GpioPinController pin("117", nullptr);
    QVERIFY(pin.removeDriver());
    QCOMPARE(Instrument::contentOf(unexportFile), QByteArray("117"));
    QVERIFY(QFile::remove(unexportFile));
    QVERIFY(!pin.removeDriver());
}

void GpioTest::descriptorsAreClosed()
{
    exportLine();
    const long before = openDescriptors();
    {
        GpioPinController pin("117", nullptr);
        QCOMPARE(openDescriptors(), before + 3);
        QVERIFY(pin.createDriver());
        QVERIFY(pin.removeDriver());
        QCOMPARE(openDescriptors(), before + 3);
    }
    QCOMPARE(openDescriptors(), before);
}

QTEST_GUILESS_MAIN(GpioTest)

#include "GpioTest.moc"
