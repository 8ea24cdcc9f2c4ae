#ifndef SIMULATOR_MODELS_PIC_BOARDMONITOR_H
#define SIMULATOR_MODELS_PIC_BOARDMONITOR_H

#include <QStringList>
#include <functional>

namespace simulator {

/// What the virtual boards share: the time, which passes only by what the updater does to its pins and by its waits,
/// and those who watch the boards.
class BoardMonitor
{
public:
    qint64 now() const { return m_Now; } ///< nanoseconds since the boards were switched on
    void advance(qint64 nanoseconds) { m_Now += nanoseconds; }

    /// What the updater did to the chip `who` that real silicon would not accept. The first hundred are recorded: the
    /// rest follow from those.
    void violation(const QString &who, const QString &what)
    {
        if (m_Violations.size() == mostRecorded)
            return;
        const QString microseconds = QString::number(static_cast<double>(m_Now) / 1000, 'f', 3);
        m_Violations << QString::fromLatin1("%1 us: %2: %3").arg(microseconds, who, what);
        if (onViolation)
            onViolation(m_Violations.last());
    }
    const QStringList &violations() const { return m_Violations; }
    /// A memory has changed such that a power cut now is interesting.
    void moment(const QString &name)
    {
        if (onMoment)
            onMoment(name);
    }

    std::function<void(const QString &)> onViolation; ///< gets each violation as recorded
    std::function<void(const QString &)> onMoment;    ///< gets "pic N erase", "pic N row" and so on

private:
    static const int mostRecorded = 100;

    qint64 m_Now = 0;
    QStringList m_Violations;
};

} // namespace simulator

#endif
