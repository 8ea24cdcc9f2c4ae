#ifndef SIMULATOR_MODELS_BOARDMONITOR_H
#define SIMULATOR_MODELS_BOARDMONITOR_H

#include <QStringList>
#include <functional>

namespace simulator {

/// The clock of virtual boards and what they report. Time advances only by the accesses of the updater and its waits.
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
    /// The same for the chip `who`, with the time; only the first hundred are recorded.
    void violation(const QString &who, const QString &what)
    {
        if (m_Violations.size() < 100)
            violation(QString::asprintf("%.3f us: ", static_cast<double>(m_Now) / 1000) + who + ": " + what);
    }
    const QStringList &violations() const { return m_Violations; }
    /// A memory has changed: a power cut can be injected here.
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
