#include "simulator/models/pic/HexRecord.h"

namespace simulator {

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

} // namespace simulator
