#include "simulator/models/KeptMemory.h"

namespace simulator {

void KeptMemory::keepIn(const QString &fileName)
{
    m_File.setFileName(fileName);
    if (!m_File.open(QIODevice::ReadWrite | QIODevice::Unbuffered))
        qFatal("the memory %s cannot be kept", qPrintable(fileName));
    if (m_File.size() != size())
        m_File.write(m_Private);
    m_Bytes = reinterpret_cast<char *>(m_File.map(0, size())); // shared with the file
    if (m_Bytes == nullptr)
        qFatal("the memory %s cannot be mapped", qPrintable(fileName));
}

} // namespace simulator
