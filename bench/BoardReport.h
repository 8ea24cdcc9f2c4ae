#ifndef BENCH_BOARDREPORT_H
#define BENCH_BOARDREPORT_H

#include <QDir>
#include <QStringList>

/// What the microcontrollers hold after an update, compared with the payload of the command lines that were for them.
class BoardReport
{
public:
    /// `boards` as recordBoards() wrote it, `package` the unpacked package.
    BoardReport(const QDir &boards, const QDir &package, const QStringList &commandLines);

    const QStringList &lines() const { return m_Lines; }
    const QStringList &violations() const { return m_Violations; }
    /// Every payload is where its line wanted it.
    bool isGood() const { return m_Good; }

private:
    void describePic(int number, const QString &payload);
    bool isConfigurationOf(int number, const QString &hexFile) const;
    void describeEsaMemory(const QString &memory, const QString &payload);
    void add(const QString &what, const QString &payload, bool equal);

    QDir m_Boards;
    QDir m_Package;
    QStringList m_Lines;
    QStringList m_Violations;
    bool m_Good = true;
};

#endif
