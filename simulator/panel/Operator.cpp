#include "simulator/panel/Operator.h"

#include <QApplication>
#include <QDir>
#include <QImage>
#include <QPainter>
#include <QPushButton>
#include <QScrollBar>
#include <QStackedWidget>
#include <QTextEdit>
#include <QtDebug>
#include <QtTest>

#include "screens/ScreenTypes.h"
#include "simulator/models/pic/VirtualBoards.h"
#include "simulator/panel/BoardFaults.h"

using namespace simulator;

namespace {

const QSize displaySize(320, 240);
const int cameraIntervalMs = 50;
const int longestStartMs = 60000; // of a busy host; its clock may be a fast one

const std::map<std::string, Qt::Key> keyOfSource = {{"pc", Qt::Key_F1}, {"stick", Qt::Key_F2}, {"sd", Qt::Key_F3}};

void startOperator()
{
    auto *panelOperator = new Operator(QCoreApplication::instance());
    QTimer::singleShot(0, panelOperator, SLOT(begin()));
}

void record(const char *kind, const QString &text)
{
    InstrumentState::append(InstrumentState::journal, {kind, text.toStdString()});
}

} // namespace

// The simulator is the program itself and an operator, made when the application object is built.
Q_COREAPP_STARTUP_FUNCTION(startOperator)

Operator::Operator(QObject *parent) : QObject(parent), m_EsaBoards(nullptr)
{
    connect(&m_RunCamera, &QTimer::timeout, this, &Operator::photographRun);
    const QString folder = QString::fromStdString(InstrumentState::boards);
    QDir().mkpath(folder);
    VirtualBoards &pics = VirtualBoards::installed();
    pics.keepIn(folder);
    m_EsaBoards.keepIn(folder);
    pics.onMoment = m_EsaBoards.onMoment = [this](const QString &moment) {
        recordMoment(moment);
    };
    pics.onViolation = m_EsaBoards.onViolation = [](const QString &text) {
        record("violation", text);
    };
    injectBoardFaults(&m_EsaBoards);
}

void Operator::recordMoment(const QString &moment)
{
    record("moment", moment);
    InstrumentState::cutPowerIfPlanned(moment.toStdString(), ++m_Moments[moment]);
}

void Operator::begin()
{
    m_Screens = findScreens();
    m_MessageWindow = m_Screens->findChild<QTextEdit *>("progressMessageWindow");
    connect(m_MessageWindow, &QTextEdit::textChanged, this, &Operator::recordMessages);
    connect(m_MessageWindow->verticalScrollBar(), &QScrollBar::valueChanged, this, &Operator::photographHalfWay);

    for (const InstrumentState::Record &person : InstrumentState::read(InstrumentState::plan, "operator"))
        followPlan(keyOfSource.at(person.at(0)), person.at(1));
}

void Operator::followPlan(Qt::Key sourceKey, const InstrumentState::Path &package)
{
    if (!QTest::qWaitForWindowActive(m_Screens, longestStartMs))
        qDebug() << "the screens do not get the keyboard";
    takePicture("main-screen");
    pressFunctionKey(m_Screens, sourceKey);
    takePicture("prompt");
    pressF1ForRun();
    for (const InstrumentState::Record &parameter : InstrumentState::read(InstrumentState::modules, "g_mass_storage")) {
        takePicture("copy-prompt");
        const InstrumentState::Path storage(parameter.at(0)); // "file=" and its path
        std::error_code noRoom;                               // the update reports that the package is missing
        std::filesystem::copy(package, InstrumentState::media / storage.filename(), noRoom);
        pressF1ForRun();
    }
    takePicture("end");
    pressFunctionKey(m_Screens, Qt::Key_F1);
    QApplication::exit(m_Screens->currentIndex() == MainScreenIndex ? 0 : 1);
}

// The program is in the run until the press returns; the camera gets its turn wherever the run processes events.
void Operator::pressF1ForRun()
{
    m_RunCamera.start(cameraIntervalMs);
    pressFunctionKey(m_Screens, Qt::Key_F1);
    m_RunCamera.stop();
}

void Operator::photographRun()
{
    const auto *f1Button = m_Screens->currentWidget()->findChild<QPushButton *>("F1Button");
    if (!f1Button->isEnabled()) {
        takePicture("running");
        m_RunCamera.stop();
    }
}

// While a PIC is programmed no events are processed. The moment for a picture is when the window scrolls down to a new
// percentage.
void Operator::photographHalfWay()
{
    const QList<PanelMessage> messages = panelMessages(*m_MessageWindow->document());
    if (messages.isEmpty() || !messages.last().isPercentage())
        return;
    const bool halfWay = messages.last().text == "50%";
    if (halfWay && !m_HalfWay)
        takePicture("half-way");
    m_HalfWay = halfWay;
}

// A prompt replaces everything. A percentage is replaced by the next one, so that only the last of them is a message.
void Operator::recordMessages()
{
    const QList<PanelMessage> messages = panelMessages(*m_MessageWindow->document());
    const bool replaced = messages.size() == 1 && m_RecordedMessages != 1;
    int complete = messages.size();
    if (complete > 0 && messages.last().isPercentage())
        --complete;
    if (complete <= m_RecordedMessages && !replaced)
        return;
    m_Changes.record();
    for (int index = replaced ? 0 : m_RecordedMessages; index < complete; ++index) {
        const PanelMessage &message = messages.at(index);
        InstrumentState::append(InstrumentState::journal, {replaced ? "prompt" : "message",
                                                           message.colour.toStdString(), message.text.toStdString()});
    }
    m_RecordedMessages = complete;
}

void Operator::takePicture(const QString &name)
{
    QImage display(displaySize, QImage::Format_RGB32);
    display.fill(Qt::black);
    QPainter painter(&display);
    painter.drawPixmap(m_Screens->pos(), m_Screens->grab());
    painter.end();

    ++m_PictureCount;
    const QString folder = QString::fromStdString(InstrumentState::directory / "pictures");
    QDir().mkpath(folder);
    display.save(QString("%1/%2-%3.png").arg(folder).arg(m_PictureCount).arg(name));
}
