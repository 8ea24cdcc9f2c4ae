#ifndef TESTS_PICFIXTURE_H
#define TESTS_PICFIXTURE_H

#include <QByteArray>
#include <memory>

#include "pic/PicProgrammer.h"
#include "simulator/models/pic/HexRecord.h"
#include "simulator/models/pic/VirtualBoards.h"

/// New virtual boards with the chosen PIC and its programmer, the other three PICs held in reset as in an update.
class PicFixture
{
public:
    explicit PicFixture(int picNumber = 1, const simulator::Pic18Device &device = simulator::Pic18Device::pic18f4620);

    simulator::VirtualBoards &boards() { return simulator::VirtualBoards::installed(); }
    simulator::Pic18Target &target() { return boards().pic(m_PicNumber); }
    simulator::Pic18Memory &memory() { return target().memory(); }
    PicProgrammer &programmer() { return *m_Programmer; }

    /// Begins the erase phase and runs the event loop until it is over. False after an error.
    bool eraseAll();
    /// Programs a file with this content. False when the run did not end as programmed.
    bool program(const QByteArray &hexFile, const char *fileName = "/tmp/pic.hex");

private:
    int m_PicNumber;
    std::unique_ptr<PicProgrammer> m_Programmer;
};

#endif
