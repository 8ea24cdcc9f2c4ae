#include "pic/PicProgrammer.h"

#include <QTimer>

#include "pic/MemoryMappedPinController.h"
#include "pic/PicPins.h"

namespace {

const int resetMilliseconds = 20;

} // namespace

PicProgrammer::PicProgrammer(int picNumber, QObject *)
    : QObject(nullptr),
      pResetTimer(new QTimer),
      pPinController(new MemoryMappedPinController(pinControlBlock)),
      iPicNumber(picNumber)
{
    // The first connections: the target is released before any other receiver of these signals is called.
    connect(this, SIGNAL(endIsp()), this, SLOT(ev_pic_end_isp()));
    connect(this, SIGNAL(eraseDone()), this, SLOT(ev_pic_end_isp()));
    connect(this, SIGNAL(eraseError()), this, SLOT(ev_pic_end_isp()));
    pResetTimer->setInterval(resetMilliseconds);
    pResetTimer->setSingleShot(true);
    connect(pResetTimer, SIGNAL(timeout()), this, SLOT(ev_pic_reset_timer()));
    vRestoreIo();
}

PicProgrammer::~PicProgrammer()
{
    delete pResetTimer;
    delete pPinController;
}

bool PicProgrammer::event(QEvent *event)
{
    if (event->type() != PIC_ERASE_EVENT)
        return QObject::event(event);
    ev_pic_erase_next_block();
    return true;
}

void PicProgrammer::ev_pic_reset(bool startTimer)
{
    holdInReset(pPinController, iPicNumber);
    if (startTimer)
        pResetTimer->start();
}

void PicProgrammer::ev_pic_reset_timer()
{
    vRestoreIo();
}

void PicProgrammer::ev_pic_end_isp()
{
    vRestoreIo();
}
