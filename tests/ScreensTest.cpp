#include <QApplication>
#include <QFile>
#include <QImage>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QScreen>
#include <QScrollBar>
#include <QSettings>
#include <QTextEdit>
#include <QtTest>

#include "app/CommandLine.h"
#include "platform/Qt5.h"
#include "screens/UpdaterMainScreen.h"
#include "tests/DebugLines.h"
#include "tests/Instrument.h"
#include "tests/Panel.h"

namespace {

const char settingsFile[] = "/mnt/data/settings/Vantrel/Updater.conf";

void start(const QStringList &arguments)
{
    QSettings settings;
    applyCommandLine(QStringList("updater") + arguments, &settings);
}

QString versionLine(const Panel &panel)
{
    return panel.window()->findChild<QLabel *>("versionLabel")->text();
}

} // namespace

/// The screens and the settings as an operator meets them.
class ScreensTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void panelStartsWithTheMainScreen();
    void keysActOnTheVisibleScreenOnly();
    void mainScreenSendsTheTypeBeforeTheChange();
    void buttonsWorkByTouchToo();
    void scrollKeysMoveByALine();
    void commandLineIsStoredForLaterStarts();
    void laterArgumentsOverrideEarlierOnes();
    void unknownArgumentsAreNamedAndNothingIsStored();
    void unreadableSettingsGiveTheDefaults();
    void backdropIsBlackAndLeavesTheKeyboardAlone();
    void messageBoxStaysUntilItIsClosed();
};

void ScreensTest::initTestCase()
{
    Instrument::useItsSettings();
}

void ScreensTest::init()
{
    QSettings().clear();
    QSettings().sync();
}

void ScreensTest::panelStartsWithTheMainScreen()
{
    const Panel panel;
    QVERIFY(panel.showsMainScreen());
    QCOMPARE(panel.window()->geometry(), QRect(3, 31, 281, 208));
    QVERIFY(panel.window()->windowFlags() & Qt::FramelessWindowHint);
    QCOMPARE(versionLine(panel), QString("Unknown Updater Version: 2.1 "));
    QCOMPARE(panel.window()->findChild<QLabel *>("F2label")->text(), QString("Update via Memory\nStick"));
    QCOMPARE(panel.window()->findChild<QTextEdit *>("titleBar")->toPlainText(),
             QString("Vantrel Firmware Update Application"));
}

void ScreensTest::keysActOnTheVisibleScreenOnly()
{
    Panel panel;
    panel.press(Qt::Key_F4); // belongs to the hidden screen
    QVERIFY(panel.showsMainScreen());
    QTest::simulateEvent(panel.window(), true, Qt::Key_F2, Qt::NoModifier, QString(), true); // of a key that is held
    QVERIFY(!panel.button("F2Button")->isDown());
    panel.press(Qt::Key_F2);
    QVERIFY(!panel.showsMainScreen());
    const QStringList prompt(
        "Insert a memory stick containing the update_firmware.tar.bz2 file into the unit then press F1");
    QCOMPARE(panel.messages(), prompt);
    panel.press(Qt::Key_F2);
    QCOMPARE(panel.messages(), prompt);
}

void ScreensTest::mainScreenSendsTheTypeBeforeTheChange()
{
    UpdaterMainScreen screen(nullptr, Qt::CustomizeWindowHint | Qt::FramelessWindowHint);
    const QSignalSpy types(&screen, SIGNAL(setUpdateType(int)));
    const QSignalSpy changes(&screen, SIGNAL(requestChangeScreen(int)));
    int typesAtChange = -1;
    connect(&screen, &UpdaterMainScreen::requestChangeScreen, &screen, [&] { typesAtChange = types.size(); });
    int expectedType = 0;
    for (const char *name : {"F1Button", "F2Button", "F3Button"}) {
        screen.findChild<QPushButton *>(name)->click();
        QCOMPARE(types.last().at(0).toInt(), expectedType++);
        QCOMPARE(changes.last().at(0).toInt(), 1);
        QCOMPARE(typesAtChange, changes.size());
    }
    QCOMPARE(types.size(), 3);
}

void ScreensTest::buttonsWorkByTouchToo()
{
    const Panel panel;
    QTest::mouseClick(panel.button("F1Button"), Qt::LeftButton);
    QVERIFY(!panel.showsMainScreen());
    QCOMPARE(panel.messages(), QStringList("Attach the unit to the PC via the USB cable provided then press F1"));
}

