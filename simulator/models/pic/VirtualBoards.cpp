#include "simulator/models/pic/VirtualBoards.h"

#include <algorithm>

namespace simulator {

namespace {

// The wiring of the boards, written down apart from the updater's own table, so that a wrong pin there is found.
const PinBlock::Pin pgcPin = {4, 14};
const PinBlock::Pin pgdPin = {4, 15};
const PinBlock::Pin enablePin = {0, 17};
const PinBlock::Pin mclrPins[VirtualBoards::picCount] = {{4, 10}, {2, 21}, {2, 15}, {2, 17}};

// A load or a store over the SoC's peripheral bus, at its quickest.
const qint64 accessNanoseconds = 10;

std::unique_ptr<VirtualBoards> &slot()
{
    static std::unique_ptr<VirtualBoards> boards;
    return boards;
}

} // namespace

VirtualBoards::VirtualBoards(const Devices &devices)
{
    for (size_t pic = 0; pic < m_Pics.size(); ++pic)
        m_Pics[pic] = std::make_unique<Pic18Target>(*devices[pic], QString::fromLatin1("PIC %1").arg(pic + 1), *this);
}

VirtualBoards &VirtualBoards::installed()
{
    if (!slot())
        install(
            {&Pic18Device::pic18f4620, &Pic18Device::pic18f4680, &Pic18Device::pic18f4682, &Pic18Device::pic18f4685});
    return *slot();
}

VirtualBoards &VirtualBoards::install(const Devices &devices)
{
    slot() = std::make_unique<VirtualBoards>(devices);
    return *slot();
}

void VirtualBoards::keepIn(const QString &folder)
{
    for (int number = 1; number <= picCount; ++number)
        pic(number).memory().keepIn(QString::fromLatin1("%1/pic%2.").arg(folder).arg(number));
}

uint32_t VirtualBoards::readRegister(unsigned int offset)
{
    advance(accessNanoseconds);
    return m_Pins.read(offset);
}

void VirtualBoards::writeRegister(unsigned int offset, uint32_t value)
{
    advance(accessNanoseconds);
    const uint32_t changed = m_Pins.read(offset) ^ value;
    if (changed == 0)
        return;
    if (beforeSelectChange && PinBlock::bankOf(offset) == selectPin.bank && (changed >> selectPin.bit & 1))
        beforeSelectChange();
    m_Pins.write(offset, value);
    settle();
}

void VirtualBoards::wait(qint64 nanoseconds)
{
    advance(nanoseconds);
    m_Waited += nanoseconds;
}

void VirtualBoards::settle()
{
    const bool pgc = m_Pins.isDrivenHigh(pgcPin);
    const bool dataDriven = m_Pins.isOutput(pgdPin);
    bool pgd = m_Pins.isDrivenHigh(pgdPin);
    for (size_t pic = 0; pic < m_Pics.size(); ++pic)
        m_Pics[pic]->drive({mclr(pic), pgc, pgd, dataDriven});
    judgeClock(pgc);
    if (!dataDriven) {
        for (const auto &pic : m_Pics)
            pgd = pgd || pic->dataOut().value_or(false);
    }
    m_Pins.setInput(pgdPin, pgd);
}

Pic18Target::Mclr VirtualBoards::mclr(size_t pic) const
{
    if (m_Pins.isDrivenLow(mclrPins[pic]))
        return Pic18Target::Mclr::Low;
    if (m_Pins.isDrivenHigh(mclrPins[pic]) && m_Pins.isDrivenHigh(enablePin))
        return Pic18Target::Mclr::ProgrammingVoltage;
    return Pic18Target::Mclr::High;
}

void VirtualBoards::judgeClock(bool pgc)
{
    const bool rises = pgc && !m_Pgc;
    m_Pgc = pgc;
    if (rises && std::count_if(m_Pics.begin(), m_Pics.end(), [](const auto &pic) { return pic->isOutOfReset(); }) > 1)
        violation(QLatin1String("PGC"), QLatin1String("more than one PIC out of reset at a clock"));
}

} // namespace simulator
