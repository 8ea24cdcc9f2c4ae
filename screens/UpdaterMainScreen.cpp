#include "screens/UpdaterMainScreen.h"

#include <QMessageBox>
#include <QSettings>

#include "screens/ScreenTypes.h"
#include "screens/VersionString.h"

UpdaterMainScreen::UpdaterMainScreen(QWidget *parent, Qt::WindowFlags flags) : QWidget(parent, flags)
{
    ui.setupUi(this);
    setAttribute(Qt::WA_StyledBackground); // a subclass paints the background of its style sheet only with it

    connect(ui.F1Button, SIGNAL(clicked()), this, SLOT(F1Clicked()));
    connect(ui.F2Button, SIGNAL(clicked()), this, SLOT(F2Clicked()));
    connect(ui.F3Button, SIGNAL(clicked()), this, SLOT(F3Clicked()));

    versionString.remove(QLatin1Char('$'));
    QSettings settings;
    const QString productName = settings.value(QLatin1String("ProductName"), QLatin1String("Unknown")).toString();
    ui.versionLabel->setText(productName + QLatin1String(" Updater ") + versionString);
}

void UpdaterMainScreen::F1Clicked()
{
    startUpdate(UpdateViaPc);
}

void UpdaterMainScreen::F2Clicked()
{
    startUpdate(UpdateViaMemoryStick);
}

void UpdaterMainScreen::F3Clicked()
{
    startUpdate(UpdateViaSdCard);
}

void UpdaterMainScreen::showMessage(const QString &text)
{
    QMessageBox box(this);
    box.setText(text);
    box.exec();
}

// The type first: the progress screen has its prompt before it becomes visible.
void UpdaterMainScreen::startUpdate(int updateType)
{
    emit setUpdateType(updateType);
    emit requestChangeScreen(ProgressScreenIndex);
}
