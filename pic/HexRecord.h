#ifndef PIC_HEXRECORD_H
#define PIC_HEXRECORD_H

#include <QByteArray>
#include <QString>

/// A line of an Intel HEX file as a value: a record, a comment, or the reason for rejecting the file.
///
/// A line is a record when its characters from the second on form a record of a known type and the correct length and
/// checksum. Text may follow a record; a second record or a hexadecimal digit may not. Rejected are every other line
/// that begins with ":", a record that lost its ":" or has something before it, a line with NUL bytes, and one that is
/// too long: its bytes would be missing in the PIC. Every other line is a comment.
struct HexRecord
{
    enum Kind { Record, Comment, Rejected };
    enum Type {
        Data = 0x00,
        EndOfFile = 0x01,
        ExtendedSegmentAddress = 0x02,
        StartSegmentAddress = 0x03,
        ExtendedLinearAddress = 0x04,
        StartLinearAddress = 0x05
    };
    /// Where bytes go: nothing is written to any other memory of the PIC.
    enum Memory { NoMemory, ProgramMemory, Configuration };
    struct Destination
    {
        Memory memory;
        unsigned int count; ///< bytes that are written, from the first on
    };

    static const int longestData = 100;  ///< bytes
    static const int longestLine = 1000; ///< characters; the longest record has 521

    /// `line` as it was read, with or without its line end. An empty one stands for a failed read and is rejected.
    explicit HexRecord(const QByteArray &line);

    bool isData() const { return kind == Record && type == Data; }
    bool isExtendedAddress() const;
    /// Of an extended address record: what it adds to the load addresses of the records after it.
    unsigned int extendedAddress() const;

    /// Where `length` bytes at `address`, extended address included, are written.
    static Destination destinationOf(unsigned int address, unsigned int length);

    Kind kind;
    int type;             ///< of a record, as are the next two
    unsigned int address; ///< load address, 16 bits
    QByteArray data;
    QString reason; ///< why the line is rejected
};

#endif
