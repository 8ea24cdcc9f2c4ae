#include <QSettings>
#include <QTimer>

#include "screens/UpdaterProgressScreen.h"
#include "serial/TtyHandler.h"
#include "tests/Instrument.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/fuzz/FuzzTty.h"

namespace {

const int blocks = 3;
const int packetSize = 133;

/// Lets the program read a chunk in each turn of the event loop. After the last one the board stays silent, and the
/// wait for it is over.
class Board
{
public:
    Board()
    {
        Instrument::useItsSettings();
        QSettings().setValue("AvrEnable", true);
        Instrument::write("/tmp/firmware_update/image", QByteArray(blocks * 128 - 1, 'x'));
        screen = std::make_unique<UpdaterProgressScreen>(nullptr, Qt::Widget);
        QObject::connect(&m_Turn, &QTimer::timeout, &m_Turn, [this] { reply(); });
        m_Turn.start(0);
    }
    std::unique_ptr<UpdaterProgressScreen> screen;

private:
    void reply()
    {
        QTimer *replyTimer = screen->findChild<QTimer *>(QString(), Qt::FindDirectChildrenOnly);
        if (!FuzzTty::chunks.isEmpty())
            QMetaObject::invokeMethod(screen->findChild<TtyHandler *>(), "notify", Q_ARG(int, 0));
        else if (replyTimer->interval() > 0)
            replyTimer->start(0);
    }

    QTimer m_Turn;
};

} // namespace

// What comes from a board during an update: it succeeds exactly when each block and the end were sent.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static Board board;
    FuzzTty::setInput(bytesOf(data, size));
    const int result = board.screen->updateESA("/image", ESA_MEASUREMENT_BOARD, ESA_EEPROM);
    const QByteArray packets = FuzzTty::sent.mid(FuzzTty::sent.indexOf('3') + 1);
    require(packets.size() % packetSize == (result == 0 ? 1 : 0) && packets.size() <= blocks * packetSize + 1);
    require((packets.size() == blocks * packetSize + 1 && packets.endsWith('\x04')) == (result == 0));
    return 0;
}
