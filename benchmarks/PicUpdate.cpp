#include "benchmarks/PicUpdate.h"

#include <QCoreApplication>
#include <QTemporaryFile>

#include "pic/MemoryMappedPinController.h"
#include "pic/PicDelay.h"
#include "pic/PicPins.h"
#include "simulator/models/pic/HexRecord.h"

void holdPicsInReset()
{
    MemoryMappedPinController pins(pinControlBlock);
    for (int number = 1; number <= picCount; ++number)
        holdInReset(&pins, number);
    waitFor(DELAY_RESET);
}

bool updatePic(PicProgrammer *programmer)
{
    const int recordBytes = 16;
    QTemporaryFile file;
    if (!file.open())
        return false;
    for (unsigned int address = 0; address < 0x8000; address += recordBytes)
        file.write(simulator::hexRecord(0, address, QByteArray(recordBytes, '\xFF')));
    file.close();
    const QString name = file.fileName();
    QObject::connect(programmer, &PicProgrammer::eraseDone, programmer, [=] { programmer->programPic(name); });
    programmer->ev_pic_begin_erase();
    while (!programmer->isFinished())
        QCoreApplication::processEvents();
    return programmer->isProgrammed();
}
