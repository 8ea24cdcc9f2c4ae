#include "benchmarks/BenchmarkRun.h"

#include <QCoreApplication>

#include "pic/MemoryMappedPinController.h"
#include "pic/PicPins.h"
#include "simulator/models/pic/HexRecord.h"

using namespace simulator;

namespace {

const int picNumber = 1;
const unsigned int fileBytes = 0x8000;
const int recordBytes = 16;
const int bytesRead = 0x10000;
const int clocksPerByte = 20;

} // namespace

BenchmarkRun::BenchmarkRun() : m_Programmer(nullptr)
{
    MemoryMappedPinController pins(pinControlBlock);
    for (int number = 1; number <= picCount; ++number)
        holdInReset(&pins, number);
    waitFor(DELAY_RESET);
    m_Programmer = new PicProgrammer(picNumber, nullptr);
    m_Programmer->setParent(this);
    connect(m_Programmer, SIGNAL(eraseDone()), this, SLOT(programFile()));
}

bool BenchmarkRun::updatePic()
{
    if (!m_File.open())
        return false;
    for (unsigned int address = 0; address < fileBytes; address += recordBytes)
        m_File.write(hexRecord(0, address, QByteArray(recordBytes, '\xFF')));
    m_File.close();
    m_Programmer->ev_pic_begin_erase();
    while (!m_Programmer->isFinished())
        QCoreApplication::processEvents();
    return m_Programmer->isProgrammed();
}

void BenchmarkRun::programFile()
{
    m_Programmer->programPic(m_File.fileName());
}

int BenchmarkRun::readBytes()
{
    for (int byte = 0; byte < bytesRead; ++byte)
        m_Programmer->u8ReadNextAddress();
    return bytesRead * clocksPerByte;
}
