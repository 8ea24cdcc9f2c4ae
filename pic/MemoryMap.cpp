#include "pic/MemoryMap.h"

#include <QDebug>
#include <QFile>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

// A 32-bit off_t cannot hold the address of the pin-control block.
static_assert(sizeof(off_t) == 8, "build with _FILE_OFFSET_BITS=64");

namespace {

int mappingProtection(int protection)
{
    int result = PROT_NONE;
    if (protection & 0x1)
        result |= PROT_READ;
    if (protection & 0x2)
        result |= PROT_WRITE;
    if (protection & 0x4)
        result |= PROT_EXEC;
    return result;
}

} // namespace

MemoryMap::MemoryMap(QString path, int length, int protection, bool shared, int offset)
    : m_Pointer(nullptr), m_MappedLength(length)
{
    const int descriptor = open(QFile::encodeName(path).constData(), O_RDWR);
    if (descriptor < 0) {
        qDebug().nospace() << "failed to open memory map file " << path;
        return;
    }
    const off_t fileOffset = static_cast<unsigned int>(offset);
    void *const address = mmap(nullptr, static_cast<size_t>(length), mappingProtection(protection),
                               shared ? MAP_SHARED : MAP_PRIVATE, descriptor, fileOffset);
    close(descriptor); // the mapping stays
    if (address == MAP_FAILED)
        qDebug().nospace() << "failed to map memory map file " << path;
    else
        m_Pointer = address;
}

MemoryMap::~MemoryMap()
{
    if (m_Pointer)
        munmap(m_Pointer, static_cast<size_t>(m_MappedLength));
}
