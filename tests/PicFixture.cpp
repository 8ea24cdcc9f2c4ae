#include "tests/PicFixture.h"

#include <QSignalSpy>
#include <QTest>

#include "pic/MemoryMappedPinController.h"
#include "pic/PicPins.h"
#include "tests/Instrument.h"

using namespace simulator;

PicFixture::PicFixture(int picNumber, const Pic18Device &device) : m_PicNumber(picNumber)
{
    VirtualBoards::Devices devices;
    devices.fill(&Pic18Device::pic18f4620);
    devices[static_cast<size_t>(picNumber - 1)] = &device;
    VirtualBoards::install(devices);
    MemoryMappedPinController pins(pinControlBlock);
    for (int number = 1; number <= picCount; ++number)
        holdInReset(&pins, number);
    waitFor(DELAY_RESET);
    m_Programmer = std::make_unique<PicProgrammer>(picNumber, nullptr);
}

bool PicFixture::eraseAll()
{
    QSignalSpy done(m_Programmer.get(), SIGNAL(eraseDone()));
    m_Programmer->ev_pic_begin_erase();
    for (int turn = 0; turn < 1000 && done.isEmpty() && !m_Programmer->isFinished(); ++turn)
        QCoreApplication::processEvents();
    return done.size() == 1;
}

bool PicFixture::program(const QByteArray &hexFile, const char *fileName)
{
    Instrument::write(fileName, hexFile);
    m_Programmer->programPic(fileName);
    return m_Programmer->isFinished() && m_Programmer->isProgrammed();
}
