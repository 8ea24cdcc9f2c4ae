#include <QtTest>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>

#include "pic/MemoryMap.h"
#include "pic/MemoryMappedPinController.h"
#include "pic/PicDelay.h"
#include "screens/UpdaterProgressScreen.h"
#include "simulator/models/PseudoTerminal.h"
#include "tests/DebugLines.h"
#include "tests/Instrument.h"

using namespace simulator;

namespace {

const char memoryDevice[] = "/dev/mem";
const qint64 block = 0x80018000LL;

quint32 readWord(qint64 address)
{
    quint32 word = 0;
    QFile memory(memoryDevice);
    if (memory.open(QIODevice::ReadOnly) && memory.seek(address))
        memory.read(reinterpret_cast<char *>(&word), sizeof word);
    return word;
}

bool isMapped(const QByteArray &path)
{
    QFile maps("/proc/self/maps");
    return maps.open(QIODevice::ReadOnly) && maps.readAll().contains(path);
}

/// Nanoseconds of so many waits.
qint64 elapsedIn(PIC_DELAY delay, int repetitions)
{
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < repetitions; ++i)
        waitFor(delay);
    return timer.nsecsElapsed();
}

} // namespace

/// The pin controller on a sparse file in place of the physical memory, and the delays on the real clock.
class PinControllerTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void changesOnlyTheBitsOfTheMask();
    void readsTrueWhenAnyPinOfTheMaskIsHigh();
    void releasesItsMappingAndDescriptor();
    void doesNothingWithoutAMapping();
    void esaBoardThatCannotBeSelectedIsSentNothing();
    void mapsWithTheProtectionAsked();
    void delaysHaveTheirDurations();
    void loopPassesCoverTheDuration();
    void longDelaysLastAtLeastAsLongAsStated();
    void shortDelaysLastAtLeastAsLongAsStated();
};

void PinControllerTest::init()
{
    QFile::remove(memoryDevice);
    QFile memory(memoryDevice);
    QVERIFY(memory.open(QIODevice::WriteOnly));
    QVERIFY(memory.resize(block + getpagesize()));
}

void PinControllerTest::changesOnlyTheBitsOfTheMask()
{
    const std::tuple<quint32, unsigned char, quint32> rows[] = {{0xA5A5A5A5, 1, 0xA5A5A5A5},
                                                                {0x00FF0000, 1, 0xA5FFA5A5},
                                                                {0x000F0000, 2, 0xA5F0A5A5},
                                                                {0x0000FFFF, 0, 0xA5F00000},
                                                                {0x00000000, 1, 0xA5F00000}};
    MemoryMappedPinController pins(0x80018000);
    for (const auto &[mask, value, word] : rows) {
        pins.setValue(0x740, mask, value);
        QCOMPARE(readWord(block + 0x740), word);
    }
    pins.setDirection(0xB40, 0x8000F400, MemoryMappedPinController::PIN_OUTPUT);
    QCOMPARE(readWord(block + 0xB40), 0x8000F400U);
    pins.setDirection(0xB40, 0x0000C000, MemoryMappedPinController::PIN_INPUT);
    QCOMPARE(readWord(block + 0xB40), 0x80003400U);
    pins.setDirection(0xB40, 0x00000002, MemoryMappedPinController::PIN_OUTPUT);
    QCOMPARE(readWord(block + 0xB40), 0x80003402U);
}

void PinControllerTest::readsTrueWhenAnyPinOfTheMaskIsHigh()
{
    MemoryMappedPinController pins(0x80018000);
    pins.setValue(0x940, 0x8000, 1);
    QVERIFY(pins.getValue(0x940, 0x8000) && pins.getValue(0x940, 0xFFFFFFFF));
    QVERIFY(!pins.getValue(0x940, 0x7FFF) && !pins.getValue(0x940, 0));
}

void PinControllerTest::releasesItsMappingAndDescriptor()
{
    const int before = Instrument::openDescriptors();
    {
        const MemoryMappedPinController pins(0x80018000);
        QVERIFY(isMapped(memoryDevice));
    }
    QVERIFY(!isMapped(memoryDevice));
    QCOMPARE(Instrument::openDescriptors(), before);
}

