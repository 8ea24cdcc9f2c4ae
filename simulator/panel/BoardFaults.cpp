#include "simulator/panel/BoardFaults.h"

#include <cstdlib>

#include "simulator/models/esa/EsaBoards.h"
#include "simulator/models/pic/VirtualBoards.h"
#include "simulator/tools/InstrumentState.h"

using namespace simulator;

namespace {

unsigned int numberAt(const InstrumentState::Record &fault, size_t field)
{
    return field < fault.size() ? static_cast<unsigned int>(std::strtoul(fault[field].c_str(), nullptr, 0)) : 0;
}

void breakPic(const InstrumentState::Record &fault)
{
    Pic18Target &pic = VirtualBoards::installed().pic(static_cast<int>(numberAt(fault, 1)));
    const unsigned int address = numberAt(fault, 3);
    const auto mask = static_cast<unsigned char>(1U << numberAt(fault, 4));
    if (fault[2] == "never-erased") {
        pic.memory().breakErase(address, mask);
    } else if (fault[2] == "flipped") {
        pic.memory().flipOnWrite(address, mask);
    } else if (fault[2] == "absent") {
        pic.remove(false);
    }
}

void breakEsaBoard(const InstrumentState::Record &fault, EsaBootLoader *board)
{
    const int block = static_cast<int>(numberAt(fault, 3));
    if (fault[2] == "refused")
        board->faults.refusedBlock = block;
    else if (fault[2] == "unanswered")
        board->faults.unansweredBlock = block;
    else if (fault[2] == "silent")
        board->faults.silentAfterCommand = true;
}

} // namespace

void breakBoards(EsaBoards *esaBoards)
{
    for (const InstrumentState::Record &fault : InstrumentState::read(InstrumentState::directory / "board-faults")) {
        if (fault.size() < 3)
            continue;
        if (fault[0] == "pic")
            breakPic(fault);
        else if (fault[0] == "esa")
            breakEsaBoard(fault, fault[1] == "io" ? &esaBoards->ioBoard() : &esaBoards->measurementBoard());
    }
}
