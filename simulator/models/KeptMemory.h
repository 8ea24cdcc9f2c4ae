#ifndef SIMULATOR_MODELS_KEPTMEMORY_H
#define SIMULATOR_MODELS_KEPTMEMORY_H

#include <QByteArray>
#include <QFile>
#include <algorithm>

namespace simulator {

/// A memory of a chip that outlives a power cycle. Its bytes belong to the process until they are kept in a file; then
/// every change is in the file at once, whatever ends the process.
class KeptMemory
{
public:
    KeptMemory(int size, char content) : m_Private(size, content), m_Bytes(m_Private.data()) {}

    /// Goes on with what `fileName` holds; a file that is missing is made of the present content.
    void keepIn(const QString &fileName)
    {
        m_File.setFileName(fileName);
        if (m_File.open(QIODevice::ReadWrite | QIODevice::Unbuffered) && m_File.size() != size())
            m_File.write(m_Private);
        m_Bytes = reinterpret_cast<char *>(m_File.map(0, size())); // shared with the file
        if (m_Bytes == nullptr)
            qFatal("the memory %s cannot be kept", qPrintable(fileName));
    }

    int size() const { return m_Private.size(); }
    unsigned char &operator[](unsigned int index) const { return reinterpret_cast<unsigned char *>(m_Bytes)[index]; }
    QByteArray bytes() const { return QByteArray(m_Bytes, size()); } ///< a copy
    void fill(char value) { std::fill_n(m_Bytes, size(), value); }
    /// Takes as many bytes of `content` as fit.
    void put(int offset, const QByteArray &content)
    {
        std::copy_n(content.begin(), std::min(content.size(), size() - offset), m_Bytes + offset);
    }
    void operator=(const QByteArray &content) { put(0, content); }

private:
    Q_DISABLE_COPY(KeptMemory)

    QByteArray m_Private;
    QFile m_File;
    char *m_Bytes; ///< of m_Private, or of the file
};

} // namespace simulator

#endif
