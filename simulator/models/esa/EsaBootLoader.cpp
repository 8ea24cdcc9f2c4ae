#include "simulator/models/esa/EsaBootLoader.h"

namespace simulator {

namespace {

const char startOfHeader = 0x01;
const char endOfTransmission = 0x04;
const char acknowledge = 0x06;
const char negativeAcknowledge = 0x15;
const int headerSize = 3;
const int dataSize = 128;
const int packetSize = headerSize + dataSize + 2;

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

unsigned int byteAt(const QByteArray &packet, int index)
{
    return static_cast<unsigned char>(packet.at(index));
}

} // namespace

QByteArray EsaBootLoader::receive(char byte)
{
    switch (m_State) {
    case State::MeasuringProgram:
        if (byte == 'B') {
            ++m_EntryCount;
            m_State = State::Command;
        } else {
            report(QString::fromLatin1("byte 0x%1 for the measuring program").arg(static_cast<uchar>(byte), 2, 16));
        }
        return QByteArray();
    case State::Command:
        return takeCommand(byte);
    case State::FirstBlock:
    case State::Block:
        return takeTransferByte(byte);
    }
    return QByteArray();
}

QByteArray EsaBootLoader::ask() const
{
    const bool askingOn = faults.asksOnAfterTheEnd && m_State == State::Command && m_Memory != nullptr;
    const bool waiting = m_State == State::FirstBlock && !faults.silentAfterCommand;
    return waiting || askingOn ? QByteArray("C") : QByteArray();
}

QByteArray EsaBootLoader::takeCommand(char byte)
{
    if (byte != '2' && byte != '3') {
        report(QString::fromLatin1("unknown boot loader command 0x%1").arg(static_cast<uchar>(byte), 2, 16));
        return QByteArray();
    }
    m_Memory = byte == '3' ? &m_Eeprom : &m_Application;
    m_State = State::FirstBlock;
    m_Image.clear();
    m_Packet.clear();
    m_NextBlock = 0;
    m_BlockCount = 0;
    return faults.rubbishAfterCommand + ask();
}

QByteArray EsaBootLoader::takeTransferByte(char byte)
{
    if (m_Packet.isEmpty() && byte == endOfTransmission) {
        *m_Memory = m_Image;
        ++m_TransferCount;
        m_State = State::Command;
        return reply(acknowledge) + ask();
    }
    if (m_Packet.isEmpty() && byte != startOfHeader) {
        report(QString::fromLatin1("byte 0x%1 between blocks").arg(static_cast<uchar>(byte), 2, 16));
        return QByteArray();
    }
    m_State = State::Block;
    m_Packet.append(byte);
    return m_Packet.size() < packetSize ? QByteArray() : takePacket();
}

QByteArray EsaBootLoader::takePacket()
{
    QByteArray packet;
    packet.swap(m_Packet);
    const QByteArray data = packet.mid(headerSize, dataSize);
    const bool sound = byteAt(packet, 1) + byteAt(packet, 2) == 0xFF && byteAt(packet, 1) == m_NextBlock &&
                       crc16(data) == byteAt(packet, packetSize - 2) * 256 + byteAt(packet, packetSize - 1);
    if (!sound)
        report(QString::fromLatin1("unsound packet where block %1 is due").arg(m_NextBlock));
    const int index = m_BlockCount++;
    if (!sound || index == faults.refusedBlock) {
        m_State = State::Command; // the transfer is given up
        return reply(negativeAcknowledge);
    }
    ++m_NextBlock;
    m_Image += data;
    return index == faults.unansweredBlock ? QByteArray() : reply(acknowledge);
}

QByteArray EsaBootLoader::reply(char byte) const
{
    return faults.rubbishBeforeReply + byte;
}

void EsaBootLoader::report(const QString &text)
{
    m_Violations << m_Name + QLatin1String(": ") + text;
}

} // namespace simulator