void ScreensTest::scrollKeysMoveByALine()
{
    Panel panel;
    panel.press(Qt::Key_F3);
    for (int line = 0; line < 30; ++line)
        panel.messageWindow()->append("line");
    const QScrollBar *scrollBar = panel.messageWindow()->verticalScrollBar();
    const int bottom = scrollBar->maximum();
    QCOMPARE(scrollBar->value(), bottom);
    panel.press(Qt::Key_F4);
    QCOMPARE(scrollBar->value(), bottom);
    panel.press(Qt::Key_F3);
    QCOMPARE(scrollBar->value(), bottom - scrollBar->singleStep());
    panel.press(Qt::Key_F4);
    QCOMPARE(scrollBar->value(), bottom);
    while (scrollBar->value() > 0)
        panel.press(Qt::Key_F3);
    panel.press(Qt::Key_F3);
    QCOMPARE(scrollBar->value(), 0);
}

void ScreensTest::commandLineIsStoredForLaterStarts()
{
    QTest::ignoreMessage(QtDebugMsg, "1: --avr-enable");
    QTest::ignoreMessage(QtDebugMsg, "2: Telmara");
    start(QStringList({"--avr-enable", "Telmara"}));
    QTest::ignoreMessage(QtDebugMsg, "\nm_PicUpdateEnabled: false\nm_AvrUpdateEnabled: true");
    QCOMPARE(versionLine(Panel()), QString("Telmara Updater Version: 2.1 "));

    start(QStringList());
    QTest::ignoreMessage(QtDebugMsg, "\nm_PicUpdateEnabled: false\nm_AvrUpdateEnabled: true");
    QCOMPARE(versionLine(Panel()), QString("Telmara Updater Version: 2.1 "));
    QSettings().sync();
    QCOMPARE(Instrument::contentOf(settingsFile), QByteArray("[General]\nAvrEnable=true\nProductName=Telmara\n"));
}

void ScreensTest::laterArgumentsOverrideEarlierOnes()
{
    start(QStringList({"--pic-enable", "Quorvin", "--avr-enable", "--avr-disable", "Ventrix"}));
    QCOMPARE(QSettings().value("PicEnable").toBool(), true);
    QCOMPARE(QSettings().value("AvrEnable").toBool(), false);
    QCOMPARE(QSettings().value("ProductName").toString(), QString("Ventrix"));
    start(QStringList("--pic-disable"));
    QCOMPARE(QSettings().value("PicEnable").toBool(), false);
}

void ScreensTest::unknownArgumentsAreNamedAndNothingIsStored()
{
    const DebugLines debug;
    start({"quorvin", "--PIC-enable"});
    QCOMPARE(DebugLines::take(), QStringList({"1: quorvin", "unknown command line argument: quorvin", "2: --PIC-enable",
                                              "unknown command line argument: --PIC-enable"}));
    QVERIFY(QSettings().allKeys().isEmpty());
}

void ScreensTest::unreadableSettingsGiveTheDefaults()
{
    QSettings().sync();
    Instrument::write(settingsFile, QByteArray("\0\xFFnot settings\n[[[\nPicEnable", 27));
    QTest::ignoreMessage(QtDebugMsg, "\nm_PicUpdateEnabled: false\nm_AvrUpdateEnabled: false");
    QCOMPARE(versionLine(Panel()), QString("Unknown Updater Version: 2.1 "));
}

void ScreensTest::backdropIsBlackAndLeavesTheKeyboardAlone()
{
    Panel panel;
    QWSServer::setCursorVisible(false);
    QCOMPARE(QApplication::overrideCursor()->shape(), Qt::BlankCursor);
    QWSServer::setBackground(QBrush(Qt::black, Qt::SolidPattern));

    QWidget *backdrop = nullptr;
    for (QWidget *window : QApplication::topLevelWidgets()) {
        if (window != panel.window() && window->isVisible())
            backdrop = window;
    }
    QVERIFY(backdrop != nullptr);
    QCOMPARE(backdrop->geometry(), QApplication::screens().first()->geometry());
    QCOMPARE(backdrop->grab().toImage().pixelColor(5, 5), QColor(Qt::black));
    QVERIFY(QTest::qWaitForWindowActive(panel.window()));
    panel.press(Qt::Key_F3);
    QVERIFY(!panel.showsMainScreen());
    QWSServer::setCursorVisible(true);
    QVERIFY(QApplication::overrideCursor() == nullptr);
}

void ScreensTest::messageBoxStaysUntilItIsClosed()
{
    UpdaterMainScreen screen(nullptr, Qt::FramelessWindowHint);
    QString shown;
    QTimer::singleShot(0, &screen, [&shown] {
        auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
        shown = box->text();
        box->accept();
    });
    screen.showMessage("Battery low");
    QCOMPARE(shown, QString("Battery low"));
}

QTEST_MAIN(ScreensTest)

#include "ScreensTest.moc"
