#ifndef SIMULATOR_MODELS_ESA_ESABOARDS_H
#define SIMULATOR_MODELS_ESA_ESABOARDS_H

#include <QObject>
#include <QStringList>
#include <QTimer>

#include "simulator/models/PseudoTerminal.h"
#include "simulator/models/esa/EsaBootLoader.h"

namespace simulator {

/// The two ESA boards behind the serial port /dev/ttyAPP1. The select pin decides which of them hears and is heard.
class EsaBoards : public QObject
{
    Q_OBJECT

public:
    explicit EsaBoards(QObject *parent);
    ~EsaBoards() override;

    EsaBootLoader &ioBoard() { return m_IoBoard; }
    EsaBootLoader &measurementBoard() { return m_MeasurementBoard; }
    const EsaBootLoader &ioBoard() const { return m_IoBoard; }
    const EsaBootLoader &measurementBoard() const { return m_MeasurementBoard; }
    PseudoTerminal &line() { return m_Line; }

    /// Takes what the program has sent up to now, with what is still on its way.
    void catchUp();

    QStringList violations() const { return m_Violations + m_IoBoard.violations() + m_MeasurementBoard.violations(); }

    // Faults of the line.
    /// The port goes away when the selected board has taken this many blocks.
    void unplugAfter(int blockCount) { m_UnplugAfter = blockCount; }
    /// Each byte of a reply reaches the program by itself, as if it had read between them.
    void splitReplies() { m_SplitReplies = true; }

protected slots:
    void receive();
    void ask();

private:
    EsaBootLoader &selected();
    void take(const QByteArray &bytes);
    void send(const QByteArray &bytes);

    PseudoTerminal m_Line;
    EsaBootLoader m_IoBoard;
    EsaBootLoader m_MeasurementBoard;
    QTimer m_AskTimer;
    QStringList m_Violations;
    int m_UnplugAfter = -1;
    bool m_SplitReplies = false;
    bool m_Sending = false;
};

} // namespace simulator

#endif
