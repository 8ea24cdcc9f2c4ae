#include "pic/HexRecord.h"

#include "pic/PicMemoryMap.h"

namespace {

// A record, in characters: start code, count, load address, type, data, checksum.
const char startCode = ':';
const int countPosition = 1;
const int shortestRecord = 11;

// Positions in the bytes of a record.
const int addressByte = 1;
const int typeByte = 3;
const int firstDataByte = 4;

const char byteOrderMark[] = "\xEF\xBB\xBF";

bool isHexadecimal(const QByteArray &text)
{
    return QByteArray::fromHex(text).toHex() == text.toLower();
}

// Without blanks, line end and DOS end-of-file mark (0x1A) around it.
QByteArray trimmed(const QByteArray &line)
{
    return QByteArray(line).replace('\x1A', ' ').trimmed();
}

unsigned int byteAt(const QByteArray &bytes, int index)
{
    return static_cast<unsigned char>(bytes.at(index));
}

unsigned int checksumOf(const QByteArray &bytes)
{
    unsigned int sum = 0;
    for (int index = 0; index < bytes.size(); ++index)
        sum += byteAt(bytes, index);
    return (0x100 - (sum & 0xFF)) & 0xFF;
}

/// A record read by its positions: its first character, the start code, is not examined.
struct Positions
{
    explicit Positions(const QByteArray &text);

    QByteArray bytes; ///< from the count to the checksum
    int end = 0;      ///< position after the record
    QString reason;   ///< why there is no record; empty when there is one
};

Positions::Positions(const QByteArray &text)
{
    const QByteArray count = text.mid(countPosition, 2);
    if (text.size() < shortestRecord) {
        reason = QLatin1String("shorter than any record");
        return;
    }
    if (isHexadecimal(count))
        end = shortestRecord + 2 * static_cast<int>(byteAt(QByteArray::fromHex(count), 0));
    if (text.size() < end) {
        reason = QLatin1String("shorter than its data byte count");
        return;
    }
    const QByteArray digits = text.mid(countPosition, end - countPosition);
    if (end == 0 || !isHexadecimal(digits)) {
        reason = QLatin1String("not a hexadecimal digit");
        return;
    }
    bytes = QByteArray::fromHex(digits);
    const unsigned int stated = byteAt(bytes, bytes.size() - 1);
    const unsigned int computed = checksumOf(bytes.left(bytes.size() - 1));
    if (computed != stated)
        reason = QString::fromLatin1("checksum computed: %1, in the record: %2").arg(computed).arg(stated);
}

bool beginsWithRecord(const QByteArray &text)
{
    return Positions(text).reason.isEmpty();
}

bool holdsRecordAfterItsStart(const QByteArray &text)
{
    for (int position = text.indexOf(startCode); position >= 0; position = text.indexOf(startCode, position + 1)) {
        if (beginsWithRecord(text.mid(position)))
            return true;
    }
    return false;
}

// Why a line that is not a record is rejected; empty for a comment.
QString reasonOfText(const QByteArray &line)
{
    QByteArray text = trimmed(line);
    if (text.startsWith(byteOrderMark))
        text = trimmed(text.mid(static_cast<int>(qstrlen(byteOrderMark))));
    if (text.startsWith(startCode) || holdsRecordAfterItsStart(text))
        return QLatin1String("something before the ':' of a record");
    if (beginsWithRecord(startCode + text))
        return QLatin1String("a record without its ':'");
    return QString();
}

// A data record whose type was corrupted must not pass for a record of another type.
QString reasonOfType(int type, int length)
{
    switch (type) {
    case HexRecord::Data:
        return length <= HexRecord::longestData ? QString() : QLatin1String("more than 100 data bytes");
    case HexRecord::EndOfFile:
        return length == 0 ? QString() : QLatin1String("end-of-file record with data bytes");
    case HexRecord::ExtendedSegmentAddress:
    case HexRecord::ExtendedLinearAddress:
        return length == 2 ? QString() : QLatin1String("extended address record without 2 data bytes");
    case HexRecord::StartSegmentAddress:
    case HexRecord::StartLinearAddress:
        return length == 4 ? QString() : QLatin1String("start address record without 4 data bytes");
    default:
        return QLatin1String("unknown record type");
    }
}

QString reasonOfRecord(const QByteArray &bytes, const QByteArray &rest)
{
    if (beginsWithRecord(rest) || !reasonOfText(rest).isEmpty())
        return QLatin1String("a second record on the line");
    if (!rest.isEmpty() && isHexadecimal(rest.left(1) + '0'))
        return QLatin1String("a hexadecimal digit after the checksum");
    return reasonOfType(static_cast<int>(byteAt(bytes, typeByte)), static_cast<int>(byteAt(bytes, 0)));
}

QString reasonOfLine(const QByteArray &line)
{
    if (line.isEmpty())
        return QLatin1String("cannot be read");
    if (line.size() > HexRecord::longestLine)
        return QLatin1String("longer than any record");
    if (line.contains('\0'))
        return QLatin1String("NUL byte");
    return QString();
}

} // namespace

HexRecord::HexRecord(const QByteArray &line) : kind(Comment), type(Data), address(0), reason(reasonOfLine(line))
{
    QByteArray text = line;
    while (!text.isEmpty() && trimmed(text.right(1)).isEmpty())
        text.chop(1);
    const Positions record(text);
    const bool isRecord = record.reason.isEmpty();
    if (reason.isEmpty() && !isRecord)
        reason = text.startsWith(startCode) ? record.reason : reasonOfText(text);
    else if (reason.isEmpty())
        reason = reasonOfRecord(record.bytes, text.mid(record.end));

    if (!reason.isEmpty()) {
        kind = Rejected;
    } else if (isRecord) {
        kind = Record;
        type = static_cast<int>(byteAt(record.bytes, typeByte));
        address = byteAt(record.bytes, addressByte) * 0x100 + byteAt(record.bytes, addressByte + 1);
        data = record.bytes.mid(firstDataByte, record.bytes.size() - firstDataByte - 1);
    }
}

bool HexRecord::isExtendedAddress() const
{
    return kind == Record && (type == ExtendedSegmentAddress || type == ExtendedLinearAddress);
}

unsigned int HexRecord::extendedAddress() const
{
    const unsigned int value = byteAt(data, 0) * 0x100 + byteAt(data, 1);
    return value << (type == ExtendedSegmentAddress ? 4 : 16);
}

HexRecord::Destination HexRecord::destinationOf(unsigned int address, unsigned int length)
{
    if (quint64(address) + length <= PicMemoryMap::programMemoryEnd)
        return {ProgramMemory, length};
    if (address < PicMemoryMap::configurationBegin || address > PicMemoryMap::lastConfigurationRecord)
        return {NoMemory, 0};
    return {Configuration, qMin(length, PicMemoryMap::lastConfigurationByte + 1 - address)};
}
