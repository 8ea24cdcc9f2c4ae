#include <QDir>
#include <QFile>
#include <QtTest>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

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

QList<QByteArray> writes; ///< to files that are open for writing only, as those of a line are

} // namespace

// The C library's own, which the pin controller calls: the kernel takes a text in one write only.
extern "C" ssize_t write(int file, const void *bytes, size_t size)
{
    if ((fcntl(file, F_GETFL) & O_ACCMODE) == O_WRONLY)
        writes << QByteArray(static_cast<const char *>(bytes), static_cast<int>(size));
    return syscall(SYS_write, file, bytes, size);
}

/// A GPIO line on a private /sys/class/gpio. Its files are plain ones: what is written to one stays there, after what
/// was read or written before.
class GpioTest : public QObject
{
    Q_OBJECT

    int m_DescriptorsBefore = 0;

private slots:
    void init();
    void cleanup();
    void exportedLineWorksAtOnce();
    void lineIsReachedAfterItsExport();
    void toggleChangesNothingButZeroAndOne();
    void missingFilesFailEverything();
};

void GpioTest::init()
{
    QDir(gpio).removeRecursively();
    Instrument::write(exportFile, "");
    Instrument::write(unexportFile, "");
    m_DescriptorsBefore = Instrument::openDescriptors();
}

/// The pin controller of the test is gone, and must leave no file open.
void GpioTest::cleanup()
{
    QCOMPARE(Instrument::openDescriptors(), m_DescriptorsBefore);
}

void GpioTest::exportedLineWorksAtOnce()
{
    exportLine();
    GpioPinController pin("117", nullptr);
    writes.clear();
    QVERIFY(pin.setDirection("out"));
    QCOMPARE(writes, QList<QByteArray>({"out"}));
    QCOMPARE(Instrument::contentOf(direction), QByteArray("out"));
    for (const char *level : {"1", "0", "1"}) {
        Instrument::write(value, level);
        QCOMPARE(pin.getValue(), QString(level)); // from the start of the file each time
        QCOMPARE(pin.getValue(), QString(level));
    }
    QCOMPARE(Instrument::contentOf(exportFile), QByteArray());
}

void GpioTest::lineIsReachedAfterItsExport()
{
    GpioPinController pin("117", nullptr);
    exportLine();
    QVERIFY(!pin.setDirection("out"));
    QVERIFY(pin.createDriver());
    QCOMPARE(Instrument::contentOf(exportFile), QByteArray("117"));
    QVERIFY(pin.setDirection("in") && pin.setValue("1"));
    QCOMPARE(Instrument::contentOf(direction), QByteArray("in"));
    QCOMPARE(pin.getValue(), QString("1"));

    QVERIFY(pin.removeDriver());
    QCOMPARE(Instrument::contentOf(unexportFile), QByteArray("117"));
    QVERIFY(QDir(QString(gpio) + "/gpio117").removeRecursively());
    exportLine();
    QCOMPARE(pin.getValue(), QString("1")); // of the file that is gone
    QVERIFY(pin.createDriver());
    QCOMPARE(pin.getValue(), QString("0"));
}

void GpioTest::toggleChangesNothingButZeroAndOne()
{
    // The level is read, which leaves the position after the first byte, where the new one goes.
    const QList<QPair<QByteArray, QByteArray>> filesBeforeAndAfter = {
        {"0\n", "01"}, {"1\n", "10"}, {"2\n", "2\n"}, {"x\n", "x\n"}, {" \n", " \n"}, {"-1", "-1"}, {"", ""}};
    exportLine();
    GpioPinController pin("117", nullptr);
    DebugLines debug;
    for (const auto &[before, after] : filesBeforeAndAfter) {
        Instrument::write(value, before);
        pin.toggleValue();
        QCOMPARE(Instrument::contentOf(value), after);
        QCOMPARE(debug.take(), before.isEmpty() ? QStringList("getValue failed") : QStringList());
    }
}

void GpioTest::missingFilesFailEverything()
{
    QVERIFY(QFile::remove(exportFile));
    GpioPinController pin("117", nullptr);
    QVERIFY(pin.removeDriver());
    QVERIFY(QFile::remove(unexportFile));
    QVERIFY(!pin.removeDriver() && !pin.createDriver() && !pin.setDirection("out") && !pin.setValue("1"));
    DebugLines debug;
    QCOMPARE(pin.getValue(), QString("-1"));
    pin.toggleValue();
    QCOMPARE(debug.take(), QStringList({"getValue failed", "getValue failed"}));
}

QTEST_GUILESS_MAIN(GpioTest)

#include "GpioTest.moc"
