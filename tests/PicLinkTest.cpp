#include <QtTest>

#include "pic/MemoryMappedPinController.h"
#include "pic/PicProgrammer.h"
#include "tests/EventLoop.h"

// This test has pins and delays of its own: a logic analyser that writes down every change in order.

namespace {

QStringList traffic;
QString inputBits; ///< what PGD reads, in order

QString lineName(unsigned int offset, unsigned int mask)
{
    static const QHash<QPair<unsigned int, unsigned int>, QString> names = {
        {{0x740, 0x4000}, "PGC"},    {{0x740, 0x8000}, "PGD"},     {{0x700, 0x20000}, "ISP"},
        {{0x740, 0x400}, "MCLR1"},   {{0x720, 0x200000}, "MCLR2"}, {{0x720, 0x8000}, "MCLR3"},
        {{0x720, 0x20000}, "MCLR4"},
    };
    return names.value({offset, mask}, "unknown");
}

/// The levels of PGD at the falling edges of PGC.
QString sentBits()
{
    QString bits;
    QString data = "?";
    bool clock = false;
    for (const QString &event : qAsConst(traffic)) {
        if (event.startsWith("PGD="))
            data = event.mid(4);
        if (clock && event == "PGC=0")
            bits += data;
        if (event.startsWith("PGC="))
            clock = event == "PGC=1";
    }
    return bits;
}

/// 16-bit words that were sent behind the command 0000.
QList<unsigned int> sentInstructions()
{
    QList<unsigned int> words;
    const QString bits = sentBits();
    for (int position = 0; position < bits.size(); position += 20) {
        unsigned int word = bits.mid(position, 4) == "0000" ? 0 : 0xBAD0000;
        for (int bit = 0; bit < 16; ++bit)
            word |= (bits.at(position + 4 + bit) == '1' ? 1U : 0U) << bit;
        words << word;
    }
    return words;
}

QStringList waits(const QStringList &events)
{
    return events.filter("wait ");
}

} // namespace

MemoryMappedPinController::MemoryMappedPinController(unsigned int physicalBase) : m_MemoryMap(nullptr)
{
    Q_UNUSED(m_MemoryMap) // there is no memory to map
    traffic << QString::number(physicalBase, 16);
}

MemoryMappedPinController::~MemoryMappedPinController() {}

void MemoryMappedPinController::setDirection(unsigned int offset, unsigned int mask, PIN_DIRECTION direction)
{
    traffic << lineName(offset - 0x400, mask) + (direction == PIN_OUTPUT ? " out" : " in");
}

void MemoryMappedPinController::setValue(unsigned int offset, unsigned int mask, unsigned char value)
{
    traffic << lineName(offset, mask) + "=" + QString::number(value);
}

bool MemoryMappedPinController::getValue(unsigned int offset, unsigned int mask)
{
    traffic << lineName(offset - 0x200, mask) + " read";
    const bool level = inputBits.startsWith('1');
    inputBits.remove(0, 1);
    return level;
}

void waitFor(PIC_DELAY delay)
{
    traffic << QString("wait %1").arg(delay);
}

/// The order of every change on the programming lines.
class PicLinkTest : public QObject
{
    Q_OBJECT

private slots:
    void bitsAreStableAcrossTheFallingEdge();
    void bitsGoLeastSignificantFirst();
    void tablePointerIsLoadedByCoreInstructions();
    void byteIsSampledAfterTheFallingEdge();
    void programmingNopHoldsItsFourthClock();
    void entryAndRestoreDriveOnlyTheSelectedReset_data();
    void entryAndRestoreDriveOnlyTheSelectedReset();
    void resetTimerReleasesThePic();
    void deviceIdsHaveNames();
};

void PicLinkTest::bitsAreStableAcrossTheFallingEdge()
{
    PicProgrammer programmer(1, nullptr);
    traffic.clear();
    programmer.vWriteCmd(0x9);
    QStringList expected = {"PGD=0", "PGC=0"};
    for (const char *data : {"PGD=1", "PGD=0", "PGD=0", "PGD=1"}) {
        expected << data << "PGC=1"
                 << "wait 0"
                 << "PGC=0"
                 << "wait 0";
    }
    QCOMPARE(traffic, expected << "PGD=0"
                               << "PGC=0"
                               << "wait 1");
    traffic.clear();
    programmer.vWriteByte(0xFF);
    QCOMPARE(traffic.mid(0, 8),
             QStringList({"PGD=0", "PGC=0", "wait 0", "PGD=1", "PGC=1", "wait 0", "PGC=0", "wait 0"}));
    QCOMPARE(traffic.mid(3 + 8 * 5), QStringList({"PGC=0", "PGD=0", "wait 3"}));
}

void PicLinkTest::bitsGoLeastSignificantFirst()
{
    PicProgrammer programmer(1, nullptr);
    traffic.clear();
    programmer.vWriteCmd(0xFD);
    programmer.vWriteByte(0xA6);
    QCOMPARE(sentBits(), QString("1011"
                                 "01100101"));
}

