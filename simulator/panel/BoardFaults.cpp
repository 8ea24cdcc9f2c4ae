#include "simulator/panel/BoardFaults.h"

#include <map>

#include "simulator/models/esa/EsaBoards.h"
#include "simulator/models/pic/VirtualBoards.h"
#include "simulator/tools/InstrumentState.h"

using namespace simulator;
using InstrumentState::Record;
using EsaFaults = EsaBootLoader::Faults;

namespace {

const std::map<std::string, int EsaFaults::*> faultsOfABlock = {
    {"rejected", &EsaFaults::rejectedBlock},
    {"unanswered", &EsaFaults::unansweredBlock},
    {"cancelled", &EsaFaults::cancelledBlock},
    {"garbage", &EsaFaults::garbageBlock},
};
const std::map<std::string, bool EsaFaults::*> faultsOfATransfer = {
    {"rejected-end", &EsaFaults::rejectedEnd},
    {"silent", &EsaFaults::silentAfterCommand},
};

int numberAt(const Record &fault, size_t field)
{
    return std::stoi(fault.at(field));
}

void injectPicFault(const Record &fault)
{
    Pic18Target &pic = VirtualBoards::installed().pic(numberAt(fault, 0));
    if (fault.at(1) == "absent")
        return pic.remove(false);
    const auto address = static_cast<unsigned int>(numberAt(fault, 2));
    const auto mask = static_cast<unsigned char>(1 << numberAt(fault, 3));
    if (fault.at(1) == "never-erased")
        pic.memory().breakErase(address, mask);
    else
        pic.memory().flipOnWrite(address, mask);
}

void injectEsaFault(const Record &fault, EsaBootLoader *board)
{
    const auto ofABlock = faultsOfABlock.find(fault.at(1));
    if (ofABlock != faultsOfABlock.end())
        board->faults.*ofABlock->second = numberAt(fault, 2);
    else
        board->faults.*faultsOfATransfer.at(fault.at(1)) = true;
}

} // namespace

void simulator::injectBoardFaults(EsaBoards *esaBoards)
{
    for (const Record &fault : InstrumentState::read(InstrumentState::plan, "pic"))
        injectPicFault(fault);
    for (const Record &fault : InstrumentState::read(InstrumentState::plan, "esa"))
        injectEsaFault(fault, fault.at(0) == "io" ? &esaBoards->ioBoard() : &esaBoards->measurementBoard());
}
