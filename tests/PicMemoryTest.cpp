#include <QtTest>

#include "tests/DebugLines.h"
#include "tests/PicFixture.h"
#include "tests/Rows.h"

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

/// The programmer's memory operations on each kind of PIC, sound and with faults.
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
    PicFixture fixture(picNumber, *devices[picNumber - 1]);
    for (int number = 1; number <= 4; ++number) {
        fixture.boards().pic(number).memory().programMemory() =
            pattern(0x18000).left(fixture.memory().programMemory().size());
        fixture.boards().pic(number).memory().eeprom() = pattern(1024);
    }
    QSignalSpy progress(&fixture.programmer(), SIGNAL(eraseNextBlock(int)));
    fixture.memory().configuration()[1] = 0x02;
    QVERIFY(fixture.eraseAll());
    QCOMPARE(progress.size(), 127);
    for (int step = 0; step < progress.size(); ++step)
        QCOMPARE(progress.at(step).at(0).toInt(), (step + 1) * 100 / 128);
    QVERIFY(!fixture.programmer().isFinished());
    QVERIFY(!fixture.target().isInProgrammingMode() && fixture.target().isOutOfReset());

    QByteArray expected = pattern(0x18000).left(fixture.memory().programMemory().size());
    expected.replace(0, 0x10000, QByteArray(0x10000, '\xFF'));
    QVERIFY(fixture.memory().programMemory().bytes() == expected);
    QVERIFY(fixture.memory().eeprom().bytes() == pattern(1024));
    QCOMPARE(static_cast<int>(fixture.memory().configuration()[1]), 0x02);
    QVERIFY(fixture.boards().pic(picNumber % 4 + 1).memory().programMemory().bytes().startsWith(pattern(64)));
    QCOMPARE(fixture.boards().violations(), QStringList());
}

void PicMemoryTest::unerasedByteEndsTheErasePhase_data()
{
    QTest::addColumn<int>("address");
    QTest::addColumn<int>("signalCount");
    addRow("first step", 0x01FF, 0);
    addRow("half way", 0x8000, 64);
    addRow("last byte", 0xFFFF, 127);
}

void PicMemoryTest::unerasedByteEndsTheErasePhase()
{
    QFETCH(int, address);
    QFETCH(int, signalCount);
    PicFixture fixture;
    fixture.memory().programMemory().fill('\0');
    fixture.memory().breakErase(static_cast<unsigned int>(address), 0x10);
    QSignalSpy progress(&fixture.programmer(), SIGNAL(eraseNextBlock(int)));
    QSignalSpy failed(&fixture.programmer(), SIGNAL(eraseError()));
    QVERIFY(!fixture.eraseAll());
    QCOMPARE(progress.size(), signalCount);
    QCOMPARE(failed.size(), 1);
    QVERIFY(fixture.programmer().isFinished() && !fixture.programmer().isProgrammed());
    QCOMPARE(DebugLines::take(),
             QStringList(QString("ev_pic_erase_next_block - erase error %1").arg(address / 512 * 512)));
    QVERIFY(!fixture.target().isInProgrammingMode());
}

void PicMemoryTest::absentTargetNeverEndsAsErased()
{
    PicFixture low;
    low.target().remove(false);
    QVERIFY(!low.eraseAll());
    QVERIFY(low.programmer().isFinished() && !low.programmer().isProgrammed());

    PicFixture high; // reads as erased: only the verify of a record can tell
    high.target().remove(true);
    QVERIFY(high.eraseAll());
    DebugLines::take();
    QVERIFY(!high.program(hexRecord(0, 0x10, "\x01\x02")));
    QVERIFY(DebugLines::take().at(0).startsWith("u32VerifyAddress: 16 u8VerifyCorrect: 1 u8VerifyActual 255"));
}

void PicMemoryTest::rowWriteIsExact()
{
    for (const int length : {0, 1, 2, 8, 64}) {
        PicFixture fixture;
        QByteArray data = pattern(64);
        fixture.programmer().vProgramPicFlash(0x1240, static_cast<unsigned char>(length),
                                              reinterpret_cast<unsigned char *>(data.data()));
        QVERIFY(fixture.target().isInProgrammingMode());
        QByteArray expected(0x10000, '\xFF');
        const int written = length > 1 ? length : 0;
        expected.replace(0x1240, written, data.left(written));
        QVERIFY(fixture.memory().programMemory().bytes() == expected);
        QCOMPARE(fixture.boards().violations(), QStringList());
    }
}

void PicMemoryTest::readsEverything()
{
    PicFixture fixture(4, Pic18Device::pic18f4685);
    fixture.memory().programMemory() = pattern(16);
    fixture.memory().eeprom() = pattern(1024).right(100) + pattern(924);
    fixture.programmer().ev_pic_read();
    QCOMPARE(static_cast<int>(u16DeviceId), 0x2767);
    QCOMPARE(QByteArray(reinterpret_cast<char *>(au8ReadPicData), 16), fixture.memory().eeprom().bytes().left(16));
    QCOMPARE(QByteArray(reinterpret_cast<char *>(au8DeviceConfig), 16), fixture.memory().configuration().bytes());
    QVERIFY(fixture.target().isInProgrammingMode());
    QCOMPARE(static_cast<int>(fixture.programmer().u16ReadPic()), 0x2767);
    QVERIFY(!fixture.target().isInProgrammingMode());
    fixture.programmer().vEnterIspMode();
    fixture.programmer().vReadPicRecord(0);
    QCOMPARE(QByteArray(reinterpret_cast<char *>(au8ReadPicData), 16), pattern(16));
    QCOMPARE(fixture.boards().violations(), QStringList());
}

void PicMemoryTest::eepromIsCopiedAndRestored()
{
    PicFixture fixture;
    fixture.memory().eeprom() = pattern(1024);
    fixture.programmer().vGetEepromCopy();
    fixture.memory().eeprom().fill('\0');
    fixture.target().setEepromWriteTime(200000); // a quick chip, or its polls take half a minute
    QVERIFY(fixture.programmer().vRestoreEeprom());
    QVERIFY(fixture.memory().eeprom().bytes() == pattern(1024));
    fixture.target().setEepromWriteTime(4000000);
    QVERIFY(fixture.programmer().vWritePicEeprom(1023, 0x5A));
    QCOMPARE(fixture.memory().eeprom().bytes().at(1023), '\x5A');
    QCOMPARE(fixture.boards().violations(), QStringList());
}

void PicMemoryTest::endlessEepromWriteIsGivenUp()
{
    PicFixture endless;
    endless.target().setEepromWriteTime(Q_INT64_C(3600000000000));
    const qint64 begin = endless.boards().now();
    QVERIFY(!endless.programmer().vWritePicEeprom(5, 0x55));
    QVERIFY(endless.boards().now() - begin > 12000000 + 2 * 4000000); // the entry and two full write times
    QVERIFY(!endless.programmer().vRestoreEeprom());

    PicFixture absent;
    absent.target().remove(true);
    QVERIFY(!absent.programmer().vWritePicEeprom(5, 0x55));
}

void PicMemoryTest::rowEraseErases512Bytes()
{
    PicFixture fixture;
    fixture.memory().programMemory().fill('\0');
    fixture.programmer().vEraseProgramMemory(0x2000);
    QByteArray expected(0x10000, '\0');
    expected.replace(0x2000, 512, QByteArray(512, '\xFF'));
    QVERIFY(fixture.memory().programMemory().bytes() == expected);
    QCOMPARE(fixture.boards().violations(), QStringList());
}

QTEST_GUILESS_MAIN(PicMemoryTest)
#include "PicMemoryTest.moc"