void PicLinkTest::tablePointerIsLoadedByCoreInstructions()
{
    PicProgrammer programmer(1, nullptr);
    traffic.clear();
    programmer.vSetCoreAddress(0x3CA605);
    QCOMPARE(sentInstructions(), QList<unsigned int>({0x0E3C, 0x6EF8, 0x0EA6, 0x6EF7, 0x0E05, 0x6EF6}));
}

void PicLinkTest::byteIsSampledAfterTheFallingEdge()
{
    PicProgrammer programmer(1, nullptr);
    for (const auto &sample : {qMakePair(QString("10000000"), 0x01), qMakePair(QString("00000001"), 0x80),
                               qMakePair(QString("01101001"), 0x96)}) {
        inputBits = sample.first;
        traffic.clear();
        QCOMPARE(static_cast<int>(programmer.u8ReadByte()), sample.second);
        QStringList expected = {"PGC=0", "PGD in"};
        for (int bit = 0; bit < 8; ++bit) {
            expected << "PGC=1"
                     << "wait 0"
                     << "PGC=0"
                     << "wait 0"
                     << "PGD read";
        }
        QCOMPARE(traffic, expected << "PGC=0"
                                   << "PGD=0"
                                   << "PGD out");
    }
    inputBits.clear();
    traffic.clear();
    programmer.u8ReadNextAddress();
    QCOMPARE(sentBits().left(12), QString("1001"
                                          "00000000"));
}

void PicLinkTest::programmingNopHoldsItsFourthClock()
{
    PicProgrammer programmer(1, nullptr);
    traffic.clear();
    programmer.vProgramFlashCmd();
    QCOMPARE(sentBits(), QString("0000"));
    QCOMPARE(waits(traffic), QString("wait 0,").repeated(7).append("wait 4,wait 5").split(','));
    QCOMPARE(traffic.mid(traffic.indexOf("wait 4") - 1),
             QStringList({"PGC=1", "wait 4", "PGC=0", "wait 5", "PGC=0", "PGD=0"}));
}

void PicLinkTest::entryAndRestoreDriveOnlyTheSelectedReset_data()
{
    QTest::addColumn<int>("picNumber");
    for (const int number : {-1, 0, 1, 2, 3, 4, 5})
        QTest::addRow("PIC %d", number) << number;
}

void PicLinkTest::entryAndRestoreDriveOnlyTheSelectedReset()
{
    QFETCH(int, picNumber);
    const bool known = picNumber >= 1 && picNumber <= 4;
    const QString mclr = QString("MCLR%1").arg(picNumber);
    const auto mclrEvents = [&](const QStringList &events) {
        QStringList result;
        for (const QString &event : events)
            result << (known ? mclr + event : QString());
        return result;
    };
    traffic.clear();
    PicProgrammer programmer(picNumber, nullptr);
    QStringList restore = QStringList("80018000")
                          << mclrEvents({"=1"}) << "ISP=1"
                          << "PGD=0"
                          << "PGC=0"
                          << "wait 10" << mclrEvents({"=0"}) << "wait 11" << mclrEvents({"=1", " in"});
    restore.removeAll(QString());
    QCOMPARE(traffic, restore);

    traffic.clear();
    programmer.vEnterIspMode();
    QStringList entry = mclrEvents({"=1", " out", "=0"}) << "PGD=0"
                                                         << "PGC=0"
                                                         << "ISP out"
                                                         << "PGD out"
                                                         << "PGC out"
                                                         << "wait 8"
                                                         << "ISP=1"
                                                         << "wait 9" << mclrEvents({"=1"}) << "wait 7";
    entry.removeAll(QString());
    QCOMPARE(traffic, entry);
}

void PicLinkTest::resetTimerReleasesThePic()
{
    PicProgrammer programmer(2, nullptr);
    traffic.clear();
    programmer.ev_pic_reset(false);
    QCOMPARE(traffic, QStringList({"MCLR2=1", "MCLR2 out", "MCLR2=0"}));
    QElapsedTimer inReset;
    inReset.start();
    programmer.ev_pic_reset(true);
    traffic.clear();
    QVERIFY(eventually([] { return !traffic.isEmpty(); }));
    QCOMPARE(traffic.last(), QString("MCLR2 in"));
    QVERIFY(inReset.elapsed() >= 19);
}

void PicLinkTest::deviceIdsHaveNames()
{
    QCOMPARE(*PicProgrammer::pGetPicIdStr(0x0C07), QString("PIC18F4620 version 7"));
    QCOMPARE(*PicProgrammer::pGetPicIdStr(0x0E9F), QString("PIC18F4680 version 31"));
    QCOMPARE(*PicProgrammer::pGetPicIdStr(0x2740), QString("PIC18F4682 version 0"));
    QCOMPARE(*PicProgrammer::pGetPicIdStr(0x2761), QString("PIC18F4685 version 1"));
    QCOMPARE(*PicProgrammer::pGetPicIdStr(0x1234), QString("Unknown PIC: 4660"));
    QVERIFY(PicProgrammer::u8ValidPicId(0x0C1F));
    for (const quint16 id : {quint16(0x0E80), quint16(0x2740), quint16(0x2760)})
        QVERIFY(!PicProgrammer::u8ValidPicId(id));
}

QTEST_GUILESS_MAIN(PicLinkTest)
#include "PicLinkTest.moc"
