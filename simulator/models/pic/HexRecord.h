#ifndef SIMULATOR_MODELS_PIC_HEXRECORD_H
#define SIMULATOR_MODELS_PIC_HEXRECORD_H

#include <QByteArray>

namespace simulator {

/// A line of an Intel HEX file. The checksum is wrong by `error`.
QByteArray hexRecord(int type, unsigned int address, const QByteArray &data, const char *lineEnd = "\r\n",
                     int error = 0);

} // namespace simulator

#endif
