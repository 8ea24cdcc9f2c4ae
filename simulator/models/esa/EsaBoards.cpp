#include "simulator/models/esa/EsaBoards.h"

#include <QScopedValueRollback>

#include "simulator/models/pic/VirtualBoards.h"

namespace simulator {

namespace {

const int askIntervalMs = 1000;
const qint64 byteNanoseconds = 86806; // 10 bits at 115200 baud

} // namespace

EsaBoards::EsaBoards(QObject *parent)
    : QObject(parent),
      m_Line(QLatin1String("/dev/ttyAPP1"), nullptr),
      m_IoBoard(QLatin1String("ESA IO board")),
      m_MeasurementBoard(QLatin1String("ESA Measurement board"))
{
    connect(&m_Line, SIGNAL(readyRead()), this, SLOT(receive()));
    connect(&m_AskTimer, SIGNAL(timeout()), this, SLOT(ask()));
    m_AskTimer.start(askIntervalMs);
    VirtualBoards::installed().beforeSelectChange = [this] {
        catchUp();
    };
}

EsaBoards::~EsaBoards()
{
    VirtualBoards::installed().beforeSelectChange = nullptr;
}

void EsaBoards::catchUp()
{
    take(m_Line.readAllSent());
}

void EsaBoards::receive()
{
    take(m_Line.readAll());
}

void EsaBoards::take(const QByteArray &bytes)
{
    if (bytes.isEmpty())
        return;
    VirtualBoards::installed().advance(bytes.size() * byteNanoseconds);
    if (!VirtualBoards::installed().pins().isOutput(VirtualBoards::selectPin))
        m_Violations << QLatin1String("serial bytes while the board select pin is not driven");
    QByteArray replies;
    for (const char byte : bytes)
        replies += selected().receive(byte);
    if (selected().blockCount() == m_UnplugAfter) {
        m_Line.unplug();
        m_AskTimer.stop();
    } else {
        send(replies);
    }
}

void EsaBoards::ask()
{
    if (!m_Sending) // a board does not interrupt itself
        send(selected().ask());
}

EsaBootLoader &EsaBoards::selected()
{
    const bool high = VirtualBoards::installed().pins().isDrivenHigh(VirtualBoards::selectPin);
    return high ? m_MeasurementBoard : m_IoBoard;
}

void EsaBoards::send(const QByteArray &bytes)
{
    if (!m_SplitReplies)
        return m_Line.write(bytes);
    const QScopedValueRollback<bool> sending(m_Sending, true);
    for (const char byte : bytes)
        m_Line.deliver(QByteArray(1, byte));
}

} // namespace simulator
