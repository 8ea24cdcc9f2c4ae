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

std::unique_ptr<VirtualBoards> installedBoards;

} // namespace

const VirtualBoards::Devices VirtualBoards::deliveredDevices = {&Pic18Device::pic18f4620, &Pic18Device::pic18f4680,
                                                                &Pic18Device::pic18f4682, &Pic18Device::pic18f4685};

VirtualBoards::VirtualBoards(const Devices &devices)
{
    for (size_t pic = 0; pic < m_Pics.size(); ++pic)
        m_Pics[pic] = std::make_unique<Pic18Target>(*devices[pic], QString("PIC %1").arg(pic + 1), *this);
}

VirtualBoards &VirtualBoards::installed()
{
    return installedBoards ? *installedBoards : install();
}

VirtualBoards &VirtualBoards::install(const Devices &devices)
{
    installedBoards = std::make_unique<VirtualBoards>(devices);
    return *installedBoards;
}

void VirtualBoards::keepIn(const QString &folder)
{
    for (int number = 1; number <= picCount; ++number)
        pic(number).memory().keepIn(QString("%1/pic%2.").arg(folder).arg(number));
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
    const auto isOutOfReset = [](const auto &pic) {
        return pic->isOutOfReset();
    };
    if (pgc && !m_Pgc && std::count_if(m_Pics.begin(), m_Pics.end(), isOutOfReset) > 1)
        violation("PGC", "more than one PIC out of reset at a clock");
    m_Pgc = pgc;
    for (const auto &pic : m_Pics)
        pgd = pgd || (!dataDriven && pic->dataOut().value_or(false));
    m_Pins.setInput(pgdPin, pgd);
}

Pic18Target::Mclr VirtualBoards::mclr(size_t pic) const
{
    if (!m_Pins.isOutput(mclrPins[pic]))
        return Pic18Target::Mclr::High;
    if (!m_Pins.isDrivenHigh(mclrPins[pic]))
        return Pic18Target::Mclr::Low;
    return m_Pins.isDrivenHigh(enablePin) ? Pic18Target::Mclr::ProgrammingVoltage : Pic18Target::Mclr::High;
}

} // namespace simulator
