#ifndef SIMULATOR_REHEARSAL_BOARDREPORT_H
#define SIMULATOR_REHEARSAL_BOARDREPORT_H

#include <QDir>
#include <QMap>
#include <QStringList>

/// What the microcontrollers hold after an update, compared with the payload of the command lines that were for them.
class BoardReport
{
public:
    /// `boards` as recordBoards() wrote it, `package` the unpacked package.
    BoardReport(const QDir &boards, const QDir &package, const QStringList &commandLines);

    /// By the index of the command line.
    const QMap<int, QString> &lines() const { return m_Lines; }
    const QStringList &violations() const { return m_Violations; }
    /// Every payload is where its line wanted it.
    bool isGood() const { return m_Good; }

private:
    struct Payload
    {
        QString path;
        int line = 0;
    };

    void describePic(int number, const Payload &payload);
    bool isConfigurationOf(int number, const QString &hexFile) const;
    void describeEsaMemory(const QString &memory, const Payload &payload);
    void add(const QString &what, const Payload &payload, bool equal);

    QDir m_Boards;
    QDir m_Package;
    QMap<int, QString> m_Lines;
    QStringList m_Violations;
    bool m_Good = true;
};

#endif
