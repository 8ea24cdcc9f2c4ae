#ifndef BENCH_PIC_HEXRECORD_H
#define BENCH_PIC_HEXRECORD_H

#include <QByteArray>

/// A line of an Intel HEX file. The checksum is wrong by `error`.
QByteArray hexRecord(int type, unsigned int address, const QByteArray &data, const char *lineEnd = "\r\n",
                     int error = 0);

#endif
