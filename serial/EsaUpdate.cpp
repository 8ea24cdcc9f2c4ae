// The update of the ESA boards: one image at a time, to the boot loader of the selected board, as XMODEM-CRC packets.

#include <QApplication>
#include <QFile>
#include <QFileInfo>
#include <QtDebug>

#include "pic/MemoryMappedPinController.h"
#include "pic/PicPins.h"
#include "screens/UpdaterProgressScreen.h"
#include "serial/TtyHandler.h"
#include "update/UpdatePaths.h"

namespace {

// Commands of the boot loader.
const char enterBootLoader = 'B';
const char receiveApplication = '2';
const char receiveEeprom = '3';

// XMODEM-CRC. The first block has the number 0 here.
const char startOfHeader = 0x01;
const char endOfTransmission = 0x04;
const char acknowledge = 0x06;
const char negativeAcknowledge = 0x15;
const char receiverReady = 'C';
const char padding = 0x1A;
const int blockSize = 128;
const int crcPolynomial = 0x1021;
const int crcTopBit = 0x8000;

// A board may first have to erase its flash; after that it answers within the time of a few blocks.
const int receiverTimeoutMs = 30000;
const int replyTimeoutMs = 10000;

// False when the pin cannot be reached: an image must not go to whichever board happens to be selected.
bool selectBoard(ESA_BOARD_ID board)
{
    const PicPin &pin = esaSelectPin();
    MemoryMappedPinController pinController(pinControlBlock);
    pinController.setDirection(pin.directionRegister, pin.mask, MemoryMappedPinController::PIN_OUTPUT);
    pinController.setValue(pin.outputRegister, pin.mask, board == ESA_IO_BOARD ? 0 : 1);
    return pinController.isMapped();
}

} // namespace

int UpdaterProgressScreen::updateESA(QString fileName, ESA_BOARD_ID board, ESA_UPDATE_TYPE updateType)
{
    connect(m_TtyHandler, SIGNAL(readyRead()), this, SLOT(ESADataReceived()), Qt::UniqueConnection);
    m_EsaUpdateFinished = false;
    m_EsaUpdateSucceeded = false;
    if (!m_AvrUpdateEnabled) {
        appendFailure(tr("Failed - AVR updates not enabled"));
        return -1;
    }

    m_UpdateFileName = UpdatePaths::packageDirectory + fileName;
    if (!QFile::exists(m_UpdateFileName)) {
        qDebug().nospace() << "Failed to find file: " << qPrintable(m_UpdateFileName);
        return -1;
    }
    QFile file(m_UpdateFileName);
    if (!QFileInfo(m_UpdateFileName).isFile() || !file.open(QIODevice::ReadOnly)) { // the open of a FIFO would block
        qDebug().nospace() << "Failed to open ESA file: " << qPrintable(m_UpdateFileName);
        return -1;
    }

    if (!selectBoard(board))
        return -1;
    discardStrayBytes();
    m_EsaFile = &file;
    enterBootLoaderOnce(board);
    m_TtyHandler->sendByteArray(QByteArray(1, updateType == ESA_EEPROM ? receiveEeprom : receiveApplication));
    waitForEndOfEsaUpdate();
    m_TtyHandler->drain(); // the select pin must not move while a byte is on the wire
    m_EsaFile = nullptr;
    return m_EsaUpdateSucceeded ? 0 : -1;
}

/// What arrived before the select pin moved is from the other board or from an earlier transfer, and must not start
/// this one.
void UpdaterProgressScreen::discardStrayBytes()
{
    const QByteArray strayBytes = m_TtyHandler->readAll();
    if (!strayBytes.isEmpty())
        qDebug().nospace() << "unknown received: " << strayBytes.toHex().constData();
}

void UpdaterProgressScreen::enterBootLoaderOnce(ESA_BOARD_ID board)
{
    bool &entered = board == ESA_IO_BOARD ? m_EsaIoBoardEntered : m_EsaMBoardEntered;
    if (!entered)
        m_TtyHandler->sendByteArray(QByteArray(1, enterBootLoader));
    entered = true;
}

/// The transfer itself happens in the slots below, as the board's replies arrive. The loop does not sleep between them,
/// because waking up would lengthen each block. A silence of the board ends with the timer.
void UpdaterProgressScreen::waitForEndOfEsaUpdate()
{
    m_EsaReplyTimer.start(receiverTimeoutMs);
    while (!m_EsaUpdateFinished) {
        QApplication::processEvents(QEventLoop::AllEvents);
        if (!m_EsaUpdateFinished && !m_EsaReplyTimer.isActive()) {
            qDebug() << "ESA board does not answer";
            endEsaUpdate(false);
        }
    }
    m_EsaReplyTimer.stop();
}

void UpdaterProgressScreen::ESADataReceived()
{
    const QByteArray chunk = m_TtyHandler->readAll();
    const bool updateRuns = m_EsaFile != nullptr && !m_EsaUpdateFinished;
    if (chunk.contains(receiverReady) && updateRuns && !m_EsaTransferActive) {
        m_EsaTransferActive = true;
        m_EsaPacketNumber = 0;
        emit ESAUpdateSendNextPacket();
    } else if (m_EsaTransferActive && chunk.contains(acknowledge)) {
        emit ESAUpdateSendNextPacket();
    } else if (m_EsaTransferActive && chunk.contains(negativeAcknowledge)) {
        endEsaUpdate(false);
        qDebug() << "ESA NACK received";
    } else {
        qDebug().nospace() << "unknown received: " << chunk.toHex().constData();
    }
}

void UpdaterProgressScreen::sendNextESAPacket()
{
    if (m_EsaFile->atEnd()) {
        endEsaUpdate(true);
        m_TtyHandler->sendByteArray(QByteArray(1, endOfTransmission));
        qDebug() << "ESA programming finished";
        return;
    }

    QByteArray block = m_EsaFile->read(blockSize);
    if (block.isEmpty()) {
        qDebug().nospace() << "Failed to read ESA file: " << qPrintable(m_UpdateFileName);
        endEsaUpdate(false);
        return;
    }
    m_TtyHandler->sendByteArray(makeEsaPacket(block.leftJustified(blockSize, padding)));
    ++m_EsaPacketNumber;
    m_EsaReplyTimer.start(replyTimeoutMs);
}

QByteArray UpdaterProgressScreen::makeEsaPacket(QByteArray block)
{
    const int crc = calcrc(block.data(), block.size());
    QByteArray packet;
    packet.append(startOfHeader);
    packet.append(static_cast<char>(m_EsaPacketNumber));
    packet.append(static_cast<char>(~m_EsaPacketNumber));
    packet.append(block);
    packet.append(static_cast<char>(crc >> 8));
    packet.append(static_cast<char>(crc));
    return packet;
}

void UpdaterProgressScreen::endEsaUpdate(bool succeeded)
{
    m_EsaUpdateFinished = true;
    m_EsaUpdateSucceeded = succeeded;
    m_EsaTransferActive = false;
}

/// CRC-16/XMODEM: polynomial 0x1021, from 0, most significant bit first.
int UpdaterProgressScreen::calcrc(char *bytes, int length)
{
    int crc = 0;
    for (int index = 0; index < length; ++index) {
        crc ^= static_cast<unsigned char>(bytes[index]) << 8;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & crcTopBit) != 0 ? (crc << 1) ^ crcPolynomial : crc << 1;
        crc &= 0xFFFF;
    }
    return crc;
}
