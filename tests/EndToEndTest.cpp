#include <QBuffer>
#include <QDeadlineTimer>
#include <QtTest>

#include <algorithm>

#include "simulator/tools/InstrumentState.h"
#include "tests/Instrument.h"
#include "tests/VirtualDisplay.h"

using namespace simulator;

namespace {

// CTest's limit for the program, shared by its five functions, less what each needs to end and to report a failure.
const int functionLimitMs = 1000 * (CTEST_LIMIT / 5 - 25);

const QRect messageWindow(3, 31, 281, 165);
const QPoint betweenTheButtonsOfTheProgressScreen(3 + 120, 31 + 205);
const QPoint besideTheWindow(310, 10);

int countPixels(const QImage &picture, const QColor &colour)
{
    int count = 0;
    for (int y = messageWindow.top(); y <= messageWindow.bottom(); ++y) {
        const auto *line = reinterpret_cast<const QRgb *>(picture.constScanLine(y)) + messageWindow.left();
        count += static_cast<int>(std::count_if(line, line + messageWindow.width(), [&colour](QRgb pixel) {
            return (pixel & RGB_MASK) == (colour.rgb() & RGB_MASK);
        }));
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

const char *screenName(const QImage &picture)
{
    return isMainScreen(picture)       ? "the main screen"
           : isProgressScreen(picture) ? "the progress screen"
                                       : "neither screen";
}

bool isStorageExported()
{
    return InstrumentState::read(InstrumentState::modules).size() == 2;
}

// A line that a browser shows as a picture.
QByteArray toDataUrl(const QImage &picture)
{
    QBuffer file;
    picture.save(&file, "PNG");
    return "data:image/png;base64," + file.data().toBase64();
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
    void linesAreOnTheDisplayBeforeTheirStepBlocks();

private:
    template <typename Condition>
    bool waitFor(Condition condition) const
    {
        return QTest::qWaitFor(condition, static_cast<int>(m_Limit.remainingTime()));
    }
    template <typename Condition>
    bool waitForPicture(Condition condition) const
    {
        return waitFor([this, condition] { return condition(m_Display->picture()); });
    }
    bool waitForMainScreen() const;
    void startProgram();

    QDeadlineTimer m_Limit;
    QScopedPointer<VirtualDisplay> m_Display;
};

void EndToEndTest::init()
{
    m_Limit = QDeadlineTimer(functionLimitMs);
    m_Display.reset(new VirtualDisplay);
    QVERIFY(waitFor([this] { return m_Display->isRunning(); }));
}

void EndToEndTest::cleanup()
{
    if (QTest::currentTestFailed() && m_Display->isRunning()) {
        const QImage picture = m_Display->picture();
        qWarning().noquote() << "The display showed" << screenName(picture) << "with" << countPixels(picture, "green")
                             << "green and" << countPixels(picture, "red") << "red pixels in the message window."
                             << "\nThe keyboard was with:" << m_Display->focusedWindow()
                             << "\nThe picture, an address for a browser:" << toDataUrl(picture);
    }
    m_Display.reset();
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

void EndToEndTest::keysExecuteAnUpdate()
{
    QFETCH(QString, sourceKey);
    QFETCH(QString, device);
    QFETCH(bool, windowManager);

    Instrument instrument;
    instrument.makePackage(instrument.insertMedium(device) + "/firmware_update.tar.bz2", "KERNEL:/uImage\n",
                           {{"uImage", "kernel by " + sourceKey.toLatin1()}});
    if (windowManager) {
        m_Display->startWindowManager();
        QVERIFY(waitFor([this] { return m_Display->isManaged(); }));
    }
    startProgram();
    QVERIFY(waitForMainScreen());

    QVERIFY(m_Display->typeKey(sourceKey));
    QVERIFY(waitForPicture(isProgressScreen));
    QVERIFY(m_Display->typeKey("F1"));
    if (sourceKey == "F1") {
        QVERIFY(waitFor(isStorageExported));
        QVERIFY(m_Display->typeKey("F1"));
    }
    QVERIFY(waitForPicture(showsSuccess));
    QCOMPARE(countPixels(m_Display->picture(), "red"), 0);
    QVERIFY(instrument.contentOf("/dev/mtd0").startsWith("kernel by " + sourceKey.toLatin1() + '\xFF'));
    QVERIFY(m_Display->typeKey("F1"));
    QVERIFY(waitForMainScreen());
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
    startProgram();
    QVERIFY(waitForMainScreen());
    QVERIFY(m_Display->typeKey("F3"));
    QVERIFY(waitForPicture(isProgressScreen));
    const int inkOfThePrompt = countPixels(m_Display->picture(), "black");
    QVERIFY(inkOfThePrompt > 0);

    QVERIFY(m_Display->typeKey("F1"));
    QVERIFY(waitFor([] { return QFile::exists("/tmp/blocking"); }));
    const auto showsTheLines = [inkOfThePrompt](const QImage &picture) { // five of them, and the prompt
        return countPixels(picture, "black") > 2 * inkOfThePrompt;
    };
    QVERIFY(waitForPicture(showsTheLines));
    instrument.write("/tmp/go-on", "");
    QVERIFY(waitForPicture(showsSuccess));
}

QTEST_GUILESS_MAIN(EndToEndTest)

#include "EndToEndTest.moc"
