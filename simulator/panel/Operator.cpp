#include "simulator/panel/Operator.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
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
#include "simulator/tools/InstrumentState.h"

using namespace simulator;

namespace {

const QSize displaySize(320, 240);
const int cameraIntervalMs = 50;
const int longestStartMs = 60000; // of a busy host; its clock may be a fast one

struct Source
{
    const char *name;
    Qt::Key key;
};

const Source sources[] = {{"pc", Qt::Key_F1}, {"stick", Qt::Key_F2}, {"sd", Qt::Key_F3}};

void startOperator()
{
    auto *panelOperator = new Operator(QCoreApplication::instance());
    QTimer::singleShot(0, panelOperator, SLOT(begin()));
}

void record(const char *kind, const QString &text)
{
    InstrumentState::append(InstrumentState::journal, {kind, text.toStdString()});
}

/// The folder of the storage that the instrument shows to the PC; empty when it shows none.
QString exportedStorage()
{
    const std::string prefix = "file=";
    for (const InstrumentState::Record &module : InstrumentState::read(InstrumentState::modules)) {
        if (module.size() > 1 && module[1].rfind(prefix, 0) == 0) {
            const InstrumentState::Path storage = module[1].substr(prefix.size());
            return QString::fromStdString(InstrumentState::media / storage.filename());
        }
    }
    return QString();
}

} // namespace

// The simulator is the program itself with somebody in front of it, who arrives when the application object is built.
Q_COREAPP_STARTUP_FUNCTION(startOperator)

Operator::Operator(QObject *parent) : QObject(parent), m_EsaBoards(nullptr)
{
    m_RunCamera.setInterval(cameraIntervalMs);
    connect(&m_RunCamera, SIGNAL(timeout()), this, SLOT(photographRun()));
    keepBoards();
}

void Operator::keepBoards()
{
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
    m_MessageWindow = m_Screens->findChild<QTextEdit *>(QLatin1String("progressMessageWindow"));
    connect(m_MessageWindow, SIGNAL(textChanged()), this, SLOT(recordMessages()));
    connect(m_MessageWindow->verticalScrollBar(), SIGNAL(valueChanged(int)), this, SLOT(photographHalfWay()));

    for (const InstrumentState::Record &person : InstrumentState::read(InstrumentState::plan, "operator"))
        followPlan(QString::fromStdString(person.at(0)), QString::fromStdString(person.at(1)));
}

void Operator::followPlan(const QString &source, const QString &package)
{
    if (!QTest::qWaitForWindowActive(m_Screens, longestStartMs))
        qDebug() << "the screens do not get the keyboard";
    if (source == QLatin1String("nobody"))
        return QApplication::exit(0);
    takePicture(QLatin1String("main-screen"));
    for (const Source &known : sources) {
        if (source == QLatin1String(known.name))
            pressFunctionKey(m_Screens, known.key);
    }
    takePicture(QLatin1String("prompt"));
    pressF1ForRun();
    const QString storage = exportedStorage();
    if (!storage.isEmpty()) {
        takePicture(QLatin1String("copy-prompt"));
        QFile::copy(package, storage + QLatin1Char('/') + QFileInfo(package).fileName());
        pressF1ForRun();
    }
    takePicture(QLatin1String("end"));
    pressFunctionKey(m_Screens, Qt::Key_F1);
    QApplication::exit(m_Screens->currentIndex() == MainScreenIndex ? 0 : 1);
}

// The program is in the run until the press returns; the camera gets its turn wherever the run processes events.
void Operator::pressF1ForRun()
{
    m_RunCamera.start();
    pressFunctionKey(m_Screens, Qt::Key_F1);
    m_RunCamera.stop();
}

void Operator::photographRun()
{
    const auto *f1Button = m_Screens->currentWidget()->findChild<QPushButton *>(QLatin1String("F1Button"));
    if (!f1Button->isEnabled()) {
        takePicture(QLatin1String("running"));
        m_RunCamera.stop();
    }
}

// While a PIC is programmed no events are processed. The moment for a picture is when the window scrolls down to a new
// percentage.
void Operator::photographHalfWay()
{
    const PanelMessage last = lastMessage();
    const bool halfWay = last.text == QLatin1String("50%");
    if (halfWay && !m_HalfWay)
        takePicture(QLatin1String("half-way"));
    if (last.isPercentage())
        m_HalfWay = halfWay;
}

PanelMessage Operator::lastMessage() const
{
    const QList<PanelMessage> messages = panelMessages(*m_MessageWindow->document());
    return messages.isEmpty() ? PanelMessage() : messages.last();
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
    display.save(QString::fromLatin1("%1/%2-%3.png").arg(folder).arg(m_PictureCount).arg(name));
}
