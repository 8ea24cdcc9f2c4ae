#ifndef SCREENS_UPDATERMAINSCREEN_H
#define SCREENS_UPDATERMAINSCREEN_H

#include <QWidget>

#include "ui_UpdaterMainScreen.h"

/// The first screen: product, version and the choice of the update source, one function key for each.
class UpdaterMainScreen : public QWidget
{
    Q_OBJECT

public:
    UpdaterMainScreen(QWidget *parent, Qt::WindowFlags flags);

    /// Shows `text` in a modal message box and returns when the operator has closed it.
    void showMessage(const QString &text);

signals:
    /// Asks for the screen at `newIndex` (ScreenIndex) to be shown.
    void requestChangeScreen(int newIndex);
    /// The source (UpdateType) that the operator chose; always sent before the change of screen.
    void setUpdateType(int updateType);

protected slots:
    void F1Clicked();
    void F2Clicked();
    void F3Clicked();

private:
    void startUpdate(int updateType);

    Ui_UpdaterMainScreen ui;
};

#endif