void PinControllerTest::doesNothingWithoutAMapping()
{
    const auto useAll = [](unsigned int base) {
        MemoryMappedPinController pins(base);
        pins.setDirection(0xB40, 0x4000, MemoryMappedPinController::PIN_OUTPUT);
        pins.setValue(0x740, 0x4000, 1);
        return pins.getValue(0x940, 0xFFFFFFFF);
    };
    const DebugLines lines;
    const int before = Instrument::openDescriptors();
    QVERIFY(!useAll(0x80018004)); // not on a page boundary
    QCOMPARE(Instrument::openDescriptors(), before);
    QVERIFY(QFile::remove(memoryDevice));
    QVERIFY(!useAll(0x80018000));
    QCOMPARE(lines.take(), QStringList({"failed to map memory map file \"/dev/mem\"",
                                        "failed to open memory map file \"/dev/mem\""}));
}

void PinControllerTest::esaBoardThatCannotBeSelectedIsSentNothing()
{
    Instrument::useItsSettings();
    QSettings().setValue("AvrEnable", true);
    Instrument::write("/tmp/firmware_update/image", "image");
    PseudoTerminal port("/dev/ttyAPP1", nullptr);
    UpdaterProgressScreen screen(nullptr, Qt::Widget);
    QVERIFY(QFile::remove(memoryDevice));
    QCOMPARE(screen.updateESA("/image", ESA_MEASUREMENT_BOARD, ESA_APPLICATION), -1);
    QCOMPARE(port.readAllSent(), QByteArray());
}

void PinControllerTest::mapsWithTheProtectionAsked()
{
    const QPair<int, QByteArray> rows[] = {{0x8, "---s"}, {0x1, "r--s"}, {0x3, "rw-s"}, {0xF3, "rw-s"}};
    for (const auto &[protection, rights] : rows) {
        const MemoryMap map(memoryDevice, getpagesize(), protection, true, static_cast<int>(0x80018000));
        QVERIFY(map.pointer());
        QCOMPARE(map.mappedLength(), getpagesize());
        QVERIFY(isMapped(rights + " 80018000"));
    }
    const MemoryMap copy(memoryDevice, getpagesize(), 3, false, 0);
    static_cast<char *>(copy.pointer())[0] = 1;
    QCOMPARE(readWord(0), 0U);
}

void PinControllerTest::delaysHaveTheirDurations()
{
    const QPair<PIC_DELAY, unsigned int> nanoseconds[] = {
        {DELAY_CLOCK, 32},   {DELAY_COMMAND, 32},  {DELAY_OPERAND, 32},    {DELAY_P9, 1000000},
        {DELAY_P10, 100000}, {DELAY_P11, 4000000}, {DELAY_ENTRY, 6000000}, {DELAY_RESET, 6000000},
        {DELAY_SETUP, 1500}, {DELAY_RELEASE, 32},  {DELAY_PULSE, 5000},
    };
    for (const auto &[delay, duration] : nanoseconds)
        QCOMPARE(nanosecondsOf(delay), duration);
}

void PinControllerTest::loopPassesCoverTheDuration()
{
    QCOMPARE(loopPasses(32, 454), 8U); // 7.3, of two cycles each
    QCOMPARE(loopPasses(32, 6000), 96U);
    QCOMPARE(loopPasses(999, 454), 227U);
    QCOMPARE(loopPasses(0, 454), 0U);
}

void PinControllerTest::longDelaysLastAtLeastAsLongAsStated()
{
    QElapsedTimer all;
    all.start();
    for (const PIC_DELAY delay : {DELAY_P9, DELAY_P10, DELAY_P11, DELAY_ENTRY, DELAY_RESET, DELAY_SETUP, DELAY_PULSE})
        QVERIFY(elapsedIn(delay, 1) >= nanosecondsOf(delay));
    QVERIFY(all.elapsed() < 3000); // of a busy machine; the delays are 18 ms
}

void PinControllerTest::shortDelaysLastAtLeastAsLongAsStated()
{
    if (qEnvironmentVariableIsSet("EMULATED_PROCESSOR"))
        QSKIP("an emulated processor has no clock frequency to rely on", SkipSingle);
    for (const PIC_DELAY delay : {DELAY_CLOCK, DELAY_COMMAND, DELAY_OPERAND, DELAY_RELEASE})
        QVERIFY(elapsedIn(delay, 10000) >= 10000LL * nanosecondsOf(delay));
}

QTEST_MAIN(PinControllerTest)
#include "PinControllerTest.moc"
