#include "tests/PicBench.h"

#include <QSignalSpy>
#include <QTest>

#include "pic/MemoryMappedPinController.h"
#include "pic/PicPins.h"
#include "tests/Instrument.h"

PicBench::PicBench(int picNumber, const Pic18Device &device) : m_PicNumber(picNumber)
{
    VirtualBoards::Devices devices = {&Pic18Device::pic18f4620, &Pic18Device::pic18f4620, &Pic18Device::pic18f4620,
                                      &Pic18Device::pic18f4620};
    devices[static_cast<size_t>(picNumber - 1)] = &device;
    VirtualBoards::install(devices);
    MemoryMappedPinController pins(pinControlBlock);
    for (int number = 1; number <= picCount; ++number)
        holdInReset(&pins, number);
    m_Programmer = std::make_unique<PicProgrammer>(picNumber, nullptr);
}

bool PicBench::eraseAll()
{
    QSignalSpy done(m_Programmer.get(), SIGNAL(eraseDone()));
    m_Programmer->ev_pic_begin_erase();
    for (int turn = 0; turn < 1000 && done.isEmpty() && !m_Programmer->isFinished(); ++turn)
        QCoreApplication::processEvents();
    return done.size() == 1;
}

bool PicBench::program(const QByteArray &hexFile)
{
    Instrument::write("/tmp/pic.hex", hexFile);
    m_Programmer->programPic("/tmp/pic.hex");
    return m_Programmer->isFinished() && m_Programmer->isProgrammed();
}

QByteArray hexRecord(int type, unsigned int address, const QByteArray &data, const char *lineEnd, int error)
{
    QByteArray bytes;
    bytes.append(static_cast<char>(data.size())).append(static_cast<char>(address >> 8));
    bytes.append(static_cast<char>(address)).append(static_cast<char>(type)).append(data);
    int sum = 0;
    for (const char byte : qAsConst(bytes))
        sum += byte;
    return ':' + bytes.append(static_cast<char>(error - sum)).toHex().toUpper() + lineEnd;
}
