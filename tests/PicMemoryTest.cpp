#include <QtTest>

#include "tests/DebugLines.h"
#include "tests/PicBench.h"

using namespace simulator;

namespace {

/// Bytes in which each differs from its neighbours and from what an erased or absent memory reads.
QByteArray pattern(int size)
{
    QByteArray bytes;
    for (int i = 0; i < size; ++i)
        bytes.append(static_cast<char>(i * 7 + i / 256 + 1));
    return bytes;
}

const Pic18Device *const devices[] = {&Pic18Device::pic18f4620, &Pic18Device::pic18f4680, &Pic18Device::pic18f4682,
                                      &Pic18Device::pic18f4685};

} // namespace

/// The programmer's memory operations on each PIC of the bench, sound and broken.
class PicMemoryTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<DebugLines> m_Lines;

private slots:
    void init() { m_Lines = std::make_unique<DebugLines>(); }
    void cleanup() { m_Lines.reset(); }
    void erasePhaseReportsItsPercentages_data();
    void erasePhaseReportsItsPercentages();
    void unerasedByteEndsTheErasePhase_data();
    void unerasedByteEndsTheErasePhase();
    void absentTargetNeverEndsAsErased();
    void rowWriteIsExact();
    void configurationIsWrittenByteByByte();
    void readsEverything();
    void eepromIsCopiedAndRestored();
    void endlessEepromWriteIsGivenUp();
    void rowEraseErases512Bytes();
};

void PicMemoryTest::erasePhaseReportsItsPercentages_data()
{
    QTest::addColumn<int>("picNumber");
    for (const int number : {1, 2, 3, 4})
        QTest::addRow("PIC %d", number) << number;
}

void PicMemoryTest::erasePhaseReportsItsPercentages()
{
    QFETCH(int, picNumber);
    PicBench bench(picNumber, *devices[picNumber - 1]);
    for (int number = 1; number <= 4; ++number) {
        bench.boards().pic(number).memory().programMemory() =
            pattern(0x18000).left(bench.memory().programMemory().size());
        bench.boards().pic(number).memory().eeprom() = pattern(1024);
    }
    QSignalSpy progress(&bench.programmer(), SIGNAL(eraseNextBlock(int)));
    bench.memory().configuration()[1] = 0x02;
    QVERIFY(bench.eraseAll());
    QCOMPARE(progress.size(), 127);
    for (int step = 0; step < progress.size(); ++step)
        QCOMPARE(progress.at(step).at(0).toInt(), (step + 1) * 100 / 128);
    QVERIFY(!bench.programmer().isFinished());
    QVERIFY(!bench.target().isInProgrammingMode() && bench.target().isOutOfReset());

    QByteArray expected = pattern(0x18000).left(bench.memory().programMemory().size());
    expected.replace(0, 0x10000, QByteArray(0x10000, '\xFF'));
    QVERIFY(bench.memory().programMemory().bytes() == expected);
    QVERIFY(bench.memory().eeprom().bytes() == pattern(1024));
    QCOMPARE(static_cast<int>(bench.memory().configuration()[1]), 0x02);
    QVERIFY(bench.boards().pic(picNumber % 4 + 1).memory().programMemory().bytes().startsWith(pattern(64)));
    QCOMPARE(bench.boards().violations(), QStringList());
}

void PicMemoryTest::unerasedByteEndsTheErasePhase_data()
{
    QTest::addColumn<int>("address");
    QTest::addColumn<int>("signalCount");
    QTest::newRow("first step") << 0x01FF << 0;
    QTest::newRow("half way") << 0x8000 << 64;
    QTest::newRow("last byte") << 0xFFFF << 127;
}

void PicMemoryTest::unerasedByteEndsTheErasePhase()
{
    QFETCH(int, address);
    QFETCH(int, signalCount);
    PicBench bench;
    bench.memory().programMemory().fill('\0');
    bench.memory().breakErase(static_cast<unsigned int>(address), 0x10);
    QSignalSpy progress(&bench.programmer(), SIGNAL(eraseNextBlock(int)));
    QSignalSpy failed(&bench.programmer(), SIGNAL(eraseError()));
    QVERIFY(!bench.eraseAll());
    QCOMPARE(progress.size(), signalCount);
    QCOMPARE(failed.size(), 1);
    QVERIFY(bench.programmer().isFinished() && !bench.programmer().isProgrammed());
    QCOMPARE(DebugLines::take(),
             QStringList(QString("ev_pic_erase_next_block - erase error %1").arg(address / 512 * 512)));
    QVERIFY(!bench.target().isInProgrammingMode());
}

