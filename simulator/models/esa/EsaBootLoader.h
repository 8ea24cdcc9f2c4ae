#ifndef SIMULATOR_MODELS_ESA_ESABOOTLOADER_H
#define SIMULATOR_MODELS_ESA_ESABOOTLOADER_H

#include <QTimer>

#include "simulator/models/KeptMemory.h"

namespace simulator {

/// The AVR of one ESA board as the serial line sees it: its measuring program, which the entry byte ends, then its boot
/// loader, which receives an image for one of two memories as an XMODEM-CRC receiver whose blocks are counted from 0.
class EsaBootLoader : public QObject
{
    Q_OBJECT

public:
    static const int applicationSize = 120 * 1024; ///< 128 KiB of flash without the boot loader's section
    static const int eepromSize = 4 * 1024;

    struct Times
    {
        int startMs = 100;  ///< from the entry byte to the boot loader's first look at the line
        int eraseMs = 2000; ///< of the application
        int askMs = 1000;   ///< between two requests for the first block
    };

    /// What the board does wrong, by the index of a block since the start of the transfer; nothing while it is
    /// negative.
    struct Faults
    {
        int rejectedBlock = -1;          ///< answered with NAK although it is intact
        int unansweredBlock = -1;        ///< stored, but the reply is lost
        int cancelledBlock = -1;         ///< answered with CAN, which ends the transfer
        int garbageBlock = -1;           ///< its reply is followed by a byte that means nothing
        bool rejectedEnd = false;        ///< the end of the transfer is answered with NAK
        bool silentAfterCommand = false; ///< never asks for a transfer
        bool asksOnAfterTheEnd = false;  ///< keeps asking when the transfer has ended
        QByteArray garbageAfterCommand;  ///< comes before the board asks for the first block
        QByteArray garbageBeforeReply;
    };

    /// `name` is the board's in moments and violations, and with a "-" that of its files; `times` may change later.
    EsaBootLoader(const QString &name, const Times &times);

    /// Goes on from the memories in `folder`, as after a power cycle.
    void keepIn(const QString &folder);

    void receive(char byte);
    bool isAsking() const;

    /// The image of the last transfer, padding included; empty until its end.
    QByteArray application() const { return m_Application.image; }
    QByteArray eeprom() const { return m_Eeprom.image; }
    int entryCount() const { return m_EntryCount; }       ///< entry bytes that were received
    int transferCount() const { return m_TransferCount; } ///< complete transfers
    int blockCount() const { return m_BlockCount; }       ///< received in the last transfer

    Faults faults;

signals:
    void sends(const QByteArray &bytes);
    void moment(const QString &name);
    void violation(const QString &text);

private:
    enum class State { MeasuringProgram, Start, Command, Preparation, FirstBlock, NextBlock };

    struct Memory
    {
        KeptMemory bytes;
        QByteArray image;
    };

    void proceed();
    void takeCommand(char byte);
    void takeTransferByte(char byte);
    void takePacket(const QByteArray &packet);
    void takeEnd();
    void waitIn(State state, int milliseconds);
    void reply(char byte);
    void reject();
    void cancel();
    void reach(const char *what);
    void report(const QString &text);
    void report(char byte, const char *where);

    const QString m_Name;
    const Times &m_Times;
    State m_State = State::MeasuringProgram;
    QTimer m_Timer;
    Memory m_Application;
    Memory m_Eeprom;
    KeptMemory m_Complete;      ///< one byte, not 0 when the flash holds an application
    Memory *m_Memory = nullptr; ///< that the transfer is for
    QByteArray m_Waiting;       ///< in the receive buffer
    QByteArray m_Packet;
    int m_StoredSize = 0;     ///< of the image that is received
    bool m_OutOfStep = false; ///< the board has given the updater reason to end the transfer by itself
    int m_BlockCount = 0;
    int m_EntryCount = 0;
    int m_TransferCount = 0;
};

} // namespace simulator

#endif
