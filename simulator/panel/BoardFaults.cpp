#include "simulator/panel/BoardFaults.h"

#include <cstdlib>

#include "simulator/models/esa/EsaBoards.h"
#include "simulator/models/pic/VirtualBoards.h"
#include "simulator/tools/InstrumentState.h"

using namespace simulator;
using InstrumentState::Record;

namespace {

unsigned int numberAt(const Record &fault, size_t field)
{
    return field < fault.size() ? static_cast<unsigned int>(std::strtoul(fault[field].c_str(), nullptr, 0)) : 0;
}

void injectPicFault(const Record &fault)
{
    Pic18Target &pic = VirtualBoards::installed().pic(static_cast<int>(numberAt(fault, 0)));
    const unsigned int address = numberAt(fault, 2);
    const auto mask = static_cast<unsigned char>(1U << numberAt(fault, 3));
    if (fault[1] == "never-erased") {
        pic.memory().breakErase(address, mask);
    } else if (fault[1] == "flipped") {
        pic.memory().flipOnWrite(address, mask);
    } else if (fault[1] == "absent") {
        pic.remove(false);
    }
}

void injectEsaFault(const Record &fault, EsaBootLoader *board)
{
    const int block = static_cast<int>(numberAt(fault, 2));
    if (fault[1] == "refused")
        board->faults.refusedBlock = block;
    else if (fault[1] == "unanswered")
        board->faults.unansweredBlock = block;
    else if (fault[1] == "silent")
        board->faults.silentAfterCommand = true;
}

} // namespace

void simulator::injectBoardFaults(EsaBoards *esaBoards)
{
    for (const Record &fault : InstrumentState::read(InstrumentState::plan, "pic"))
        injectPicFault(fault);
    for (const Record &fault : InstrumentState::read(InstrumentState::plan, "esa"))
        injectEsaFault(fault, fault[0] == "io" ? &esaBoards->ioBoard() : &esaBoards->measurementBoard());
}
