#include "pic/PicProgrammer.h"

#include <QDebug>
#include <QFile>
#include <cstring>

#include "pic/HexRecord.h"

namespace {

QByteArray readHexLine(QFile *file)
{
    return file->readLine(HexRecord::longestLine + 2); // one that is longer is rejected before it is read whole
}

void logRejection(const HexRecord &record, int lineNumber)
{
    qDebug().nospace() << "hex file rejected at line " << lineNumber << ": " << qPrintable(record.reason);
}

// Text mode delivers CR LF as one character, so each line counts one byte more. With LF alone the sum exceeds the file
// size.
int percentOf(qint64 bytesConsumed, qint64 fileSize)
{
    return bytesConsumed < fileSize ? static_cast<int>(100 * bytesConsumed / fileSize) : 100;
}

} // namespace

bool PicProgrammer::bAcceptsFile(const QString &fileName)
{
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        qDebug().nospace() << "Failed to open hex file: " << fileName;
        return false;
    }
    unsigned int extendedAddress = 0;
    bool holdsBytes = false;
    for (int lineNumber = 1; !file.atEnd(); ++lineNumber) {
        const HexRecord record(readHexLine(&file));
        if (record.kind == HexRecord::Rejected) {
            logRejection(record, lineNumber);
            return false;
        }
        if (record.isExtendedAddress())
            extendedAddress = record.extendedAddress();
        const unsigned int address = record.address + extendedAddress;
        const unsigned int length = static_cast<unsigned int>(record.data.size());
        if (record.isData() && HexRecord::destinationOf(address, length).count > 0)
            holdsBytes = true;
    }
    if (!holdsBytes)
        qDebug().nospace() << "hex file rejected: no byte for a PIC in " << fileName;
    return holdsBytes;
}

void PicProgrammer::programPic(QString fileName)
{
    QFile file(fileName);
    bProgrammed = false;
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        qDebug().nospace() << "Failed to open hex file: " << fileName;
        bFinished = true;
        return;
    }
    const qint64 fileSize = file.size();
    qint64 bytesConsumed = 0;
    int lastPercent = 0;
    u32ExtendedAddress = 0;
    bProgrammed = true;
    for (int lineNumber = 1; !file.atEnd(); ++lineNumber) {
        const QByteArray line = readHexLine(&file);
        bProgrammed = bProgramLine(line, lineNumber);
        if (!bProgrammed)
            break;
        bytesConsumed += line.size() + 1;
        const int percent = percentOf(bytesConsumed, fileSize);
        if (percent != lastPercent)
            emit lineProgrammed(percent);
        lastPercent = percent;
    }
    bFinished = true;
}

// False when the run must not go on.
bool PicProgrammer::bProgramLine(const QByteArray &line, int lineNumber)
{
    const HexRecord record(line);
    if (record.kind == HexRecord::Rejected) {
        logRejection(record, lineNumber);
        return false;
    }
    if (record.isExtendedAddress())
        u32ExtendedAddress = record.extendedAddress();
    if (!record.isData() || record.data.isEmpty())
        return true;
    u8RecordLength = static_cast<unsigned char>(record.data.size());
    u32RecordAddress = record.address + u32ExtendedAddress;
    memcpy(au8RecordData, record.data.constData(), u8RecordLength);
    if (u8PicWriteRecord() == 0)
        return true;
    qDebug() << "u8PicWriteRecord error";
    qDebug() << QString::fromLatin1(line);
    qDebug().nospace() << "Flash_Data_Len: " << uint(u8RecordLength);
    qDebug().nospace() << "Flash_Address: " << u32RecordAddress;
    return false;
}

unsigned char PicProgrammer::u8PicWriteRecord()
{
    const HexRecord::Destination destination = HexRecord::destinationOf(u32RecordAddress, u8RecordLength);
    if (destination.memory == HexRecord::ProgramMemory && destination.count > 0)
        return u8WriteToFlash();
    for (unsigned int i = 0; i < destination.count; ++i)
        vProgramPicConfig(u32RecordAddress + i, au8RecordData[i]);
    return 0;
}
