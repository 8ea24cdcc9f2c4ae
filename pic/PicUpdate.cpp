// The update of one PIC: all PICs into reset, then erase, program and verify the chosen one, shown in percent.

#include <QApplication>
#include <QFileInfo>
#include <QtDebug>
#include <unistd.h>

#include "pic/MemoryMappedPinController.h"
#include "pic/PicPins.h"
#include "pic/PicProgrammer.h"
#include "screens/UpdaterProgressScreen.h"
#include "update/UpdatePaths.h"

namespace {

const unsigned int settleSeconds = 1; // for the boards, after their PICs went into reset

// Only the chosen PIC may listen on the shared lines, and no other may move anything while the instrument is only
// partly updated.
void holdAllPicsInReset()
{
    MemoryMappedPinController pinController(pinControlBlock);
    for (int picNumber = 1; picNumber <= picCount; ++picNumber)
        holdInReset(&pinController, picNumber);
    pinController.setValue(ispEnablePin.outputRegister, ispEnablePin.mask, 1);
}

} // namespace

/// Programs PIC 1 to 4 with the HEX file `fileName` of the package. Returns 0 when it is erased, programmed with the
/// whole file and verified, else -1; for any other number always -1. The file is checked before the first pin moves: a
/// rejected file changes no PIC. At the end the PICs stay as they are: an instrument that is only partly updated must
/// not start to move.
int UpdaterProgressScreen::updatePic(int picNumber, QString fileName)
{
    m_UpdateFileName = UpdatePaths::packageDirectory + fileName;
    if (!QFileInfo(m_UpdateFileName).isFile()) {
        qDebug().nospace() << "Failed to find hex file: " << m_UpdateFileName;
        return -1;
    }
    if (!PicProgrammer::bAcceptsFile(m_UpdateFileName))
        return -1;

    holdAllPicsInReset();
    sleep(settleSeconds);
    PicProgrammer programmer(picNumber, nullptr);
    m_PicProgrammer = &programmer;
    connect(&programmer, SIGNAL(eraseDone()), this, SLOT(picEraseComplete()));
    connect(&programmer, SIGNAL(eraseError()), this, SLOT(picEraseError()));
    connect(&programmer, SIGNAL(lineProgrammed(int)), this, SLOT(picLineProgrammed(int)));
    connect(&programmer, SIGNAL(eraseNextBlock(int)), this, SLOT(blockErased(int)));

    appendLine(tr("Erasing PIC: "));
    appendFirstPercentage();
    programmer.ev_pic_begin_erase();
    while (!programmer.isFinished())
        QApplication::processEvents(QEventLoop::AllEvents);
    m_PicProgrammer = nullptr;
    return programmer.isProgrammed() && mclrPin(picNumber) ? 0 : -1;
}

void UpdaterProgressScreen::picEraseComplete()
{
    appendLine(tr("PIC Erase Complete\nProgramming PIC: "));
    appendFirstPercentage();
    m_PicProgrammer->programPic(m_UpdateFileName);
}

void UpdaterProgressScreen::picEraseError()
{
    appendFailure(tr("PIC Erase Error\n "));
}

void UpdaterProgressScreen::picLineProgrammed(int percentComplete)
{
    replacePercentage(percentComplete);
}

void UpdaterProgressScreen::blockErased(int percentComplete)
{
    replacePercentage(percentComplete);
}
