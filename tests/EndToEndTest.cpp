#include <QBuffer>
#include <QDeadlineTimer>
#include <QtTest>
#include <functional>

#include "simulator/tools/InstrumentState.h"
#include "tests/Instrument.h"
#include "tests/Rows.h"
#include "tests/VirtualDisplay.h"

using namespace simulator;

namespace {

// CTest's limit for the program, shared by its four rows, less what each needs to end and to report a failure.
const int rowLimitMs = 1000 * (CTEST_LIMIT / 4 - 25);

const QRect messageWindow(3, 31, 281, 165);
const QPoint betweenTheButtonsOfTheProgressScreen(3 + 120, 31 + 205);
const QPoint besideTheWindow(310, 10);

int countPixels(const QImage &picture, const QColor &colour)
{
    int count = 0;
    for (int y = messageWindow.top(); y <= messageWindow.bottom(); ++y) {
        for (int x = messageWindow.left(); x <= messageWindow.right(); ++x)
            count += picture.pixel(x, y) == colour.rgb() ? 1 : 0;
    }
    return count;
}

bool isMainScreen(const QImage &picture)
{
    return picture.pixelColor(betweenTheButtonsOfTheProgressScreen) == QColor(Qt::white) &&
           picture.pixelColor(besideTheWindow) == QColor(Qt::black) && countPixels(picture, "black") > 0;
}

// Only this screen shows the grey of a window.
bool isProgressScreen(const QImage &picture)
{
    const QColor colour = picture.pixelColor(betweenTheButtonsOfTheProgressScreen);
    return colour != QColor(Qt::white) && colour != QColor(Qt::black);
}

bool showsSuccess(const QImage &picture)
{
    return countPixels(picture, "green") > 0;
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
    void init();
    void cleanup();
    void keysExecuteAnUpdate_data();
    void keysExecuteAnUpdate();

private:
    bool waitFor(const std::function<bool()> &condition) const;
    bool waitForPicture(const std::function<bool(const QImage &)> &condition) const;
    void startProgram();
    bool waitForMainScreen() const;

    QDeadlineTimer m_Limit;
    QScopedPointer<VirtualDisplay> m_Display;
};

void EndToEndTest::init()
{
    m_Limit = QDeadlineTimer(rowLimitMs);
    m_Display.reset(new VirtualDisplay);
    QVERIFY(waitFor([this] { return m_Display->isRunning(); }));
}

void EndToEndTest::cleanup()
{
    if (QTest::currentTestFailed() && m_Display->isRunning()) {
        QBuffer file;
        m_Display->picture().save(&file, "PNG");
        qWarning().noquote() << "The keyboard was with:" << m_Display->focusedWindow()
                             << "\nThe picture, an address for a browser: data:image/png;base64," +
                                    file.data().toBase64();
    }
    m_Display.reset();
}

bool EndToEndTest::waitFor(const std::function<bool()> &condition) const
{
    return QTest::qWaitFor(condition, static_cast<int>(m_Limit.remainingTime()));
}

bool EndToEndTest::waitForPicture(const std::function<bool(const QImage &)> &condition) const
{
    return waitFor([&] { return condition(m_Display->picture()); });
}

void EndToEndTest::startProgram()
{
    QStringList command = qEnvironmentVariable("UPDATER_COMMAND", UPDATER_COMMAND).simplified().split(' ');
    m_Display->startProgram(command.takeFirst(), command << "Quorvin");
}

/// A key reaches the main screen once its window has the keyboard.
bool EndToEndTest::waitForMainScreen() const
{
    return waitForPicture(isMainScreen) && waitFor([this] {
               return m_Display->focusedWindow().endsWith("Position: 3,31 (screen: 0) Geometry: 281x208");
           });
}

void EndToEndTest::keysExecuteAnUpdate_data()
{
    QTest::addColumn<QString>("device");
    QTest::addColumn<QStringList>("keys");
    QTest::addColumn<bool>("windowManager");
    addRow("PC", "backfile", QStringList{"F1", "F1", "F1"}, false);
    addRow("memory stick", "sda1", QStringList{"F2", "F1"}, false);
    addRow("SD card", "mmcblk0p4", QStringList{"F3", "F1"}, false);
    addRow("SD card under a window manager", "mmcblk0p4", QStringList{"F3", "F1"}, true);
}

void EndToEndTest::keysExecuteAnUpdate()
{
    QFETCH(QString, device);
    QFETCH(QStringList, keys);
    QFETCH(bool, windowManager);
    const Instrument instrument;
    const QByteArray kernel = QByteArray("kernel from ") + QTest::currentDataTag();
    instrument.insertPackage(
        device, "SYSTEM:SDCARD\nSYSTEM:NAND\nKERNEL:/uImage\nSCRIPT:/block.sh\n",
        {{"uImage", kernel},
         {"block.sh", "#!/bin/sh\ntouch /tmp/blocking\nwhile [ -e /tmp/blocking ]; do sleep 0.02; done\n"}});
    if (windowManager) {
        m_Display->startWindowManager();
        QVERIFY(waitFor([this] { return m_Display->isManaged(); }));
    }
    startProgram();
    QVERIFY(waitForMainScreen());
    QVERIFY(m_Display->typeKey(keys.takeFirst()));
    QVERIFY(waitForPicture(isProgressScreen));
    const int inkOfThePrompt = countPixels(m_Display->picture(), "black");
    QVERIFY(inkOfThePrompt > 0);
    QVERIFY(m_Display->typeKey(keys.takeFirst()));
    for (const QString &key : qAsConst(keys)) { // of the PC only
        QVERIFY(waitFor(isStorageExported));
        QVERIFY(m_Display->typeKey(key));
    }

    // The lines are on the display before the step that they announce is over.
    QVERIFY(waitFor([] { return QFile::exists("/tmp/blocking"); }));
    QVERIFY(waitForPicture(
        [inkOfThePrompt](const QImage &picture) { return countPixels(picture, "black") > 2 * inkOfThePrompt; }));
    QVERIFY(QFile::remove("/tmp/blocking"));
    QVERIFY(waitForPicture(showsSuccess));
    QCOMPARE(countPixels(m_Display->picture(), "red"), 0);
    QVERIFY(instrument.contentOf("/dev/mtd0").startsWith(kernel + '\xFF'));
    QVERIFY(m_Display->typeKey("F1"));
    QVERIFY(waitForMainScreen());
    QCOMPARE(instrument.contentOf("/mnt/data/settings/Vantrel/Updater.conf"),
             QByteArray("[General]\nProductName=Quorvin\n"));
}

QTEST_GUILESS_MAIN(EndToEndTest)

#include "EndToEndTest.moc"
