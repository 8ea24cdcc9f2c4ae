#ifndef APP_TARSELSCREENMANAGER_H
#define APP_TARSELSCREENMANAGER_H

#include <QStackedWidget>
#include <QWidget>

class UpdaterMainScreen;
class UpdaterProgressScreen;

/// Builds the two screens, stacks them in the one window that the operator sees, and switches between them on request.
/// The manager itself is never shown.
class TarselScreenManager : public QWidget
{
    Q_OBJECT

public:
    TarselScreenManager(QWidget *parent, Qt::WindowFlags flags);
    ~TarselScreenManager() override;

    /// Lets a function key act once for each press: a held F1 would end the export to a PC before a package is copied.
    bool eventFilter(QObject *watched, QEvent *event) override;

protected slots:
    /// Shows the screen at `index` (ScreenIndex); an index that the stack does not hold changes nothing.
    void changeScreen(int index);

private:
    Q_DISABLE_COPY(TarselScreenManager)

    QStackedWidget *m_Screens;
    UpdaterProgressScreen *m_ProgressScreen;
    UpdaterMainScreen *m_MainScreen;
};

#endif
