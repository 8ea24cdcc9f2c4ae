#include <QSignalSpy>
#include <QSocketNotifier>
#include <QtTest>
#include <algorithm>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "serial/TtyHandler.h"
#include "simulator/models/PseudoTerminal.h"
#include "tests/DebugLines.h"
#include "tests/EventLoop.h"

using namespace simulator;

namespace {

const char port[] = "/dev/ttyAPP1";

QByteArray everyByte()
{
    QByteArray bytes;
    for (int value = 0; value < 256; ++value)
        bytes.append(static_cast<char>(value));
    return bytes;
}

} // namespace

/// The serial port against the kernel's own terminal driver.
class TtyHandlerTest : public QObject
{
    Q_OBJECT

private slots:
    void portIsSetToRaw115200();
    void everyByteSinceTheOpeningArrivesUnchanged();
    void bytesAreSentUnchangedAndTextInTheLocalEncoding();
    void eachActivationSignalsOnce();
    void portThatCannotBeOpenedStaysSilent();
    void descriptorZeroIsNotOpened();
    void failedSettingIsReportedOnce();
    void bytesThatNobodyReadsAreDropped();
    void portThatDisappearsIsReportedAndLeavesTheEventLoopIdle();
};

void TtyHandlerTest::portIsSetToRaw115200()
{
    const PseudoTerminal line(port, nullptr);
    QCOMPARE(line.settings().c_cc[VMIN], cc_t(1));
    const TtyHandler handler(port, nullptr);
    const struct termios settings = line.settings();
    QCOMPARE(settings.c_iflag, tcflag_t(4));
    QCOMPARE(settings.c_oflag, tcflag_t(0));
    QCOMPARE(settings.c_cflag, tcflag_t(0x18B2));
    QCOMPARE(settings.c_lflag, tcflag_t(0));
    QCOMPARE(settings.c_line, cc_t(0));
    QCOMPARE(std::count(std::begin(settings.c_cc), std::end(settings.c_cc), 0), NCCS);
    const int descriptor = static_cast<int>(handler.findChild<QSocketNotifier *>()->socket());
    QCOMPARE(fcntl(descriptor, F_GETFD), FD_CLOEXEC);
    QCOMPARE(fcntl(descriptor, F_GETFL) & (O_ACCMODE | O_NONBLOCK), O_RDWR);
}

void TtyHandlerTest::everyByteSinceTheOpeningArrivesUnchanged()
{
    PseudoTerminal line(port, nullptr);
    line.write("stale");
    TtyHandler handler(port, nullptr);
    QList<QByteArray> chunks;
    connect(&handler, &TtyHandler::readyRead, [&] { chunks << handler.readAll(); });
    // Once alone, once in a chunk that is larger than any that the protocols know.
    QVERIFY(line.deliver(everyByte()));
    QVERIFY(line.deliver(everyByte().repeated(15)));
    QCOMPARE(chunks, QList<QByteArray>({everyByte(), everyByte().repeated(15)}));
}

void TtyHandlerTest::bytesAreSentUnchangedAndTextInTheLocalEncoding()
{
    PseudoTerminal line(port, nullptr);
    TtyHandler handler(port, nullptr);
    handler.sendByteArray(QByteArray());
    handler.sendByteArray(everyByte());
    QCOMPARE(line.readAllSent(), everyByte());
    handler.sendString(QString::fromUtf8("2\xC3\xA9"));
    QCOMPARE(line.readAllSent(), QByteArray("2\xC3\xA9"));
}

