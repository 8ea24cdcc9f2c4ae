#include <QApplication>
#include <ctime>

// What every target needs: the application, no debug output, and real time for the fuzzer's own thread, which the
// simulator's sleep() would send to the virtual boards.

namespace {

void silence(QtMsgType, const QMessageLogContext &, const QString &) {}

} // namespace

extern "C" unsigned int sleep(unsigned int seconds)
{
    const timespec duration = {static_cast<time_t>(seconds), 0};
    nanosleep(&duration, nullptr);
    return 0;
}

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    static const QApplication application(*argc, *argv);
    qInstallMessageHandler(silence);
    return 0;
}
