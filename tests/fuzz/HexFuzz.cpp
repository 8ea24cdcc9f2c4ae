#include <QCoreApplication>
#include <QFile>
#include <QSignalSpy>
#include <cstdint>
#include <cstdlib>

#include "tests/PicBench.h"

using namespace simulator;

// Feeds the fuzzer's inputs to the HEX driver as files. It must end, within its percentages, and keep to the memories
// that a file may change.

namespace {

const char fileName[] = "/tmp/updater-fuzz.hex";

void require(bool condition)
{
    if (!condition)
        abort();
}

void silence(QtMsgType, const QMessageLogContext &, const QString &) {}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    static const QCoreApplication application(*argc, *argv);
    qInstallMessageHandler(silence);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    PicBench bench;
    QSignalSpy progress(&bench.programmer(), SIGNAL(lineProgrammed(int)));
    bench.program(QByteArray::fromRawData(reinterpret_cast<const char *>(data), static_cast<int>(size)), fileName);
    require(bench.programmer().isFinished());
    for (const QList<QVariant> &arguments : progress)
        require(arguments.at(0).toInt() >= 1 && arguments.at(0).toInt() <= 100);
    require(bench.memory().eeprom().bytes().count('\xFF') == bench.memory().eeprom().size());
    require(bench.boards().violations().isEmpty());
    return 0;
}
