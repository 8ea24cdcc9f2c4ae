#ifndef SIMULATOR_MODELS_BOARDMONITOR_H
#define SIMULATOR_MODELS_BOARDMONITOR_H

#include <QStringList>
#include <functional>

namespace simulator {

/// Who watches virtual boards, and their time, which passes only by what the updater does and by its waits.
class BoardMonitor
{
public:
    qint64 now() const { return m_Now; } ///< nanoseconds since the boards were switched on
    void advance(qint64 nanoseconds) { m_Now += nanoseconds; }

    /// The updater did what real silicon would not accept.
    void violation(const QString &text)
    {
        m_Violations << text;
        if (onViolation)
            onViolation(text);
    }
    /// The same to the chip `who`, now. The first hundred are recorded: the rest follow from those.
    void violation(const QString &who, const QString &what)
    {
        if (m_Violations.size() < 100)
            violation(QString::asprintf("%.3f us: ", static_cast<double>(m_Now) / 1000) + who + ": " + what);
    }
    const QStringList &violations() const { return m_Violations; }
    /// A memory has changed such that a power cut now is interesting.
    void moment(const QString &name)
    {
        if (onMoment)
            onMoment(name);
    }

    std::function<void(const QString &)> onViolation; ///< gets each violation as recorded
    std::function<void(const QString &)> onMoment;

private:
    qint64 m_Now = 0;
    QStringList m_Violations;
};

} // namespace simulator

#endif
