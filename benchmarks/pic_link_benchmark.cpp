#include <QCoreApplication>
#include <QStringList>

#include "pic/PicDelay.h"
#include "pic/PicProgrammer.h"

// The delays take no time here; they still cost their call.
__attribute__((noipa)) void waitFor(PIC_DELAY) {}

// Writes ("write N") or table-reads ("read N") N bytes over the programming link, for an emulator that counts the
// instructions. To be run in the sandbox.
int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    const QString operation = application.arguments().value(1);
    const int count = application.arguments().value(2).toInt();
    PicProgrammer programmer(1, nullptr);
    for (int byte = 0; byte < count; ++byte) {
        if (operation == "write")
            programmer.vWriteByte(0xA5);
        else
            programmer.u8ReadNextAddress();
    }
    return 0;
}
