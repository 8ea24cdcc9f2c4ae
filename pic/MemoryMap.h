#ifndef PIC_MEMORYMAP_H
#define PIC_MEMORYMAP_H

#include <QObject>
#include <QString>

/// A byte range of a device file in the address space of the program, for as long as the object lives.
class MemoryMap : public QObject
{
public:
    /// Maps `length` bytes of the file `path` from the byte `offset` on. Bits 0x1, 0x2 and 0x4 of `protection` allow
    /// reading, writing and execution. A physical address above 2 GiB arrives as a negative `offset` and means the
    /// unsigned 32-bit value. A range that cannot be mapped gives one debug line, and pointer() is null.
    MemoryMap(QString path, int length, int protection, bool shared, int offset);
    ~MemoryMap() override;

    void *pointer() const { return m_Pointer; }
    int mappedLength() const { return m_MappedLength; } ///< as requested, in bytes

private:
    Q_DISABLE_COPY(MemoryMap)

    void *m_Pointer;
    int m_MappedLength;
};

#endif
