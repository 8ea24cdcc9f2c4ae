#include "simulator/models/esa/EsaBoards.h"

#include <QThread>

#include "simulator/models/pic/VirtualBoards.h"

namespace simulator {

namespace {

const unsigned long drainPollMicroseconds = 20;

// Characters of 10 bits at the boards' speed, and nothing that would hold them back.
bool isSetForBoards(const struct termios &settings)
{
    return (settings.c_cflag & (CBAUD | CSIZE | PARENB | CSTOPB | CRTSCTS)) == (B115200 | CS8);
}

} // namespace

EsaBoards::EsaBoards(QObject *parent)
    : QObject(parent),
      m_Line("/dev/ttyAPP1", nullptr),
      m_IoBoard("esa io", times),
      m_MeasurementBoard("esa measurement", times)
{
    join(&m_IoBoard);
    join(&m_MeasurementBoard);
    connect(&m_Line, &PseudoTerminal::readyRead, this, [this] { take(m_Line.readAll()); });
    connect(&m_Pump, &QTimer::timeout, this, &EsaBoards::pump);
    m_Line.onDrain = std::bind(&EsaBoards::drain, this);
    VirtualBoards::installed().beforeSelectChange = std::bind(&EsaBoards::selectChanges, this);
}

EsaBoards::~EsaBoards()
{
    VirtualBoards::installed().beforeSelectChange = nullptr;
}

void EsaBoards::join(EsaBootLoader *board)
{
    connect(board, &EsaBootLoader::sends, this, [this, board](const QByteArray &bytes) {
        if (board != &selected())
            return;
        m_ToPort.put(bytes, byteNanoseconds);
        m_Pump.start();
    });
    connect(board, &EsaBootLoader::moment, this, [this](const QString &name) { moment(name); });
    connect(board, &EsaBootLoader::violation, this, [this](const QString &text) { violation(text); });
}

void EsaBoards::keepIn(const QString &folder)
{
    m_IoBoard.keepIn(folder);
    m_MeasurementBoard.keepIn(folder);
}

void EsaBoards::take(const QByteArray &bytes)
{
    if (bytes.isEmpty())
        return;
    VirtualBoards::installed().advance(bytes.size() * byteNanoseconds);
    m_Undrained = true;
    if (!VirtualBoards::installed().pins().isOutput(VirtualBoards::selectPin))
        violation("serial bytes while the board select pin is not driven");
    if (isSetForBoards(m_Line.settings()))
        m_ToBoards.put(bytes, byteNanoseconds);
    else
        violation("serial bytes at settings other than 115200 baud, 8 data bits, no parity, one stop bit");
    pump();
}

/// Takes the bytes whose time on the wire has ended off both ends.
void EsaBoards::pump()
{
    for (const char byte : m_ToBoards.takeArrived())
        selected().receive(byte);
    if (selected().blockCount() == m_UnplugAfter) {
        m_Line.unplug();
        m_ToPort.clear();
    }
    if (!m_SplitReplies)
        m_Line.write(m_ToPort.takeArrived());
    else if (m_Line.isRead())
        m_Line.write(m_ToPort.takeArrived(1));
    if (m_ToBoards.isEmpty() && m_ToPort.isEmpty())
        m_Pump.stop();
    else if (!m_Pump.isActive())
        m_Pump.start();
}

void EsaBoards::drain()
{
    take(m_Line.readAllSent());
    for (; !m_ToBoards.isEmpty(); pump())
        QThread::usleep(drainPollMicroseconds);
    m_Undrained = false;
}

/// What the old board still sends is lost. One that asks did so just before this, the worst moment for the program.
void EsaBoards::selectChanges()
{
    take(m_Line.readAllSent());
    if (m_Undrained)
        violation("the board select pin moves before the port is drained");
    m_Undrained = false;
    m_ToPort.clear();
    if (selected().isAsking())
        m_Line.write("C");
}

EsaBootLoader &EsaBoards::selected()
{
    const bool high = VirtualBoards::installed().pins().isDrivenHigh(VirtualBoards::selectPin);
    return high ? m_MeasurementBoard : m_IoBoard;
}

} // namespace simulator
