#ifndef SCREENS_UPDATERPROGRESSSCREEN_H
#define SCREENS_UPDATERPROGRESSSCREEN_H

#include <QString>
#include <QStringList>
#include <QTimer>
#include <QWidget>

#include "screens/ScreenTypes.h"
#include "serial/EsaBoard.h"
#include "ui_UpdaterProgressScreen.h"
#include "update/UpdateLine.h"

class PicProgrammer;
class QFile;
class TtyHandler;

/// What the next press of F1 does.
enum UPDATE_STATE {
    StatePcConnect = 0,   ///< open the PC connection
    StateMemoryStick = 1, ///< mount the memory stick and update
    StateSdCard = 2,      ///< mount the SD card and update
    StateFinished = 3,    ///< go back to the main screen
    StatePcConnected = 4  ///< close the PC connection, mount what the PC wrote to and update
};

/// The second screen: the message window, the function keys below it, and the whole update engine. The members of each
/// step are in the source file of its own folder.
class UpdaterProgressScreen : public QWidget
{
    Q_OBJECT

public:
    UpdaterProgressScreen(QWidget *parent, Qt::WindowFlags flags);

    /// Sends the image `fileName` of the package to `board` as its application or EEPROM. Returns when the update has
    /// ended: 0 when the board has acknowledged every block, else -1.
    int updateESA(QString fileName, ESA_BOARD_ID board, ESA_UPDATE_TYPE updateType);

signals:
    /// Asks for the screen at `newIndex` (ScreenIndex) to be shown.
    void requestChangeScreen(int newIndex);
    /// The board is ready for the next packet.
    void ESAUpdateSendNextPacket();

protected slots:
    /// One step of the update sequence.
    void F1Clicked();
    /// Scrolls the messages up by a line.
    void F3Clicked();
    /// Scrolls the messages down by a line.
    void F4Clicked();
    /// Prepares the sequence for the source `updateType` (UpdateType) and shows its prompt.
    void setUpdateType(int updateType);

    // pic/PicUpdate.cpp: what the programmer of the running PIC line reports
    void picEraseComplete();
    void picEraseError();
    void picLineProgrammed(int percentComplete);
    void blockErased(int percentComplete);

    // serial/EsaUpdate.cpp: the transfer, driven by what the board sends
    void ESADataReceived();
    void sendNextESAPacket();

private:
    // Messages: an appended one is on the display before the call returns, because the next step may block for minutes.
    void showPrompt(const QString &text);
    void appendLine(const QString &text);
    void appendFailure(const QString &text);
    void appendSuccess(const QString &text);
    void appendFirstPercentage();
    void replacePercentage(int percentComplete);
    bool succeeded(int result, const QString &failureText);

    // update/UpdateSequence.cpp: what F1 does
    void openPcConnection();
    void closePcConnection();
    void updateFromExportedStorage();
    bool attachLoopDevice();
    void updateFromMemoryStick();
    void updateFromSdCard();
    bool mountMemoryStick();
    void endSequence(const QString &failureText);

    // update/UpdateRun.cpp: the package on the mounted medium, from finding to cleaning up
    void performUpdate();
    void abandonUpdate(const QString &failureText);
    void cleanUpMedium();
    void detachLoopDevice();

    // update/CommandInterpreter.cpp: update_config, line by line. The bool results are false when a line failed.
    bool processCommandList(QStringList commandLines);
    bool processCommandLine(const UpdateLine &line);
    bool processApp(const UpdateLine &line, const QString &failureText);
    int updateKernel(const QString &fileName);
    void finaliseUpdate();

    // update/Writers.cpp: each runs its tools until the first that fails; 0 when all succeeded, else -1
    int updateSDCARDKernel(QString fileName);
    int updateNANDKernel(QString fileName);
    int updateUbiImage(QString fileName);
    int updateRootfs(QString fileName);
    const char *remountCommand() const;

    // pic/PicUpdate.cpp
    int updatePic(int picNumber, QString fileName);

    // serial/EsaUpdate.cpp
    void discardStrayBytes();
    void enterBootLoaderOnce(ESA_BOARD_ID board);
    void waitForEndOfEsaUpdate();
    void endEsaUpdate(bool succeeded);
    QByteArray makeEsaPacket(QByteArray block);
    int calcrc(char *bytes, int length);

    Ui_UpdaterProgressScreen ui;
    int m_UpdateType = UpdateViaPc;
    int m_UpdateState = StatePcConnect;
    SYSTEM_TYPE m_SystemType = SYSTEM_NAND;
    PicProgrammer *m_PicProgrammer = nullptr; ///< of the running PIC line
    QString m_UpdateFileName;                 ///< of the running PIC line or ESA update, with its path
    QFile *m_EsaFile = nullptr;               ///< the image of the running ESA update
    TtyHandler *m_TtyHandler;
    bool m_EsaTransferActive = false;
    bool m_EsaMBoardEntered = false;  ///< was asked to enter its boot loader; once after each start of the program
    bool m_EsaIoBoardEntered = false; ///< likewise
    bool m_EsaUpdateFinished = false;
    bool m_EsaUpdateSucceeded = false;
    quint8 m_EsaPacketNumber = 0;
    bool m_PicUpdateEnabled;
    bool m_AvrUpdateEnabled;
    QString m_UpdateDrive;
    QString currentDevicePart;         ///< the storage that the PC was last given
    bool m_LoopDeviceAttached = false; ///< by this program, and not yet detached
    QTimer m_EsaReplyTimer;            ///< ends when a board has been silent for too long
};

#endif
