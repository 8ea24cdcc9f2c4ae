#ifndef SIMULATOR_MODELS_ESA_ESABOARDS_H
#define SIMULATOR_MODELS_ESA_ESABOARDS_H

#include "simulator/models/BoardMonitor.h"
#include "simulator/models/PseudoTerminal.h"
#include "simulator/models/esa/EsaBootLoader.h"
#include "simulator/models/esa/SerialWire.h"

namespace simulator {

/// The two ESA boards at the other end of the serial port /dev/ttyAPP1. A byte belongs to the board that the select pin
/// selects when its time on the wire ends. The select pin must not move until the port has been drained of the bytes
/// that were sent.
///
/// Its moments: "esa io boot loader", "esa io erase" (it has begun), "esa io block", "esa io end", and the same with
/// "esa measurement".
class EsaBoards : public QObject, public BoardMonitor
{
    Q_OBJECT

public:
    explicit EsaBoards(QObject *parent);
    ~EsaBoards() override;

    /// Keeps the boards' memories in `folder` and goes on from those that are there: esa-io.application, esa-io.eeprom,
    /// esa-io.complete (one byte, 0 while the application is incomplete), and the same with esa-measurement.
    void keepIn(const QString &folder);

    EsaBootLoader &ioBoard() { return m_IoBoard; }
    EsaBootLoader &measurementBoard() { return m_MeasurementBoard; }
    PseudoTerminal &line() { return m_Line; }

    EsaBootLoader::Times times;
    qint64 byteNanoseconds = 10 * 1000000000LL / 115200;

    // Faults of the line.
    /// The port disappears when the selected board has received this many blocks.
    void unplugAfter(int blockCount) { m_UnplugAfter = blockCount; }
    /// The program reads each byte of a reply by itself.
    void splitReplies() { m_SplitReplies = true; }

private:
    void join(EsaBootLoader *board);
    EsaBootLoader &selected();
    void take(const QByteArray &bytes);
    void pump();
    void drain();
    void selectChanges();

    PseudoTerminal m_Line;
    SerialWire m_ToBoards;
    SerialWire m_ToPort;
    QTimer m_Pump; ///< runs while a byte is on a wire
    EsaBootLoader m_IoBoard;
    EsaBootLoader m_MeasurementBoard;
    bool m_Undrained = false;
    int m_UnplugAfter = -1;
    bool m_SplitReplies = false;
};

} // namespace simulator

#endif
