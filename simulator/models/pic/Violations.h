#ifndef SIMULATOR_MODELS_PIC_VIOLATIONS_H
#define SIMULATOR_MODELS_PIC_VIOLATIONS_H

#include <QStringList>

namespace simulator {

class VirtualClock;

/// What the updater did that a real chip would not accept, with the time when it did.
class Violations
{
public:
    explicit Violations(const VirtualClock &clock) : m_Clock(clock) {}

    /// `who` suffered `text`. Keeps the first hundred: the rest follow from those.
    void record(const QString &who, const QString &text);
    const QStringList &list() const { return m_List; }

private:
    const VirtualClock &m_Clock;
    QStringList m_List;
};

} // namespace simulator

#endif