void TtyHandlerTest::eachActivationSignalsOnce()
{
    PseudoTerminal line(port, nullptr);
    TtyHandler handler(port, nullptr);
    const QSignalSpy signalled(&handler, SIGNAL(readyRead()));
    // Nobody reads: each turn of the event loop activates the notifier anew.
    line.write("C");
    for (int turn = 1; turn <= 3; ++turn) {
        QCoreApplication::processEvents();
        QCOMPARE(signalled.count(), turn);
    }
    QCOMPARE(handler.readAll(), QByteArray("C"));
    QVERIFY(QMetaObject::invokeMethod(&handler, "notify", Q_ARG(int, 0)));
    QCOMPARE(signalled.count(), 4);
    QCOMPARE(handler.readAll(), QByteArray());
    QCoreApplication::processEvents();
    QCOMPARE(signalled.count(), 4);
}

void TtyHandlerTest::portThatCannotBeOpenedStaysSilent()
{
    DebugLines debug;
    TtyHandler handler("/dev/no-such-port", nullptr);
    QCOMPARE(debug.take(), QStringList("Failed to open serial port: /dev/no-such-port: No such file or directory"));
    QVERIFY(handler.isOpen());
    QVERIFY(handler.findChildren<QSocketNotifier *>().isEmpty());
    handler.sendByteArray("2");
    handler.sendString("2");
    QCOMPARE(debug.take(), QStringList());
    QCOMPARE(handler.readAll(), QByteArray());
    QCOMPARE(handler.write("2"), qint64(-1));
}

void TtyHandlerTest::descriptorZeroIsNotOpened()
{
    PseudoTerminal line(port, nullptr);
    const int standardInput = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    {
        const DebugLines debug;
        TtyHandler handler(port, nullptr);
        QCOMPARE(fcntl(STDIN_FILENO, F_GETFD), 0);
        QVERIFY(handler.findChildren<QSocketNotifier *>().isEmpty());
        QCOMPARE(line.settings().c_cc[VMIN], cc_t(1));
        handler.sendByteArray("2");
        QCOMPARE(line.readAllSent(), QByteArray());
        QVERIFY(handler.isOpen());
    }
    QCOMPARE(fcntl(STDIN_FILENO, F_GETFD), -1);
    dup2(standardInput, STDIN_FILENO);
    close(standardInput);
}

void TtyHandlerTest::failedSettingIsReportedOnce()
{
    const char notATerminal[] = "/dev/pipe";
    QCOMPARE(mkfifo(notATerminal, S_IRUSR | S_IWUSR), 0);
    DebugLines debug;
    TtyHandler handler(notATerminal, nullptr);
    QCOMPARE(debug.take(), QStringList("Failed to set serial port: /dev/pipe: Inappropriate ioctl for device"));
    QCOMPARE(handler.readAll(), QByteArray()); // and does not wait for bytes
}

void TtyHandlerTest::bytesThatNobodyReadsAreDropped()
{
    PseudoTerminal line(port, nullptr);
    DebugLines debug;
    TtyHandler handler(port, nullptr);
    for (const char *bytes : {"C", "CC"}) {
        line.write(bytes);
        QCoreApplication::processEvents();
        QCOMPARE(handler.readAll(), QByteArray());
    }
    QCOMPARE(debug.take(), QStringList("Serial port: dropped what nobody reads: 43"));
}

void TtyHandlerTest::portThatDisappearsIsReportedAndLeavesTheEventLoopIdle()
{
    PseudoTerminal line(port, nullptr);
    TtyHandler handler(port, nullptr);
    QList<QByteArray> chunks;
    connect(&handler, &TtyHandler::readyRead, [&] { chunks << handler.readAll(); });
    QVERIFY(line.deliver("C"));
    line.unplug();
    DebugLines debug;
    QVERIFY(eventually([&] { return chunks.size() > 1; }));
    QCOMPARE(debug.take(), QStringList("Serial port hung up"));
    handler.sendByteArray("2");
    QCOMPARE(debug.take(), QStringList("Failed to write to serial port: Input/output error"));
    for (int turn = 0; turn < 3; ++turn)
        QCoreApplication::processEvents();
    QCOMPARE(chunks, QList<QByteArray>({"C", ""}));
}

QTEST_GUILESS_MAIN(TtyHandlerTest)

#include "TtyHandlerTest.moc"
