#ifndef SIMULATOR_PANEL_OPERATOR_H
#define SIMULATOR_PANEL_OPERATOR_H

#include <map>

#include "simulator/models/esa/EsaBoards.h"
#include "simulator/panel/ChangeRecorder.h"
#include "simulator/panel/PanelAccess.h"
#include "simulator/tools/InstrumentState.h"

class QTextEdit;

namespace simulator {

/// The person in front of the virtual instrument: chooses the source, presses F1 until the update is over and the main
/// screen is back, and ends the program then. Keys go through the window system like those of a keyboard. Takes a
/// picture of the panel at each stage, and puts into the journal what the message window shows, what changed on the
/// instrument before each message, and what the boards report.
///
/// Follows the operator of the plan (source, package). Without one a person presses the keys.
class Operator : public QObject
{
    Q_OBJECT

public:
    explicit Operator(QObject *parent);

private slots:
    void begin();

private:
    void followPlan(Qt::Key sourceKey, const InstrumentState::Path &package);
    void pressF1ForRun();
    void photographRun();
    void photographHalfWay();
    void takePicture(const QString &name);
    void recordMessages();
    void recordMoment(const QString &moment);

    QStackedWidget *m_Screens = nullptr;
    QTextEdit *m_MessageWindow = nullptr;
    QTimer m_RunCamera;
    EsaBoards m_EsaBoards;
    ChangeRecorder m_Changes;
    std::map<QString, size_t> m_Moments; ///< how often each came
    int m_RecordedMessages = 0;
    int m_PictureCount = 0;
    bool m_HalfWay = false; ///< that picture is taken
};

} // namespace simulator

#endif
