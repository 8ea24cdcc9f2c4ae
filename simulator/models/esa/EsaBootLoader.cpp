#include "simulator/models/esa/EsaBootLoader.h"

namespace simulator {

namespace {

const char enterBootLoader = 'B';
const char receiveApplication = '2';
const char receiveEeprom = '3';
const char startOfHeader = 0x01;
const char endOfTransmission = 0x04;
const char acknowledge = 0x06;
const char negativeAcknowledge = 0x15;
const char cancelTransfer = 0x18;
const int headerSize = 3;
const int dataSize = 128;
const int packetSize = headerSize + dataSize + 2;
const int receiveBufferSize = 2; // of the AVR's UART
const char erased = '\xFF';
const char lineNoise = '\xFF';

// A table lookup for each half byte, so that a fault in the sender's calculation is not repeated here.
unsigned int crc16(const QByteArray &data)
{
    static const unsigned int table[] = {0x0000, 0x1021, 0x2042, 0x3063, 0x4084, 0x50A5, 0x60C6, 0x70E7,
                                         0x8108, 0x9129, 0xA14A, 0xB16B, 0xC18C, 0xD1AD, 0xE1CE, 0xF1EF};
    unsigned int crc = 0;
    for (const char signedByte : data) {
        const auto byte = static_cast<unsigned char>(signedByte);
        crc = (crc << 4 & 0xFFFF) ^ table[crc >> 12 ^ byte >> 4];
        crc = (crc << 4 & 0xFFFF) ^ table[crc >> 12 ^ (byte & 0x0F)];
    }
    return crc;
}

// The sum over the data and their sum is 0.
bool isIntact(const QByteArray &packet, int block)
{
    return packet.at(1) == static_cast<char>(block) && packet.at(2) == static_cast<char>(~block) &&
           crc16(packet.mid(headerSize)) == 0;
}

} // namespace

EsaBootLoader::EsaBootLoader(const QString &name, const Times &times)
    : m_Name(name),
      m_Times(times),
      m_Application{{applicationSize, erased}, {}},
      m_Eeprom{{eepromSize, erased}, {}},
      m_Complete(1, 1)
{
    m_Timer.setSingleShot(true);
    m_Timer.setTimerType(Qt::PreciseTimer);
    connect(&m_Timer, &QTimer::timeout, this, &EsaBootLoader::proceed);
}

void EsaBootLoader::keepIn(const QString &folder)
{
    const QString prefix = folder + '/' + QString(m_Name).replace(' ', '-');
    m_Application.bytes.keepIn(prefix + ".application");
    m_Eeprom.bytes.keepIn(prefix + ".eeprom");
    m_Complete.keepIn(prefix + ".complete");
    m_State = m_Complete[0] != 0 ? State::MeasuringProgram : State::Command;
}

void EsaBootLoader::receive(char byte)
{
    if (byte == enterBootLoader && m_State <= State::Command)
        ++m_EntryCount;
    switch (m_State) {
    case State::MeasuringProgram:
        if (byte == enterBootLoader)
            waitIn(State::Start, m_Times.startMs);
        else
            report(byte, "for the measuring program");
        break;
    case State::Start:
        if (m_Waiting.size() < receiveBufferSize)
            m_Waiting += byte;
        else
            report(byte, "for a full receive buffer");
        break;
    case State::Command:
        takeCommand(byte);
        break;
    case State::Preparation:
        report(byte, "before the board asks");
        break;
    default:
        takeTransferByte(byte);
    }
}

/// What the board does when the time of its state is over.
void EsaBootLoader::proceed()
{
    if (m_State == State::Start) {
        m_State = State::Command;
        reach("boot loader");
        for (const char byte : std::exchange(m_Waiting, {}))
            receive(byte);
        return;
    }
    if (m_State == State::Preparation)
        m_State = State::FirstBlock;
    if (isAsking()) {
        emit sends("C");
        m_Timer.start(m_Times.askMs);
    }
}

bool EsaBootLoader::isAsking() const
{
    const bool askingOn = faults.asksOnAfterTheEnd && m_State == State::Command && m_Memory != nullptr;
    return askingOn || (m_State == State::FirstBlock && !faults.silentAfterCommand);
}

void EsaBootLoader::takeCommand(char byte)
{
    if (byte == enterBootLoader)
        return;
    if (byte != receiveApplication && byte != receiveEeprom)
        return report(byte, "as a boot loader command");
    m_Memory = byte == receiveEeprom ? &m_Eeprom : &m_Application;
    m_Memory->image.clear();
    m_StoredSize = 0;
    m_BlockCount = 0;
    m_OutOfStep = faults.silentAfterCommand;
    if (!faults.garbageAfterCommand.isEmpty())
        emit sends(faults.garbageAfterCommand);
    waitIn(State::Preparation, byte == receiveApplication ? m_Times.eraseMs : 0);
    if (byte == receiveApplication) {
        m_Complete[0] = 0;
        m_Application.bytes.fill(erased);
        reach("erase");
    }
}

void EsaBootLoader::takeTransferByte(char byte)
{
    if (m_Packet.isEmpty() && byte == endOfTransmission)
        return takeEnd();
    if (m_Packet.isEmpty() && byte != startOfHeader) {
        if (!m_OutOfStep)
            report(byte, "between blocks");
        return;
    }
    m_State = State::NextBlock;
    m_Packet += byte;
    if (m_Packet.size() == packetSize)
        takePacket(std::exchange(m_Packet, {}));
}

void EsaBootLoader::takePacket(const QByteArray &packet)
{
    const int index = m_BlockCount++;
    const int block = m_StoredSize / dataSize;
    if (!isIntact(packet, block)) {
        report(QString("corrupt packet in place of block %1").arg(block));
        return reject();
    }
    if (index == faults.rejectedBlock)
        return reject();
    if (index == faults.cancelledBlock)
        return cancel();
    if (m_StoredSize == m_Memory->bytes.size()) {
        report(QString("block %1 is beyond the end of the memory").arg(block));
        return cancel();
    }
    m_Memory->bytes.put(m_StoredSize, packet.mid(headerSize, dataSize));
    m_StoredSize += dataSize;
    reach("block");
    m_OutOfStep = index == faults.unansweredBlock;
    if (!m_OutOfStep)
        reply(acknowledge);
    if (index == faults.garbageBlock)
        emit sends(QByteArray(1, lineNoise));
}

void EsaBootLoader::takeEnd()
{
    if (faults.rejectedEnd)
        return reject();
    m_Memory->image = m_Memory->bytes.bytes().left(m_StoredSize);
    if (m_Memory == &m_Application)
        m_Complete[0] = m_StoredSize > 0;
    ++m_TransferCount;
    waitIn(State::Command, 0);
    reach("end");
    reply(acknowledge);
}

void EsaBootLoader::waitIn(State state, int milliseconds)
{
    m_State = state;
    m_Timer.start(milliseconds);
}

void EsaBootLoader::reply(char byte)
{
    emit sends(faults.garbageBeforeReply + byte);
}

/// Waits for the same block, or the end, again, for ever.
void EsaBootLoader::reject()
{
    m_State = State::NextBlock;
    m_OutOfStep = true;
    reply(negativeAcknowledge);
}

void EsaBootLoader::cancel()
{
    m_State = State::Command;
    emit sends(QByteArray(2, cancelTransfer));
}

void EsaBootLoader::reach(const char *what)
{
    emit moment(m_Name + ' ' + what);
}

void EsaBootLoader::report(const QString &text)
{
    emit violation(m_Name + ": " + text);
}

void EsaBootLoader::report(char byte, const char *where)
{
    report(QString::asprintf("byte 0x%02x %s", static_cast<unsigned char>(byte), where));
}

} // namespace simulator
