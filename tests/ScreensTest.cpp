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
#include "tests/Rows.h"

namespace {

const char settingsFile[] = "/mnt/data/settings/Vantrel/Updater.conf";
const QString noFlag = "\nm_PicUpdateEnabled: false\nm_AvrUpdateEnabled: false";

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
    void init();
    void panelStartsWithTheMainScreen();
    void keysAndButtonsActOnTheVisibleScreenOnly();
    void mainScreenSendsTheTypeBeforeTheChange();
    void scrollKeysMoveByALine();
    void argumentsAreStoredAndReachTheScreens_data();
    void argumentsAreStoredAndReachTheScreens();
    void unreadableSettingsGiveTheDefaults();
    void backdropIsBlackAndLeavesTheKeyboardAlone();
    void messageBoxStaysUntilItIsClosed();
};

void ScreensTest::init()
{
    Instrument::useItsSettings();
    QSettings().clear();
    QSettings().sync();
}

void ScreensTest::panelStartsWithTheMainScreen()
{
    const Panel panel;
    QVERIFY(panel.showsMainScreen());
    QCOMPARE(panel.window()->geometry(), QRect(3, 31, 281, 208));
    QVERIFY(panel.window()->windowFlags() & Qt::FramelessWindowHint);
    QCOMPARE(panel.window()->findChild<QLabel *>("F2label")->text(), QString("Update via Memory\nStick"));
    QCOMPARE(panel.window()->findChild<QTextEdit *>("titleBar")->toPlainText(),
             QString("Vantrel Firmware Update Application"));
}

void ScreensTest::keysAndButtonsActOnTheVisibleScreenOnly()
{
    Panel panel;
    panel.press(Qt::Key_F4); // belongs to the hidden screen
    QVERIFY(panel.showsMainScreen());
    QTest::simulateEvent(panel.window(), true, Qt::Key_F2, Qt::NoModifier, QString(), true); // of a key that is held
    QVERIFY(!panel.button("F2Button")->isDown());
    QTest::mouseClick(panel.button("F2Button"), Qt::LeftButton);
    QVERIFY(!panel.showsMainScreen());
    const QStringList prompt(
        "Insert a memory stick containing the update_firmware.tar.bz2 file into the unit then press F1");
    QCOMPARE(panel.messages(), prompt);
    panel.press(Qt::Key_F2);
    QCOMPARE(panel.messages(), prompt);
}

void ScreensTest::mainScreenSendsTheTypeBeforeTheChange()
{
    const UpdaterMainScreen screen(nullptr, Qt::CustomizeWindowHint | Qt::FramelessWindowHint);
    QStringList sent;
    connect(&screen, &UpdaterMainScreen::setUpdateType, &screen,
            [&](int type) { sent << QString("type %1").arg(type); });
    connect(&screen, &UpdaterMainScreen::requestChangeScreen, &screen,
            [&](int index) { sent << QString("to %1").arg(index); });
    for (const char *name : {"F1Button", "F2Button", "F3Button"})
        screen.findChild<QPushButton *>(name)->click();
    QCOMPARE(sent, QStringList({"type 0", "to 1", "type 1", "to 1", "type 2", "to 1"}));
}

void ScreensTest::scrollKeysMoveByALine()
{
    Panel panel;
    panel.press(Qt::Key_F3);
    for (int line = 0; line < 30; ++line)
        panel.messageWindow()->append("line");
    const QScrollBar *scrollBar = panel.messageWindow()->verticalScrollBar();
    const int bottom = scrollBar->maximum();
    QList<int> positions{scrollBar->value()};
    for (const Qt::Key key : {Qt::Key_F4, Qt::Key_F3, Qt::Key_F4}) {
        panel.press(key);
        positions << scrollBar->value();
    }
    QCOMPARE(positions, QList<int>({bottom, bottom, bottom - scrollBar->singleStep(), bottom}));
    while (scrollBar->value() > 0)
        panel.press(Qt::Key_F3);
    panel.press(Qt::Key_F3);
    QCOMPARE(scrollBar->value(), 0);
}

void ScreensTest::argumentsAreStoredAndReachTheScreens_data()
{
    QTest::addColumn<QString>("arguments");
    QTest::addColumn<QStringList>("debugLines");
    QTest::addColumn<QByteArray>("settings");
    QTest::addColumn<QString>("product");
    const auto add = [](const char *name, const QString &arguments, const QStringList &debugLines,
                        const QByteArray &settings, const QString &product) {
        addRow(name, arguments, debugLines, settings, product);
    };
    const QString picOnly = "\nm_PicUpdateEnabled: true\nm_AvrUpdateEnabled: false";
    const QString avrOnly = "\nm_PicUpdateEnabled: false\nm_AvrUpdateEnabled: true";
    add("flag and product", "--avr-enable Telmara", {"1: --avr-enable", "2: Telmara", avrOnly},
        "[General]\nAvrEnable=true\nProductName=Telmara\n", "Telmara");
    add("later ones override earlier ones", "--pic-enable Quorvin --avr-enable --avr-disable Ventrix",
        {"1: --pic-enable", "2: Quorvin", "3: --avr-enable", "4: --avr-disable", "5: Ventrix", picOnly},
        "[General]\nAvrEnable=false\nPicEnable=true\nProductName=Ventrix\n", "Ventrix");
    add("flag taken back", "--pic-enable --pic-disable", {"1: --pic-enable", "2: --pic-disable", noFlag},
        "[General]\nPicEnable=false\n", "Unknown");
    add("unknown ones", "quorvin --PIC-enable",
        {"1: quorvin", "unknown command line argument: quorvin", "2: --PIC-enable",
         "unknown command line argument: --PIC-enable", noFlag},
        "", "Unknown");
}

void ScreensTest::argumentsAreStoredAndReachTheScreens()
{
    QFETCH(QString, arguments);
    QFETCH(QStringList, debugLines);
    QFETCH(QByteArray, settings);
    QFETCH(QString, product);
    const DebugLines debug;
    {
        QSettings stored;
        applyCommandLine(QStringList("updater") + arguments.split(' '), &stored);
    }
    QCOMPARE(versionLine(Panel()), product + " Updater Version: 2.1 ");
    QCOMPARE(DebugLines::take().mid(0, debugLines.size()), debugLines);
    QCOMPARE(Instrument::contentOf(settingsFile), settings);
}

void ScreensTest::unreadableSettingsGiveTheDefaults()
{
    Instrument::write(settingsFile, QByteArray("\0\xFFnot settings\n[[[\nPicEnable", 27));
    const DebugLines debug;
    QCOMPARE(versionLine(Panel()), QString("Unknown Updater Version: 2.1 "));
    QCOMPARE(DebugLines::take().value(0), noFlag);
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
