#include "screens/UpdaterProgressScreen.h"

#include <QScrollBar>
#include <QSettings>
#include <QtDebug>

#include "platform/Qt5.h"
#include "serial/TtyHandler.h"

UpdaterProgressScreen::UpdaterProgressScreen(QWidget *parent, Qt::WindowFlags flags)
    : QWidget(parent, flags), m_EsaReplyTimer(this)
{
    ui.setupUi(this);

    connect(ui.F1Button, SIGNAL(clicked()), this, SLOT(F1Clicked()));
    connect(ui.F3Button, SIGNAL(clicked()), this, SLOT(F3Clicked()));
    connect(ui.F4Button, SIGNAL(clicked()), this, SLOT(F4Clicked()));

    m_EsaReplyTimer.setSingleShot(true);
    makePrecise(&m_EsaReplyTimer);

    const QSettings settings;
    m_PicUpdateEnabled = settings.value(QLatin1String("PicEnable"), false).toBool();
    m_AvrUpdateEnabled = settings.value(QLatin1String("AvrEnable"), false).toBool();
    qDebug().nospace() << "\nm_PicUpdateEnabled: " << m_PicUpdateEnabled
                       << "\nm_AvrUpdateEnabled: " << m_AvrUpdateEnabled;

    m_TtyHandler = new TtyHandler(QLatin1String("/dev/ttyAPP1"), this);
    connect(this, SIGNAL(ESAUpdateSendNextPacket()), this, SLOT(sendNextESAPacket()));
}

void UpdaterProgressScreen::F3Clicked()
{
    ui.progressMessageWindow->verticalScrollBar()->triggerAction(QAbstractSlider::SliderSingleStepSub);
}

void UpdaterProgressScreen::F4Clicked()
{
    ui.progressMessageWindow->verticalScrollBar()->triggerAction(QAbstractSlider::SliderSingleStepAdd);
}

void UpdaterProgressScreen::showPrompt(const QString &text)
{
    ui.progressMessageWindow->setText(text);
}

void UpdaterProgressScreen::appendLine(const QString &text)
{
    ui.progressMessageWindow->append(text);
    showNow(ui.progressMessageWindow);
}

void UpdaterProgressScreen::appendFailure(const QString &text)
{
    appendLine(QLatin1String("<p style=\"color:red\">") + text + QLatin1String("</p>"));
}

void UpdaterProgressScreen::appendSuccess(const QString &text)
{
    appendLine(QLatin1String("<p style=\"color:green\">") + text + QLatin1String("</p>"));
}

void UpdaterProgressScreen::appendFirstPercentage()
{
    appendLine(tr("<p style=\"color:orange\">0% </p>"));
}

// The window's last edit is the percentage before this one: undoing it removes that percentage.
void UpdaterProgressScreen::replacePercentage(int percentComplete)
{
    ui.progressMessageWindow->undo();
    ui.progressMessageWindow->append(QString::fromLatin1("<p style=\"color:orange\">%1%</p>").arg(percentComplete));
    QScrollBar *scrollBar = ui.progressMessageWindow->verticalScrollBar();
    scrollBar->setValue(scrollBar->maximum());
    showNow(ui.progressMessageWindow);
}

/// True for the result 0; any other result is shown as a failure.
bool UpdaterProgressScreen::succeeded(int result, const QString &failureText)
{
    if (result == 0)
        return true;
    appendFailure(failureText);
    return false;
}
