#ifndef SIMULATOR_PANEL_OPERATOR_H
#define SIMULATOR_PANEL_OPERATOR_H

#include <QObject>
#include <QString>
#include <QTimer>

#include "simulator/models/esa/EsaBoards.h"
#include "simulator/panel/ChangeRecorder.h"

class QStackedWidget;
class QTextEdit;

/// The person in front of the virtual instrument: chooses the source, presses F1 until the update is over and the main
/// screen is back, and ends the program then. Keys go through the window system like those of a keyboard. Takes a
/// picture of the panel at each stage, and writes down what the message window says whenever that changes, what
/// happened on the instrument since the message before, and what the boards hold when an update is over.
///
/// Follows the plan in /run/instrument/operator (source and package, separated by a tab). Without a plan a person
/// presses the keys, and the operator only writes down.
class Operator : public QObject
{
    Q_OBJECT

public:
    explicit Operator(QObject *parent);

protected slots:
    void begin();
    void photographRun();
    void photographHalfWay();
    void writeDownMessages();

private:
    void carryOutPlan(const QString &source, const QString &package);
    void pressF1ForRun();
    bool isAskedToCopy() const;
    void copyToExportedStorage(const QString &package);
    QString lastMessage() const;
    void takePicture(const QString &name);

    QStackedWidget *m_Screens = nullptr;
    QTextEdit *m_MessageWindow = nullptr;
    QTimer m_RunCamera;
    simulator::EsaBoards m_EsaBoards;
    ChangeRecorder m_Changes;
    int m_PictureCount = 0;
    bool m_HalfWay = false; ///< that picture is taken
};

#endif
