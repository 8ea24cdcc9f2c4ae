#include <QSignalSpy>

#include "serial/PowerBoardManager.h"
#include "serial/TtyHandler.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/fuzz/FuzzTty.h"

namespace {

unsigned int at(const QByteArray &bytes, int position)
{
    return static_cast<unsigned char>(bytes.at(position));
}

unsigned int littleEndian(const QByteArray &bytes, int position)
{
    return at(bytes, position) + 256 * at(bytes, position + 1);
}

// What a receiver may rely on.
void requireIntact(const QByteArray &packet)
{
    require(packet.size() >= 5 && at(packet, 0) >= 4 && at(packet, 0) <= 126);
    const int length = static_cast<int>(littleEndian(packet, 1));
    require(length <= 600 && packet.size() >= length + 5);
    unsigned int sum = 1;
    for (int position = 0; position < length + 3; ++position)
        sum += at(packet, position);
    require((sum & 0xFFFF) == littleEndian(packet, length + 3));
}

} // namespace

// What comes from the power board while a frame is in flight: only intact packets are passed on. Two starts in one
// chunk abandon what the input before this one left half received.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    PowerBoardManager manager("fuzz", nullptr);
    QSignalSpy packets(&manager, SIGNAL(packetReceived(QByteArray)));
    FuzzTty::setInput(QByteArray("\2\2\xFE") + bytesOf(data, size));
    manager.sendGetVersionCommand();
    while (!FuzzTty::chunks.isEmpty())
        QMetaObject::invokeMethod(manager.findChild<TtyHandler *>(), "notify", Q_ARG(int, 0));
    for (const QList<QVariant> &arguments : packets)
        requireIntact(arguments.at(0).toByteArray());
    return 0;
}
