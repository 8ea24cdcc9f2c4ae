#ifndef SIMULATOR_MODELS_KEPTMEMORY_H
#define SIMULATOR_MODELS_KEPTMEMORY_H

#include <QByteArray>
#include <QFile>

namespace simulator {

/// A memory of a chip that outlives a power cycle. Its bytes belong to the process until they are kept in a file; then
/// every change is in the file at once, whatever ends the process.
class KeptMemory
{
public:
    KeptMemory(int size, char content) : m_Private(size, content), m_Bytes(m_Private.data()) {}

    /// Goes on with what `fileName` holds; a file that is missing is made of the present content.
    void keepIn(const QString &fileName);

    char *data() { return m_Bytes; }
    const char *data() const { return m_Bytes; }
    int size() const { return m_Private.size(); }

private:
    Q_DISABLE_COPY(KeptMemory)

    QByteArray m_Private;
    QFile m_File;
    char *m_Bytes; ///< of m_Private, or of the file
};

} // namespace simulator

#endif
