#ifndef PIC_PICPROGRAMMER_H
#define PIC_PICPROGRAMMER_H

#include <QByteArray>
#include <QEvent>
#include <QObject>
#include <QString>

#include "pic/PicDelay.h"

class MemoryMappedPinController;
class QTimer;
struct PicPin;

/// What the erase phase posts to its programmer: check the next block.
const QEvent::Type PIC_ERASE_EVENT = QEvent::User;

/// Programs one PIC18F4620, 4680, 4682 or 4685 in circuit from an Intel HEX file: ev_pic_begin_erase() erases and
/// blank-checks it while the event loop runs, after eraseDone() programPic() writes and verifies the file. One
/// programmer object executes one such run.
///
/// The target never answers a command: an absent or faulty one shows only in the blank check, the verify and the wait
/// for a write of the EEPROM. Operations that "enter" call vEnterIspMode(), whatever the target was doing; the others
/// that talk to the target need programming mode on entry. Only vRestoreIo() and ev_pic_reset() end it.
class PicProgrammer : public QObject
{
    Q_OBJECT

public:
    /// Gives the PIC `picNumber` (1 to 4; no reset line moves for any other number) a reset pulse and lets it run.
    /// `parent` is not used.
    PicProgrammer(int picNumber, QObject *parent);
    ~PicProgrammer() override;

    bool event(QEvent *event) override;

    // PicProgrammer.cpp: the run

    /// The run has ended.
    bool isFinished() const { return bFinished; }
    /// Valid after isFinished(): the run has programmed the whole file.
    bool isProgrammed() const { return bProgrammed; }
    /// Holds the PIC in reset, for 20 ms if `startTimer`.
    void ev_pic_reset(bool startTimer);

    // PicProgrammerHex.cpp: the file

    /// Reads the whole file. False, and one debug line with the reason, when it cannot be opened, has a line that is
    /// rejected (HexRecord), or holds no byte that would be written.
    static bool bAcceptsFile(const QString &fileName);
    /// Enters, programs and verifies the whole file before it returns. Stops, with the reason in debug lines, at the
    /// first record that does not verify, and before the first line that is rejected (HexRecord).
    void programPic(QString fileName);
    /// Enters, writes the current record to where its address belongs and verifies it if that is program memory. 0, or
    /// 1 when the verify fails.
    unsigned char u8PicWriteRecord();

    // PicProgrammerMemory.cpp: the target's memories, in the order in which a run erases, programs and verifies

    /// Enters, erases the boot block and all code blocks of a 64 KiB device and posts the first blank check to itself.
    /// Configuration bytes and EEPROM stay.
    void ev_pic_begin_erase();
    /// Blank-checks the next 512 bytes and posts the next check, or ends the erase phase.
    void ev_pic_erase_next_block();
    /// Erases the region that the two keys select.
    void vPicBulkErase(unsigned char keyHigh, unsigned char keyLow);
    /// True when the 512 bytes from `address` on are all erased.
    unsigned char u8PicBlankCheck(unsigned int address);
    /// Enters and writes `length` bytes inside one 64-byte row; `address` and `length` are even.
    void vProgramPicFlash(unsigned int address, unsigned char length, unsigned char *data);
    /// Enters and writes one configuration byte.
    void vProgramPicConfig(unsigned int address, unsigned char value);
    /// Enters and compares the current record with the target. 0, or 1 and u32VerifyAddress, u8VerifyCorrect and
    /// u8VerifyActual.
    unsigned char u8VerifyPicRecord();
    // Not used by the updater, up to ev_pic_read():
    /// Enters, reads device id and configuration bytes, restores; returns the id.
    unsigned short u16ReadPic();
    /// Reads 16 bytes of program memory into au8ReadPicData.
    void vReadPicRecord(unsigned int address);
    /// Reads the configuration bytes into au8DeviceConfig.
    void vReadDeviceConfig();
    /// Enters and reads a byte of data EEPROM.
    unsigned char u8ReadPicEeprom(unsigned short address);
    /// Enters, writes a byte of data EEPROM and waits for the target. False when the target's write-in-progress bit
    /// is still set after more than 10 ms; a write takes about 4 ms.
    bool vWritePicEeprom(unsigned short address, unsigned char value);
    /// Enters and reads EEPROM bytes 0 to 15 into au8ReadPicData.
    void vReadEepromBlock();
    /// Enters and reads the whole data EEPROM into au8EepromCopy.
    void vGetEepromCopy();
    /// Enters and writes au8EepromCopy back. False at the first byte whose write does not end; the bytes after it stay.
    bool vRestoreEeprom();
    /// Enters and erases 512 bytes of program memory from `address` on, row by row.
    void vEraseProgramMemory(unsigned int address);
    /// Enters, reads device id and configuration, 16 bytes of program memory and then 16 of EEPROM, which replace them
    /// in au8ReadPicData. Leaves the target in programming mode.
    void ev_pic_read();

