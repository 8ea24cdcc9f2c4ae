#ifndef SIMULATOR_MODELS_ESA_ESABOOTLOADER_H
#define SIMULATOR_MODELS_ESA_ESABOOTLOADER_H

#include <QByteArray>
#include <QString>
#include <QStringList>

namespace simulator {

/// The AVR of one ESA board as the serial line sees it: its measuring program, which the entry byte ends, then its boot
/// loader, which takes an image for one of two memories as an XMODEM-CRC receiver whose blocks are counted from 0.
class EsaBootLoader
{
public:
    /// What the board does wrong, by the index of a block since the start of the transfer; none while it is negative.
    struct Faults
    {
        int refusedBlock = -1;           ///< answered with NAK although it is sound
        int unansweredBlock = -1;        ///< taken, but the reply is lost
        bool silentAfterCommand = false; ///< never asks for a transfer
        bool asksOnAfterTheEnd = false;  ///< keeps asking when the transfer is over
        QByteArray rubbishAfterCommand;  ///< comes before the board asks for the first block
        QByteArray rubbishBeforeReply;   ///< comes with every reply, in front of it
    };

    explicit EsaBootLoader(const QString &name) : m_Name(name) {}

    /// Takes a byte from the line; returns what the board sends in answer.
    QByteArray receive(char byte);
    /// What a receiver that waits for the first block repeats every second; empty at any other time.
    QByteArray ask() const;

    /// The image that was last received to its end, with the padding as it was sent.
    const QByteArray &application() const { return m_Application; }
    const QByteArray &eeprom() const { return m_Eeprom; }
    int entryCount() const { return m_EntryCount; }
    int transferCount() const { return m_TransferCount; } ///< that came to their end
    int blockCount() const { return m_BlockCount; }       ///< of the transfer that runs or ran last
    const QStringList &violations() const { return m_Violations; }

    Faults faults;

private:
    enum class State { MeasuringProgram, Command, FirstBlock, Block };

    QByteArray takeCommand(char byte);
    QByteArray takeTransferByte(char byte);
    QByteArray takePacket();
    QByteArray reply(char byte) const;
    void report(const QString &text);

    QString m_Name;
    State m_State = State::MeasuringProgram;
    QByteArray *m_Memory = nullptr; ///< that the transfer is for
    QByteArray m_Packet;
    QByteArray m_Image;
    unsigned char m_NextBlock = 0;
    int m_BlockCount = 0;
    int m_EntryCount = 0;
    int m_TransferCount = 0;
    QByteArray m_Application;
    QByteArray m_Eeprom;
    QStringList m_Violations;
};

} // namespace simulator

#endif
