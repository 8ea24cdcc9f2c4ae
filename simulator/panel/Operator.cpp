#include "simulator/panel/Operator.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QPainter>
#include <QPushButton>
#include <QSaveFile>
#include <QScrollBar>
#include <QStackedWidget>
#include <QTextEdit>
#include <QTextStream>
#include <QtDebug>
#include <QtTest>

#include "screens/ScreenTypes.h"
#include "simulator/panel/BoardFaults.h"
#include "simulator/panel/BoardRecord.h"
#include "simulator/panel/PanelAccess.h"
#include "simulator/tools/InstrumentState.h"

using namespace simulator;

namespace {

const QString stateFolder = QString::fromStdString(InstrumentState::directory);
const QSize displaySize(320, 240);
const int cameraIntervalMs = 50;

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

} // namespace

// The bench is the program itself with somebody in front of it, who arrives when the application object is built.
Q_COREAPP_STARTUP_FUNCTION(startOperator)

Operator::Operator(QObject *parent) : QObject(parent), m_EsaBoards(nullptr)
{
    m_RunCamera.setInterval(cameraIntervalMs);
    connect(&m_RunCamera, SIGNAL(timeout()), this, SLOT(photographRun()));
}

void Operator::begin()
{
    breakBoards(&m_EsaBoards);
    m_Changes.begin();
    m_Screens = findScreens();
    m_MessageWindow = m_Screens->findChild<QTextEdit *>(QLatin1String("progressMessageWindow"));
    connect(m_MessageWindow, SIGNAL(textChanged()), this, SLOT(writeDownMessages()));
    connect(m_MessageWindow->verticalScrollBar(), SIGNAL(valueChanged(int)), this, SLOT(photographHalfWay()));

    const std::vector<InstrumentState::Record> plan = InstrumentState::read(InstrumentState::directory / "operator");
    if (!plan.empty())
        carryOutPlan(QString::fromStdString(plan[0].at(0)), QString::fromStdString(plan[0].at(1)));
}

void Operator::carryOutPlan(const QString &source, const QString &package)
{
    if (!QTest::qWaitForWindowActive(m_Screens))
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
    if (isAskedToCopy()) {
        takePicture(QLatin1String("copy-prompt"));
        copyToExportedStorage(package);
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
    const QString last = lastMessage();
    const bool halfWay = last == QLatin1String("50%");
    if (halfWay && !m_HalfWay)
        takePicture(QLatin1String("half-way"));
    if (last.endsWith(QLatin1Char('%')))
        m_HalfWay = halfWay;
}

bool Operator::isAskedToCopy() const
{
    return lastMessage().startsWith(QLatin1String("Copy the "));
}

QString Operator::lastMessage() const
{
    const QList<PanelMessage> messages = panelMessages(*m_MessageWindow->document());
    return messages.isEmpty() ? QString() : messages.last().text;
}

void Operator::copyToExportedStorage(const QString &package)
{
    const std::string prefix = "file=";
    for (const InstrumentState::Record &module : InstrumentState::read(InstrumentState::modules)) {
        if (module.size() < 2 || module[1].rfind(prefix, 0) != 0)
            continue;
        const InstrumentState::Path storage = module[1].substr(prefix.size());
        const QString folder = QString::fromStdString(InstrumentState::media / storage.filename());
        QFile::copy(package, folder + QLatin1Char('/') + QFileInfo(package).fileName());
    }
}

void Operator::writeDownMessages()
{
    const QList<PanelMessage> messages = panelMessages(*m_MessageWindow->document());
    QSaveFile file(stateFolder + QLatin1String("/messages")); // somebody may follow it from outside
    if (!file.open(QIODevice::WriteOnly))
        return;
    QTextStream stream(&file);
    for (const PanelMessage &message : messages)
        stream << message.colour << '\t' << message.text << '\n';
    stream.flush();
    file.commit();
    m_Changes.messagesShown(messages.size());

    const QString last = lastMessage();
    if (last.startsWith(QLatin1String("Update complete")) ||
        last.startsWith(QLatin1String("Some of the updates failed"))) {
        m_EsaBoards.catchUp();
        recordBoards(m_EsaBoards);
    }
}

void Operator::takePicture(const QString &name)
{
    QImage display(displaySize, QImage::Format_RGB32);
    display.fill(Qt::black);
    QPainter painter(&display);
    painter.drawPixmap(m_Screens->pos(), m_Screens->grab());
    painter.end();

    ++m_PictureCount;
    const QString folder = stateFolder + QLatin1String("/pictures");
    QDir().mkpath(folder);
    display.save(QString::fromLatin1("%1/%2-%3.png").arg(folder).arg(m_PictureCount).arg(name));
}
