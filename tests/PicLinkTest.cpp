#include <QtTest>
#include <functional>
#include <utility>

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

/// What went over the lines since the last call, a 4-bit command and its 16 bits at a time. The bits of a command or
/// operand are those of PGD at the falling edges of PGC; "read" is the half of an operand that the target sends. The
/// waits stand where they came, but for those of each clock, command and operand. P9 is before the last clock of its
/// command.
QString takeSequence()
{
    static const QHash<QString, QString> waitNames = {{"wait 4", "P9"},    {"wait 5", "P10"},   {"wait 6", "P11"},
                                                      {"wait 7", "ENTRY"}, {"wait 8", "RESET"}, {"wait 9", "SETUP"}};
    QStringList words;
    QString data = "?";
    bool clock = false;
    bool targetSends = false;
    int bits = 0;
    unsigned int value = 0;
    const QStringList events = std::exchange(traffic, QStringList());
    for (const QString &event : events) {
        if (waitNames.contains(event))
            words << waitNames[event];
        else if (event == "wait 1" && bits == 0)
            words << "COMMAND";
        else if (event.startsWith("PGD="))
            data = event.mid(4);
        else if (event == "PGD in" || event == "PGD out")
            targetSends = event == "PGD in";
        if (clock && event == "PGC=0") {
            const int position = bits < 4 ? bits : bits - 4;
            value |= (data == "1" ? 1U : 0U) << position;
            ++bits;
            if (bits == 4) {
                words << QString::number(value, 16).toUpper();
                value = 0;
            } else if (bits == 20) {
                words << (targetSends ? "read" : QString("%1").arg(value, 4, 16, QChar('0')).toUpper());
                bits = 0;
                value = 0;
            }
        }
        if (event.startsWith("PGC="))
            clock = event == "PGC=1";
    }
    return words.join(' ') + (bits == 0 ? "" : " cut short");
}

/// The load of the target's table pointer.
QString pointer(unsigned int address)
{
    return QString("0 0E%1 0 6EF8 0 0E%2 0 6EF7 0 0E%3 0 6EF6 ")
        .arg(address >> 16, 2, 16, QChar('0'))
        .arg(address >> 8 & 0xFF, 2, 16, QChar('0'))
        .arg(address & 0xFF, 2, 16, QChar('0'))
        .toUpper();
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
    void byteIsSampledAfterTheFallingEdge();
    void programmingNopHoldsItsFourthClock();
    void operationsSendTheirSequences();
    void entryAndRestoreDriveOnlyTheSelectedReset_data();
    void entryAndRestoreDriveOnlyTheSelectedReset();
    void resetTimerReleasesThePicOnce();
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
}

void PicLinkTest::programmingNopHoldsItsFourthClock()
{
    PicProgrammer programmer(1, nullptr);
    traffic.clear();
    programmer.vProgramFlashCmd();
    QStringList expected = {"PGC=0", "PGD=0", "wait 0"};
    for (int clock = 0; clock < 3; ++clock)
        expected << QStringList{"PGC=1", "wait 0", "PGC=0", "wait 0"};
    QCOMPARE(traffic, expected + QStringList({"PGC=1", "wait 4", "PGC=0", "wait 5", "PGC=0", "PGD=0"}));
}

