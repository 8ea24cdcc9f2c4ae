#include <QtTest>
#include <tuple>

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

template <size_t Size>
QByteArray bytesOf(unsigned char (&array)[Size])
{
    return QByteArray(reinterpret_cast<char *>(array), Size);
}

} // namespace

/// The programmer's memory operations on each kind of PIC, without and with faults.
class PicMemoryTest : public QObject
{
    Q_OBJECT

private slots:
    void erasePhaseReportsItsPercentages();
    void unerasedByteEndsTheErasePhase();
    void absentTargetNeverEndsAsErased();
    void readsEverything();
    void eepromIsCopiedAndRestored();
    void endlessEepromWriteIsGivenUp();
};

void PicMemoryTest::erasePhaseReportsItsPercentages()
{
    for (const int picNumber : {1, 2, 3, 4}) {
        const RowName row{QString("PIC %1").arg(picNumber)};
        PicFixture fixture(picNumber, *VirtualBoards::deliveredDevices.at(static_cast<size_t>(picNumber - 1)));
        Pic18Memory &memory = fixture.memory();
        Pic18Memory &other = fixture.boards().pic(picNumber % 4 + 1).memory();
        const QByteArray program = pattern(memory.programMemory().size());
        memory.programMemory() = program;
        other.programMemory() = program;
        memory.eeprom() = pattern(1024);
        memory.configuration()[1] = 0x02;
        QSignalSpy progress(&fixture.programmer(), SIGNAL(eraseNextBlock(int)));
        QVERIFY(fixture.eraseAll());
        QCOMPARE(progress.size(), 127);
        for (int step = 0; step < progress.size(); ++step)
            QCOMPARE(progress.at(step).at(0).toInt(), (step + 1) * 100 / 128);
        QVERIFY(!fixture.programmer().isFinished());
        QVERIFY(!fixture.target().isInProgrammingMode() && fixture.target().isOutOfReset());

        QVERIFY(memory.programMemory().bytes() == QByteArray(0x10000, '\xFF') + program.mid(0x10000));
        QVERIFY(memory.eeprom().bytes() == pattern(1024));
        QCOMPARE(static_cast<int>(memory.configuration()[1]), 0x02);
        QVERIFY(other.programMemory().bytes().startsWith(pattern(64)));
        QCOMPARE(fixture.boards().violations(), QStringList());
    }
}

void PicMemoryTest::unerasedByteEndsTheErasePhase()
{
    const std::tuple<unsigned int, int, const char *> rows[] = {
        {0x01FF, 0, "ev_pic_erase_next_block - erase error 0"},
        {0x8000, 64, "ev_pic_erase_next_block - erase error 32768"},
        {0xFFFF, 127, "ev_pic_erase_next_block - erase error 65024"}};
    for (const auto &[address, signalCount, report] : rows) {
        const RowName row{report};
        const DebugLines lines;
        PicFixture fixture;
        fixture.memory().programMemory().fill('\0');
        fixture.memory().breakErase(address, 0x10);
        QSignalSpy progress(&fixture.programmer(), SIGNAL(eraseNextBlock(int)));
        QSignalSpy failed(&fixture.programmer(), SIGNAL(eraseError()));
        QVERIFY(!fixture.eraseAll());
        QCOMPARE(progress.size(), signalCount);
        QCOMPARE(failed.size(), 1);
        QVERIFY(fixture.programmer().isFinished() && !fixture.programmer().isProgrammed());
        QCOMPARE(lines.take(), QStringList(report));
        QVERIFY(!fixture.target().isInProgrammingMode());
    }
}

void PicMemoryTest::absentTargetNeverEndsAsErased()
{
    const DebugLines lines;
    PicFixture low;
    low.target().remove(false);
    QVERIFY(!low.eraseAll());
    QVERIFY(low.programmer().isFinished() && !low.programmer().isProgrammed());
    lines.take();

    PicFixture high; // reads as erased: only the verify of a record can show it
    high.target().remove(true);
    QVERIFY(high.eraseAll());
    QVERIFY(!high.program(hexRecord(0, 0x10, "\x01\x02")));
    QCOMPARE(lines.take().value(0), QString("u32VerifyAddress: 16 u8VerifyCorrect: 1 u8VerifyActual 255"));
}

void PicMemoryTest::readsEverything()
{
    PicFixture fixture(4, Pic18Device::pic18f4685);
    fixture.memory().programMemory() = pattern(16);
    fixture.memory().eeprom() = pattern(1024).right(100);
    fixture.programmer().ev_pic_read();
    QCOMPARE(static_cast<int>(u16DeviceId), 0x2767);
    QCOMPARE(bytesOf(au8ReadPicData), fixture.memory().eeprom().bytes().left(16));
    QCOMPARE(bytesOf(au8DeviceConfig), fixture.memory().configuration().bytes());
    QVERIFY(fixture.target().isInProgrammingMode());
    QCOMPARE(static_cast<int>(fixture.programmer().u16ReadPic()), 0x2767);
    QVERIFY(!fixture.target().isInProgrammingMode());
    fixture.programmer().vEnterIspMode();
    fixture.programmer().vReadPicRecord(0);
    QCOMPARE(bytesOf(au8ReadPicData), pattern(16));
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

QTEST_GUILESS_MAIN(PicMemoryTest)
#include "PicMemoryTest.moc"
