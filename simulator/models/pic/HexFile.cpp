#include "simulator/models/pic/HexFile.h"

#include <algorithm>

#include "pic/PicProgrammer.h"
#include "simulator/rehearsal/FileContent.h"

namespace simulator {

namespace {

const int headerSize = 4;
const int overheadSize = headerSize + 1; // with the checksum
const unsigned int startAddressLength = 4;

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

unsigned int byteAt(const QByteArray &bytes, int index)
{
    return static_cast<unsigned char>(bytes.at(index));
}

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
    const QList<QByteArray> lines = contentOf(fileName).split('\n');
    for (int index = 0; index < lines.size() && m_BadLine == 0; ++index) {
        const QByteArray line = lines.at(index).trimmed();
        if (line.startsWith(':') && !take(QByteArray::fromHex(line.mid(1))))
            m_BadLine = index + 1;
    }
}

// False for a record that is cut short or whose checksum is wrong.
bool HexFile::take(const QByteArray &line)
{
    const int length = line.isEmpty() ? 0 : static_cast<int>(byteAt(line, 0));
    if (line.size() < length + overheadSize)
        return false;
    unsigned int sum = 0;
    for (int index = 0; index < length + overheadSize; ++index)
        sum += byteAt(line, index);
    if ((sum & 0xFF) != 0)
        return false;

    const unsigned int type = byteAt(line, 3);
    if (type == 0)
        takeData(m_ExtendedAddress + byteAt(line, 1) * 0x100 + byteAt(line, 2), static_cast<unsigned int>(length));
    else if (type == 1)
        return length == 0;
    else if (type == 3 || type == 5)
        return length == startAddressLength;
    else if ((type == 2 || type == 4) && length == 2)
        m_ExtendedAddress = (byteAt(line, headerSize) * 0x100 + byteAt(line, headerSize + 1)) << (type == 2 ? 4 : 16);
    return true;
}

void HexFile::takeData(unsigned int address, unsigned int length)
{
    const unsigned int count = PicProgrammer::u32BytesWritten(address, length);
    append(&m_Written, address, address + count);
    append(&m_PassedOver, address + count, address + length);
}

} // namespace simulator
