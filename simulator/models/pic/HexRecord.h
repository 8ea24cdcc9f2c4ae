#ifndef SIMULATOR_MODELS_PIC_HEXRECORD_H
#define SIMULATOR_MODELS_PIC_HEXRECORD_H

#include <QByteArray>

namespace simulator {

/// A line of an Intel HEX file. `error` is added to the correct checksum.
inline QByteArray hexRecord(int type, unsigned int address, const QByteArray &data, const char *lineEnd = "\r\n",
                            int error = 0)
{
    QByteArray bytes;
    for (const auto byte : {unsigned(data.size()), address >> 8, address, unsigned(type)})
        bytes.append(static_cast<char>(byte));
    bytes.append(data);
    for (const char byte : qAsConst(bytes))
        error -= byte;
    return ':' + bytes.append(static_cast<char>(error)).toHex().toUpper() + lineEnd;
}

} // namespace simulator

#endif
