#include "simulator/models/pic/HexFile.h"

#include <QFile>
#include <algorithm>

#include "pic/HexRecord.h"

namespace simulator {

namespace {

struct Memory
{
    unsigned int end;
    const char *name;
};

// Of the PIC18 family, from address 0 on.
const Memory memories[] = {
    {0x200000, "program memory"}, {0x200008, "user id"},     {0x300000, "no memory"},   {0x30000E, "configuration"},
    {0xF00000, "no memory"},      {0xF00400, "data EEPROM"}, {0xFFFFFFFF, "no memory"},
};

void append(QList<HexFile::Range> *ranges, unsigned int begin, unsigned int end)
{
    if (begin == end)
        return;
    if (!ranges->isEmpty() && ranges->last().end == begin)
        ranges->last().end = end;
    else
        ranges->append({begin, end});
}

} // namespace

QString HexFile::Range::text() const
{
    const auto *memory = std::find_if(std::begin(memories), std::end(memories),
                                      [this](const Memory &candidate) { return begin < candidate.end; });
    return QString::fromLatin1("0x%1 to 0x%2 (%3 bytes, %4)")
        .arg(begin, 6, 16, QLatin1Char('0'))
        .arg(end - 1, 6, 16, QLatin1Char('0'))
        .arg(end - begin)
        .arg(QLatin1String(memory->name));
}

HexFile::HexFile(const QString &fileName)
{
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return;
    unsigned int extendedAddress = 0;
    for (int lineNumber = 1; !file.atEnd() && m_BadLine == 0; ++lineNumber) {
        const HexRecord record(file.readLine(HexRecord::longestLine + 2));
        if (record.kind == HexRecord::Rejected)
            m_BadLine = lineNumber;
        else if (record.isExtendedAddress())
            extendedAddress = record.extendedAddress();
        else if (record.isData())
            takeData(extendedAddress + record.address, static_cast<unsigned int>(record.data.size()));
    }
}

void HexFile::takeData(unsigned int address, unsigned int length)
{
    const unsigned int count = HexRecord::destinationOf(address, length).count;
    append(&m_Written, address, address + count);
    append(&m_PassedOver, address + count, address + length);
}

} // namespace simulator