    // PicProgrammerLink.cpp: bits on the wires

    /// Puts the PIC into programming mode, from reset.
    void vEnterIspMode();
    void vReleaseMclr();
    /// Loads the target's 22-bit table pointer.
    void vSetCoreAddress(unsigned int address);
    /// Reads the byte at the table pointer and moves the pointer on.
    unsigned char u8ReadNextAddress();
    /// The command part of the programming NOP: holds its fourth clock high while the target programs.
    void vProgramFlashCmd();
    /// Sends the low 4 bits of `command`.
    void vWriteCmd(unsigned char command);
    void vWriteByte(unsigned char value);
    unsigned char u8ReadByte();
    void vGeneralDelay(PIC_DELAY delay);
    /// Gives the PIC a reset pulse and lets it run.
    void vRestoreIo();
    unsigned short u16ReadDeviceId();
    /// Is it the id of a PIC18F4620?
    static unsigned char u8ValidPicId(unsigned short id);
    /// Device and revision in words. The next call overwrites the text.
    static QString *pGetPicIdStr(unsigned short id);

signals:
    /// A block is blank, and others are still to be checked: 0 to 99 percent of them are done.
    void eraseNextBlock(int percentDone);
    /// Every block is blank. The PIC is released before the receivers connected later are called.
    void eraseDone();
    /// A block is not blank. The PIC is released likewise, and the run is finished when the signal returns.
    void eraseError();
    /// Releases the PIC. Nothing emits it.
    void endIsp();
    /// Sent whenever the share of the file that is programmed and verified changes: 1 to 100 percent.
    void lineProgrammed(int percentComplete);

protected slots:
    void ev_pic_reset_timer();
    void ev_pic_end_isp();

private:
    bool bProgramLine(const QByteArray &line, int lineNumber);

    unsigned char u8WriteToFlash();
    void vSetEepromAddress(unsigned short address);
    unsigned char u8ReadTablat();

    void vWriteCore(unsigned short instruction);
    void vWriteOperand(unsigned char first, unsigned char second);
    void vWriteBit(unsigned char bit);
    void vSetMclr(unsigned char value);
    void vSetPin(const PicPin &pin, unsigned char value);

    unsigned char au8RecordData[100] = {};
    unsigned char u8RecordLength = 0;
    unsigned int u32RecordAddress = 0;
    unsigned int u32EraseAddress = 0;
    QTimer *pResetTimer;
    MemoryMappedPinController *pPinController;
    int iPicNumber;
    unsigned int u32ExtendedAddress = 0;
    bool bFinished = false;
    bool bProgrammed = false;
};

// What the reading operations left, whichever programmer object did it.
extern unsigned char au8EepromCopy[1024];
extern unsigned char au8ReadPicData[16];
extern unsigned char au8DeviceConfig[16];
extern unsigned short u16DeviceId; ///< of the last ev_pic_read()
extern unsigned int u32VerifyAddress;
extern unsigned char u8VerifyCorrect;
extern unsigned char u8VerifyActual;

#endif