void PicMemoryTest::absentTargetNeverEndsAsErased()
{
    PicBench low;
    low.target().remove(false);
    QVERIFY(!low.eraseAll());
    QVERIFY(low.programmer().isFinished() && !low.programmer().isProgrammed());

    PicBench high; // reads as erased: only the verify of a record can tell
    high.target().remove(true);
    QVERIFY(high.eraseAll());
    DebugLines::take();
    QVERIFY(!high.program(hexRecord(0, 0x10, "\x01\x02")));
    QVERIFY(DebugLines::take().at(0).startsWith("u32VerifyAddress: 16 u8VerifyCorrect: 1 u8VerifyActual 255"));
}

void PicMemoryTest::rowWriteIsExact()
{
    for (const int length : {0, 1, 2, 8, 64}) {
        PicBench bench;
        QByteArray data = pattern(64);
        bench.programmer().vProgramPicFlash(0x1240, static_cast<unsigned char>(length),
                                            reinterpret_cast<unsigned char *>(data.data()));
        QVERIFY(bench.target().isInProgrammingMode());
        QByteArray expected(0x10000, '\xFF');
        const int written = length > 1 ? length : 0;
        expected.replace(0x1240, written, data.left(written));
        QVERIFY(bench.memory().programMemory().bytes() == expected);
        QCOMPARE(bench.boards().violations(), QStringList());
    }
}

void PicMemoryTest::configurationIsWrittenByteByByte()
{
    PicBench bench;
    QByteArray expected = bench.memory().configuration().bytes();
    bench.programmer().vProgramPicConfig(0x300001, 0x48);
    bench.programmer().vProgramPicConfig(0x300006, 0x80);
    expected[1] = 0x48;
    expected[6] = '\x80';
    QVERIFY(bench.memory().configuration().bytes() == expected);
    QCOMPARE(bench.boards().violations(), QStringList());
}

void PicMemoryTest::readsEverything()
{
    PicBench bench(4, Pic18Device::pic18f4685);
    bench.memory().programMemory() = pattern(16);
    bench.memory().eeprom() = pattern(1024).right(100) + pattern(924);
    bench.programmer().ev_pic_read();
    QCOMPARE(static_cast<int>(u16DeviceId), 0x2767);
    QCOMPARE(QByteArray(reinterpret_cast<char *>(au8ReadPicData), 16), bench.memory().eeprom().bytes().left(16));
    QCOMPARE(QByteArray(reinterpret_cast<char *>(au8DeviceConfig), 16), bench.memory().configuration().bytes());
    QVERIFY(bench.target().isInProgrammingMode());
    bench.programmer().vReadPicRecord(0);
    QCOMPARE(QByteArray(reinterpret_cast<char *>(au8ReadPicData), 16), pattern(16));
    QCOMPARE(bench.boards().violations(), QStringList());
}

void PicMemoryTest::eepromIsCopiedAndRestored()
{
    PicBench bench;
    bench.memory().eeprom() = pattern(1024);
    bench.programmer().vGetEepromCopy();
    bench.memory().eeprom().fill('\0');
    bench.target().setEepromWriteTime(200000); // a quick chip, or its polls take half a minute
    QVERIFY(bench.programmer().vRestoreEeprom());
    QVERIFY(bench.memory().eeprom().bytes() == pattern(1024));
    bench.target().setEepromWriteTime(4000000);
    QVERIFY(bench.programmer().vWritePicEeprom(1023, 0x5A));
    QCOMPARE(bench.memory().eeprom().bytes().at(1023), '\x5A');
    QCOMPARE(bench.boards().violations(), QStringList());
}

void PicMemoryTest::endlessEepromWriteIsGivenUp()
{
    PicBench endless;
    endless.target().setEepromWriteTime(Q_INT64_C(3600000000000));
    const qint64 begin = endless.boards().now();
    QVERIFY(!endless.programmer().vWritePicEeprom(5, 0x55));
    QVERIFY(endless.boards().now() - begin > 12000000 + 2 * 4000000); // the entry and two full write times
    QVERIFY(!endless.programmer().vRestoreEeprom());

    PicBench absent;
    absent.target().remove(true);
    QVERIFY(!absent.programmer().vWritePicEeprom(5, 0x55));
}

void PicMemoryTest::rowEraseErases512Bytes()
{
    PicBench bench;
    bench.memory().programMemory().fill('\0');
    bench.programmer().vEraseProgramMemory(0x2000);
    QByteArray expected(0x10000, '\0');
    expected.replace(0x2000, 512, QByteArray(512, '\xFF'));
    QVERIFY(bench.memory().programMemory().bytes() == expected);
    QCOMPARE(bench.boards().violations(), QStringList());
}

QTEST_GUILESS_MAIN(PicMemoryTest)
#include "PicMemoryTest.moc"
