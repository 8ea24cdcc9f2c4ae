#include "app/TarselScreenManager.h"

#include <QApplication>
#include <QKeyEvent>

#include "screens/ScreenTypes.h"
#include "screens/UpdaterMainScreen.h"
#include "screens/UpdaterProgressScreen.h"

namespace {

const Qt::WindowFlags screenFlags = Qt::CustomizeWindowHint | Qt::FramelessWindowHint;

// On the display of 320 by 240 pixels.
const QRect screenGeometry(3, 31, 281, 208);

} // namespace

TarselScreenManager::TarselScreenManager(QWidget *parent, Qt::WindowFlags flags) : QWidget(parent, flags)
{
    m_Screens = new QStackedWidget;
    m_Screens->setWindowFlags(screenFlags);
    m_Screens->setGeometry(screenGeometry);

    m_ProgressScreen = new UpdaterProgressScreen(this, screenFlags);
    m_MainScreen = new UpdaterMainScreen(this, screenFlags);
    m_Screens->insertWidget(MainScreenIndex, m_MainScreen);
    m_Screens->insertWidget(ProgressScreenIndex, m_ProgressScreen);
    m_Screens->setCurrentIndex(MainScreenIndex);

    connect(m_MainScreen, SIGNAL(requestChangeScreen(int)), this, SLOT(changeScreen(int)));
    connect(m_MainScreen, SIGNAL(setUpdateType(int)), m_ProgressScreen, SLOT(setUpdateType(int)));
    connect(m_ProgressScreen, SIGNAL(requestChangeScreen(int)), this, SLOT(changeScreen(int)));

    QApplication::instance()->installEventFilter(this);
    m_Screens->show();
}

TarselScreenManager::~TarselScreenManager()
{
    delete m_Screens;
}

bool TarselScreenManager::eventFilter(QObject *watched, QEvent *event)
{
    const bool repeats = event->type() == QEvent::ShortcutOverride && static_cast<QKeyEvent *>(event)->isAutoRepeat();
    if (repeats)
        event->accept(); // an accepted key triggers no shortcut
    return repeats || QWidget::eventFilter(watched, event);
}

void TarselScreenManager::changeScreen(int index)
{
    m_Screens->setCurrentIndex(index);
    m_Screens->show();
}
