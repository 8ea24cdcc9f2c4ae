#include "pic/HexRecord.h"

#include "pic/PicMemoryMap.h"

namespace {

// Positions in a record, in characters: start code, count, load address, type, data, checksum.
const char startCode = ':';
const int countPosition = 1;
const int dataPosition = 9;
const int shortestRecord = 11;

// Positions in the bytes of a record.
const int addressByte = 1;
const int typeByte = 3;
const int firstDataByte = 4;

const char byteOrderMark[] = "\xEF\xBB\xBF";

bool isHexadecimal(const QByteArray &text)
{
    for (const char digit : text) {
        const bool decimal = digit >= '0' && digit <= '9';
        if (!decimal && !(digit >= 'a' && digit <= 'f') && !(digit >= 'A' && digit <= 'F'))
            return false;
    }
    return true;
}

// Blanks, the line end and the end mark of DOS.
QByteArray withoutTail(const QByteArray &line)
{
    int end = line.size();
    while (end > 0 && QByteArray(" \t\r\n\v\f\x1A").contains(line.at(end - 1)))
        --end;
    return line.left(end);
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

// Exactly one record that has lost its start code.
bool isRecordWithoutStartCode(const QByteArray &text)
{
    const Positions record(startCode + text);
    return record.reason.isEmpty() && record.end == text.size() + 1;
}

bool holdsRecordAfterItsStart(const QByteArray &text)
{
    for (int position = text.indexOf(startCode); position >= 0; position = text.indexOf(startCode, position + 1)) {
        if (beginsWithRecord(text.mid(position)))
            return true;
    }
    return false;
}

// What is wrong with a line that is not a record; empty for a comment.
QString reasonOfText(const QByteArray &line)
{
    QByteArray text = line.trimmed();
    if (text.startsWith(byteOrderMark))
        text = text.mid(static_cast<int>(qstrlen(byteOrderMark))).trimmed();
    if (text.startsWith(startCode) || holdsRecordAfterItsStart(text))
        return QLatin1String("something before the ':' of a record");
    if (isRecordWithoutStartCode(text))
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

bool isSecondRecord(const QByteArray &rest)
{
    const QByteArray text = rest.trimmed();
    return text.startsWith(startCode) || isRecordWithoutStartCode(text) || holdsRecordAfterItsStart(text);
}

QString reasonOfRecord(const QByteArray &bytes, const QByteArray &rest)
{
    if (isSecondRecord(rest))
        return QLatin1String("a second record on the line");
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
    const QByteArray text = withoutTail(line);
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
