#include "pic/PicProgrammer.h"

#include <QDebug>
#include <QFile>

namespace {

// Positions in a line, in characters: start code, count, load address, type, data, checksum.
const char startCode = ':';
const int countPosition = 1;
const int addressPosition = 3;
const int typePosition = 7;
const int dataPosition = 9;
const int shortestRecord = 11;

const int startAddressLength = 4;

// About twice the length of the longest record there can be. A longer line is never read whole.
const int longestLine = 1000;

enum HexRecordType {
    HEX_DATA = 0x00,
    HEX_END_OF_FILE = 0x01,
    HEX_EXTENDED_SEGMENT_ADDRESS = 0x02,
    HEX_START_SEGMENT_ADDRESS = 0x03,
    HEX_EXTENDED_LINEAR_ADDRESS = 0x04,
    HEX_START_LINEAR_ADDRESS = 0x05
};

// The part of the target that is programmed from a file.
const unsigned int programMemoryEnd = 0xFFFE;
const unsigned int configurationBegin = 0x300000;
const unsigned int lastConfigurationRecord = 0x30000C;
const unsigned int lastConfigurationByte = 0x30000D;
const unsigned int rowSize = 64;

int hexDigit(char digit)
{
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    if (digit >= 'a' && digit <= 'f')
        return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F')
        return digit - 'A' + 10;
    return -1;
}

// 0 for a field that is cut short or not hexadecimal.
unsigned int hexField(const QByteArray &line, int position, int digits)
{
    unsigned int value = 0;
    for (int i = position; i < position + digits; ++i) {
        const int digit = i < line.size() ? hexDigit(line.at(i)) : -1;
        if (digit < 0)
            return 0;
        value = value * 16 + static_cast<unsigned int>(digit);
    }
    return value;
}

unsigned char hexByte(const QByteArray &line, int position)
{
    return static_cast<unsigned char>(hexField(line, position, 2));
}

unsigned char checksumOf(const QByteArray &line, int checksumPosition)
{
    unsigned int sum = 0;
    for (int position = countPosition; position < checksumPosition; position += 2)
        sum += hexByte(line, position);
    return static_cast<unsigned char>(0x100 - (sum & 0xFF));
}

bool refuse(int lineNumber, const char *reason)
{
    qDebug().nospace() << "hex file refused at line " << lineNumber << ": " << reason;
    return false;
}

// A comment, or the end mark of an old editor: no record, and nothing that was meant to be one.
bool isText(const QByteArray &line)
{
    return !line.trimmed().startsWith(startCode) && hexByte(line, countPosition) == 0;
}

bool isHexadecimal(const QByteArray &line, int begin, int end)
{
    for (int position = begin; position < end; ++position) {
        if (hexDigit(line.at(position)) < 0)
            return false;
    }
    return true;
}

// A record that acts must be all there, and as it was when its checksum was made.
bool isSound(const QByteArray &line, int lineNumber)
{
    const int checksumPosition = dataPosition + 2 * hexByte(line, countPosition);
    const int end = checksumPosition + 2;
    if (line.trimmed().size() < end)
        return refuse(lineNumber, "shorter than its data byte count");
    if (!isHexadecimal(line, countPosition, end))
        return refuse(lineNumber, "a digit that is none");
    const unsigned int computed = checksumOf(line, checksumPosition);
    const unsigned int stated = hexByte(line, checksumPosition);
    if (computed == stated)
        return true;
    qDebug().nospace() << "hex file refused at line " << lineNumber << ": checksum computed: " << computed
                       << ", in the record: " << stated;
    return false;
}

// The bytes count one more a line than text mode delivers: right for CR LF line ends, too many for LF alone.
int percentOf(qint64 bytesConsumed, qint64 fileSize)
{
    return bytesConsumed < fileSize ? static_cast<int>(100 * bytesConsumed / fileSize) : 100;
}

} // namespace

