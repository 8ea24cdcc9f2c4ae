#include "pic/HexRecord.h"
#include "tests/fuzz/Fuzz.h"

// A line of a HEX file: rejected with a reason, or a record whose bytes go where bytes may go.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const HexRecord record(bytesOf(data, size));
    require((record.kind == HexRecord::Rejected) == !record.reason.isEmpty());
    require(record.kind == HexRecord::Record || record.data.isEmpty());
    require(record.data.size() <= HexRecord::longestData && record.address <= 0xFFFF);
    if (record.isExtendedAddress())
        require(record.data.size() == 2 && record.extendedAddress() <= 0xFFFF0000);
    for (const unsigned int extendedAddress : {0U, 0x300000U, 0xFFFF0000U}) {
        const unsigned int length = static_cast<unsigned int>(record.data.size());
        const unsigned int address = record.address + extendedAddress;
        const HexRecord::Destination destination = HexRecord::destinationOf(address, length);
        require(destination.count <= length);
        require(destination.memory != HexRecord::ProgramMemory || address + destination.count <= 0xFFFE);
        require(destination.memory != HexRecord::Configuration || address + destination.count <= 0x30000E);
    }
    return 0;
}
