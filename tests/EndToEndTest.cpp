#include <QProcess>
#include <QtTest>

#include "simulator/tools/InstrumentState.h"
#include "tests/Instrument.h"
#include "tests/VirtualDisplay.h"

using namespace simulator;

namespace {

const int patienceMs = 60000; // of a busy machine, or an emulated processor
const QRect messageWindow(3, 31, 281, 165);
const QPoint belowTheButtonsOfTheMainScreen(3 + 120, 31 + 205);

/// The program that ships, running on a display.
class Program
{
public:
    explicit Program(const VirtualDisplay &display)
    {
        m_Process.setProcessChannelMode(QProcess::ForwardedChannels);
        m_Process.setProcessEnvironment(display.environment());
        QStringList command = qEnvironmentVariable("UPDATER_COMMAND", UPDATER_COMMAND).simplified().split(' ');
        m_Process.start(command.takeFirst(), command << "Quorvin");
    }
    ~Program()
    {
        m_Process.terminate();
        m_Process.waitForFinished();
    }

private:
    QProcess m_Process;
};

int countPixels(const VirtualDisplay &display, const QColor &colour)
{
    const QImage picture = display.picture().copy(messageWindow);
    int count = 0;
    for (int y = 0; y < picture.height(); ++y) {
        for (int x = 0; x < picture.width(); ++x)
            count += picture.pixelColor(x, y) == colour ? 1 : 0;
    }
    return count;
}

bool isMainScreenShown(const VirtualDisplay &display)
{
    return display.picture().pixelColor(belowTheButtonsOfTheMainScreen) == QColor(Qt::white);
}

bool isStorageExported()
{
    return InstrumentState::read(InstrumentState::modules).size() == 2;
}

} // namespace

/// The program that ships, keys from a keyboard, and what the display shows.
class EndToEndTest : public QObject
{
    Q_OBJECT

private slots:
    void keysCarryOutAnUpdate_data();
    void keysCarryOutAnUpdate();
    void linesAreOnTheDisplayBeforeTheirStepBlocks();
};

void EndToEndTest::keysCarryOutAnUpdate_data()
{
    QTest::addColumn<QString>("sourceKey");
    QTest::addColumn<QString>("device");
    QTest::addColumn<bool>("windowManager");
    QTest::newRow("PC") << "F1"
                        << "backfile" << false;
    QTest::newRow("memory stick") << "F2"
                                  << "sda1" << false;
    QTest::newRow("SD card") << "F3"
                             << "mmcblk0p4" << false;
    QTest::newRow("SD card under a window manager") << "F3"
                                                    << "mmcblk0p4" << true;
}

void EndToEndTest::keysCarryOutAnUpdate()
{
    QFETCH(QString, sourceKey);
    QFETCH(QString, device);
    QFETCH(bool, windowManager);

    Instrument instrument;
    instrument.makePackage(instrument.insertMedium(device) + "/firmware_update.tar.bz2", "KERNEL:/uImage\n",
                           {{"uImage", "kernel by " + sourceKey.toLatin1()}});
    VirtualDisplay display;
    QVERIFY(display.isRunning());
    QProcess manager;
    if (windowManager) {
        manager.setProcessEnvironment(display.environment());
        manager.start("openbox", QStringList("--sm-disable"));
        QVERIFY(manager.waitForStarted());
    }
    {
        const Program program(display);
        QTRY_VERIFY_WITH_TIMEOUT(isMainScreenShown(display), patienceMs);
        QVERIFY2(display.picture().pixelColor(310, 10) == QColor(Qt::black), "the rest of the display is black");

        QTRY_COMPARE_WITH_TIMEOUT(display.focusedWindow(), QString("Updater"), patienceMs);
        QVERIFY(display.typeKey(sourceKey));
        QTRY_VERIFY_WITH_TIMEOUT(!isMainScreenShown(display), patienceMs);
        QVERIFY(display.typeKey("F1"));
        if (sourceKey == "F1") {
            QTRY_VERIFY_WITH_TIMEOUT(isStorageExported(), patienceMs);
            QVERIFY(display.typeKey("F1"));
        }
        QTRY_VERIFY_WITH_TIMEOUT(countPixels(display, QColor("green")) > 0, patienceMs);
        QCOMPARE(countPixels(display, QColor("red")), 0);
        QVERIFY(instrument.contentOf("/dev/mtd0").startsWith("kernel by " + sourceKey.toLatin1() + '\xFF'));
        QVERIFY(display.typeKey("F1"));
        QTRY_VERIFY_WITH_TIMEOUT(isMainScreenShown(display), patienceMs);
    }
    manager.terminate();
    manager.waitForFinished();
    QCOMPARE(instrument.contentOf("/mnt/data/settings/Vantrel/Updater.conf"),
             QByteArray("[General]\nProductName=Quorvin\n"));
}

void EndToEndTest::linesAreOnTheDisplayBeforeTheirStepBlocks()
{
    Instrument instrument;
    instrument.makePackage(
        instrument.insertMedium("mmcblk0p4") + "/firmware_update.tar.bz2",
        "SYSTEM:NAND\nSYSTEM:SDCARD\nSCRIPT:/block.sh\n",
        {{"block.sh", "#!/bin/sh\ntouch /tmp/blocking\nwhile [ ! -e /tmp/go-on ]; do sleep 0.02; done\n"}});
    VirtualDisplay display;
    QVERIFY(display.isRunning());
    const Program program(display);
    QTRY_COMPARE_WITH_TIMEOUT(display.focusedWindow(), QString("Updater"), patienceMs);
    QVERIFY(display.typeKey("F3"));
    QTRY_VERIFY_WITH_TIMEOUT(!isMainScreenShown(display), patienceMs);
    const int inkOfThePrompt = countPixels(display, Qt::black);
    QVERIFY(inkOfThePrompt > 0);
    QVERIFY(display.typeKey("F1"));
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists("/tmp/blocking"), patienceMs);
    const int inkOfTheLines = countPixels(display, Qt::black) - inkOfThePrompt;
    instrument.write("/tmp/go-on", "");
    QVERIFY2(inkOfTheLines > inkOfThePrompt, "five lines of their own");
    QTRY_VERIFY_WITH_TIMEOUT(countPixels(display, QColor("green")) > 0, patienceMs);
}

QTEST_GUILESS_MAIN(EndToEndTest)

#include "EndToEndTest.moc"