void PicProgrammer::programPic(QString fileName)
{
    delete pHexFile;
    pHexFile = new QFile(fileName);
    bProgrammed = false;
    if (!pHexFile->open(QIODevice::ReadOnly | QIODevice::Text)) {
        qDebug().nospace() << "Failed to open hex file: " << fileName;
        bFinished = true;
        return;
    }
    const qint64 fileSize = pHexFile->size();
    qint64 bytesConsumed = 0;
    int lastPercent = 0;
    u32ExtendedAddress = 0;
    bProgrammed = true;
    for (int lineNumber = 1; !pHexFile->atEnd(); ++lineNumber) {
        const QByteArray line = pHexFile->readLine(longestLine + 2);
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
    if (line.isEmpty())
        return refuse(lineNumber, "cannot be read");
    if (line.size() > longestLine)
        return refuse(lineNumber, "longer than any record");
    if (isText(line))
        return true;
    if (line.trimmed().size() < shortestRecord)
        return refuse(lineNumber, "shorter than any record");

    u8RecordLength = hexByte(line, countPosition);
    switch (hexByte(line, typePosition)) {
    case HEX_DATA:
        return bProgramRecord(line, lineNumber);
    case HEX_EXTENDED_LINEAR_ADDRESS:
        return bSetExtendedAddress(line, lineNumber, 16);
    case HEX_EXTENDED_SEGMENT_ADDRESS:
        return bSetExtendedAddress(line, lineNumber, 4);
    // A data record whose type was damaged must not pass for one of these.
    case HEX_END_OF_FILE:
        return u8RecordLength == 0 || refuse(lineNumber, "end of file with data bytes");
    case HEX_START_SEGMENT_ADDRESS:
    case HEX_START_LINEAR_ADDRESS:
        return u8RecordLength == startAddressLength || refuse(lineNumber, "no start address");
    default:
        return refuse(lineNumber, "unknown record type");
    }
}

bool PicProgrammer::bSetExtendedAddress(const QByteArray &line, int lineNumber, int shift)
{
    if (u8RecordLength != 2)
        return refuse(lineNumber, "no extended address");
    if (!isSound(line, lineNumber))
        return false;
    u32ExtendedAddress = hexField(line, dataPosition, 4) << shift;
    return true;
}

bool PicProgrammer::bProgramRecord(const QByteArray &line, int lineNumber)
{
    if (u8RecordLength > sizeof au8RecordData)
        return refuse(lineNumber, "too many data bytes");
    if (!isSound(line, lineNumber))
        return false;
    if (u8RecordLength == 0)
        return true;
    u32RecordAddress = hexField(line, addressPosition, 4) + u32ExtendedAddress;
    for (int i = 0; i < u8RecordLength; ++i)
        au8RecordData[i] = hexByte(line, dataPosition + 2 * i);
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
    const unsigned int count = u32BytesWritten(u32RecordAddress, u8RecordLength);
    if (count > 0 && u32RecordAddress < configurationBegin)
        return u8WriteToFlash();
    for (unsigned int i = 0; i < count; ++i)
        vProgramPicConfig(u32RecordAddress + i, au8RecordData[i]);
    return 0;
}

unsigned int PicProgrammer::u32BytesWritten(unsigned int address, unsigned int length)
{
    if (quint64(address) + length <= programMemoryEnd)
        return length;
    if (address < configurationBegin || address > lastConfigurationRecord)
        return 0;
    return qMin(length, lastConfigurationByte + 1 - address);
}

// The target takes pairs of bytes at even addresses, at most a row at a time. A record's odd start or end is filled up
// with what the target holds there.
unsigned char PicProgrammer::u8WriteToFlash()
{
    const unsigned int end = u32RecordAddress + u8RecordLength;
    const bool oddStart = u32RecordAddress & 1;
    const bool oddEnd = end & 1;
    unsigned char buffer[sizeof au8RecordData + 2];
    unsigned int length = 0;
    unsigned int address = u32RecordAddress;

    if (oddStart || oddEnd)
        vEnterIspMode();
    if (oddStart) {
        --address;
        vSetCoreAddress(address);
        buffer[length++] = u8ReadNextAddress();
    }
    for (unsigned int i = 0; i < u8RecordLength; ++i)
        buffer[length++] = au8RecordData[i];
    if (oddEnd) {
        vSetCoreAddress(end);
        buffer[length++] = u8ReadNextAddress();
    }

    for (unsigned int offset = 0; offset < length;) {
        const unsigned int chunk = qMin(rowSize - address % rowSize, length - offset);
        vProgramPicFlash(address, static_cast<unsigned char>(chunk), buffer + offset);
        offset += chunk;
        address += chunk;
    }
    return u8VerifyPicRecord();
}