// The target takes the last command of a write for the operand of the programming command, and what is left of it for
// the begin of another command.
void PicLinkTest::operationsSendTheirSequences()
{
    struct Case
    {
        QString name;
        std::function<void(PicProgrammer &)> operate;
        QString sequence;
    };
    unsigned char data[] = {0x11, 0x22, 0x33, 0x44};
    const QString entry = "RESET SETUP ENTRY ";
    const QString programming = "P9 0 P10 0000 0 P10 cut short";
    const QString eepromAddress = "0 9EA6 0 9CA6 0 0EC5 0 6EA9 0 0E03 0 6EAA ";
    const QString latch = "0 6EF5 0 0000 2 read";
    QString rowErase = entry;
    for (const unsigned int row : {0x3F80U, 0x3FC0U, 0x4000U, 0x4040U, 0x4080U, 0x40C0U, 0x4100U, 0x4140U})
        rowErase += "0 8EA6 0 9CA6 0 84A6 " + pointer(row) + "0 88A6 0 82A6 P9 0 P10 0000 ";
    const Case cases[] = {
        {"command", [](PicProgrammer &pic) { pic.vWriteCmd(0xFD); }, "D cut short"},
        {"table pointer", [](PicProgrammer &pic) { pic.vSetCoreAddress(0x3CA605); },
         "0 0E3C 0 6EF8 0 0EA6 0 6EF7 0 0E05 0 6EF6"},
        {"table read", [](PicProgrammer &pic) { pic.u8ReadNextAddress(); }, "9 read"},
        {"bulk erase", [](PicProgrammer &pic) { pic.vPicBulkErase(0x08, 0x80); },
         pointer(0x3C0005) + "C 0808 " + pointer(0x3C0004) + "C 8080 0 0000 0 P11 P11 P11 P10 0000"},
        {"row write", [&](PicProgrammer &pic) { pic.vProgramPicFlash(0x1F8, 4, data); },
         entry + "0 8EA6 0 9CA6 " + pointer(0x1F8) + "D 2211 COMMAND F 4433 " + programming},
        {"write of a pair", [&](PicProgrammer &pic) { pic.vProgramPicFlash(0x1FE, 2, data); },
         entry + "0 8EA6 0 9CA6 " + pointer(0x1FE) + "F 2211 " + programming},
        {"write of half a pair", [&](PicProgrammer &pic) { pic.vProgramPicFlash(0x1FE, 1, data); }, entry.trimmed()},
        {"verify of an empty record", [](PicProgrammer &pic) { pic.u8VerifyPicRecord(); },
         entry + pointer(0).trimmed()},
        {"configuration write", [](PicProgrammer &pic) { pic.vProgramPicConfig(0x300006, 0x81); },
         entry + "0 8EA6 0 8CA6 " + pointer(0x300006) + "F 8181 " + programming},
        {"row erase", [](PicProgrammer &pic) { pic.vEraseProgramMemory(0x3F80); }, rowErase + "0 0000"},
        {"EEPROM read", [](PicProgrammer &pic) { pic.u8ReadPicEeprom(0x3C5); },
         entry + eepromAddress + "0 80A6 0 50A8 " + latch},
        {"EEPROM write", [](PicProgrammer &pic) { pic.vWritePicEeprom(0x3C5, 0x5A); },
         entry + eepromAddress + "0 0E5A 0 6EA8 0 84A6 0 82A6 0 50A6 " + latch + " P10"},
    };
    PicProgrammer programmer(1, nullptr);
    inputBits.clear();
    for (const Case &row : cases) {
        traffic.clear();
        row.operate(programmer);
        QCOMPARE(row.name + ": " + takeSequence(), row.name + ": " + row.sequence);
    }
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

void PicLinkTest::resetTimerReleasesThePicOnce()
{
    PicProgrammer programmer(2, nullptr);
    traffic.clear();
    programmer.ev_pic_reset(false);
    QTest::qWait(50); // more than twice the time of the timer, which was not started
    QCOMPARE(traffic, QStringList({"MCLR2=1", "MCLR2 out", "MCLR2=0"}));
    for (int pulse = 0; pulse < 5; ++pulse) { // a busy machine may lengthen one that is too short, but not all
        QElapsedTimer inReset;
        inReset.start();
        programmer.ev_pic_reset(true);
        traffic.clear();
        QVERIFY(eventually([] { return !traffic.isEmpty(); }));
        QVERIFY(inReset.elapsed() >= 19);
    }
    QTest::qWait(50);
    QCOMPARE(traffic.count("MCLR2 in"), 1);
    QVERIFY(QMetaObject::invokeMethod(&programmer, "endIsp"));
    QCOMPARE(traffic.count("MCLR2 in"), 2);
}

void PicLinkTest::deviceIdsHaveNames()
{
    const QMap<unsigned short, QString> names = {{0x0C07, "PIC18F4620 version 7"}, {0x0E9F, "PIC18F4680 version 31"},
                                                 {0x2740, "PIC18F4682 version 0"}, {0x2761, "PIC18F4685 version 1"},
                                                 {0x1234, "Unknown PIC: 4660"},    {0x0C1F, "PIC18F4620 version 31"}};
    for (auto name = names.begin(); name != names.end(); ++name) {
        QCOMPARE(*PicProgrammer::pGetPicIdStr(name.key()), name.value());
        QCOMPARE(PicProgrammer::u8ValidPicId(name.key()) != 0, name.value().startsWith("PIC18F4620"));
    }
}

QTEST_GUILESS_MAIN(PicLinkTest)
#include "PicLinkTest.moc"
