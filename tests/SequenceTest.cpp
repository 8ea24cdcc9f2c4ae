#include <QDir>
#include <QPushButton>
#include <QTextEdit>
#include <QtTest>

#include "tests/Instrument.h"
#include "tests/Panel.h"
#include "tests/Rows.h"

namespace {

using Keys = QList<Qt::Key>;

const QString unmount = "umount /mnt/update";
const QString exportFile = "modprobe g_mass_storage file=/mnt/ubiData/backfile";
const QString exportPartition = "modprobe g_mass_storage file=/dev/mmcblk0p4";
const QString attach = "losetup -o 4096 /dev/loop0 /mnt/ubiData/backfile";
const QString detach = "losetup -d /dev/loop0";
const QString mountLoop = "mount -t vfat /dev/loop0 /mnt/update";
const QString mountCard = "mount /dev/mmcblk0p4 /mnt/update";

} // namespace

/// What F1 does on the progress screen, for each source, with each tool failing in turn.
class SequenceTest : public QObject
{
    Q_OBJECT

private slots:
    void mediumIsMountedUpdatedFromAndReleased_data();
    void mediumIsMountedUpdatedFromAndReleased();
    void loopDeviceThatStayedAttachedIsDetachedBeforeTheNext_data();
    void loopDeviceThatStayedAttachedIsDetachedBeforeTheNext();
    void failedStepEndsTheSequence_data();
    void failedStepEndsTheSequence();
};

void SequenceTest::mediumIsMountedUpdatedFromAndReleased_data()
{
    QTest::addColumn<QString>("device");
    QTest::addColumn<Keys>("keys");
    QTest::addColumn<QStringList>("prompts");
    QTest::addColumn<QStringList>("mounting"); ///< the calls
    QTest::addColumn<QStringList>("release");
    QTest::addColumn<QStringList>("failingTools");
    const auto add = [](const char *name, const QString &device, const Keys &keys, const QStringList &prompts,
                        const QStringList &mounting, const QStringList &release, const QStringList &failingTools = {}) {
        addRow(name, device, keys, prompts, mounting, release, failingTools);
    };
    const QString insertStick = "Insert a memory stick containing the update_firmware.tar.bz2 file into the unit then "
                                "press F1";
    const QString connectPc = "Attach the unit to the PC via the USB cable provided then press F1";
    add("SD card", "mmcblk0p4", {Qt::Key_F3, Qt::Key_F1},
        {"Insert an SD card containing the update_firmware.tar.bz2 file into the unit then press F1"},
        {unmount, mountCard}, {unmount});
    add("memory stick, whole disk", "sda", {Qt::Key_F2, Qt::Key_F1}, {insertStick},
        {unmount, "mount /dev/sda /mnt/update"}, {unmount});
    add("memory stick, first partition", "sda1", {Qt::Key_F2, Qt::Key_F1}, {insertStick},
        {unmount, "mount /dev/sda /mnt/update", "mount /dev/sda1 /mnt/update"}, {unmount});
    add("PC, backing file", "backfile", {Qt::Key_F1, Qt::Key_F1, Qt::Key_F1},
        {connectPc, "Initialising PC connection", "Copy the firmware_update_tar.bz2 file to the unit and press F1"},
        {unmount, "modprobe fsl_usb2_udc", exportFile, unmount, "rmmod g_mass_storage", "rmmod fsl_usb2_udc", attach,
         mountLoop},
        {"sync", unmount, detach});
    add("PC, card partition", "mmcblk0p4", {Qt::Key_F1, Qt::Key_F1, Qt::Key_F1},
        {connectPc, "Initialising PC connection", "Copy the update_firmware.tar.bz2 file to the unit and press F1"},
        {unmount, "modprobe fsl_usb2_udc", exportFile, exportPartition, unmount, "rmmod g_mass_storage",
         "rmmod fsl_usb2_udc", mountCard},
        {"sync", unmount, detach}, {exportFile});
}

void SequenceTest::mediumIsMountedUpdatedFromAndReleased()
{
    QFETCH(QString, device);
    QFETCH(Keys, keys);
    QFETCH(QStringList, prompts);
    QFETCH(QStringList, mounting);
    QFETCH(QStringList, release);
    QFETCH(QStringList, failingTools);
    const QStringList calls{"tar jxvf /mnt/update/firmware_update.tar.bz2 -C /tmp", "sync"};
    const QStringList messages{"Processing update", "Extracting update", "Finalising update, please wait",
                               "Removing temporary files",
                               "green: Update complete, restart the system or press F1 to return to the main screen"};
    Instrument instrument;
    const QDir medium(instrument.insertPackage(device, ""));
    for (const char *file : {"firmware_update/notes.txt", "kept/notes.txt", "notes.txt"})
        instrument.write(medium.filePath(file), "");
    instrument.failTools(failingTools);
    Panel panel;
    panel.press(keys);
    QCOMPARE(instrument.takeCalls(), mounting + calls + release);
    QCOMPARE(panel.messages(), prompts + messages);
    QVERIFY(!panel.showsMainScreen());
    panel.press(Qt::Key_F1);
    QVERIFY(panel.showsMainScreen());
    QCOMPARE(instrument.takeCalls(), QStringList(unmount));

    const QStringList all{"firmware_update", "firmware_update.tar.bz2", "kept", "notes.txt"};
    const bool emptied = keys.first() == Qt::Key_F1; // only what the PC wrote to
    QCOMPARE(medium.entryList(QDir::NoDotAndDotDot | QDir::AllEntries), emptied ? QStringList("kept") : all);
    QVERIFY(medium.exists("kept/notes.txt"));
    QCOMPARE(medium.exists("firmware_update/notes.txt"), !emptied);
}

void SequenceTest::loopDeviceThatStayedAttachedIsDetachedBeforeTheNext_data()
{
    QTest::addColumn<QStringList>("failingTools");
    QTest::addColumn<QString>("firstEnd");
    addRow("an old kernel does not detach it while it is mounted", QStringList(), detach);
    addRow("it did not mount", QStringList("mount -t vfat"), mountLoop);
}

void SequenceTest::loopDeviceThatStayedAttachedIsDetachedBeforeTheNext()
{
    QFETCH(QStringList, failingTools);
    QFETCH(QString, firstEnd);
    Instrument instrument;
    instrument.useOldKernel();
    instrument.insertMedium("backfile");
    instrument.failTools(failingTools);
    Panel panel;
    QList<QStringList> calls;
    for (int update = 0; update < 3; ++update) { // the first without a package
        panel.press({Qt::Key_F1, Qt::Key_F1, Qt::Key_F1});
        calls << instrument.takeCalls().filter(QRegExp("losetup|vfat"));
        instrument.restoreTools();
        instrument.insertPackage("backfile", "");
        panel.press(Qt::Key_F1);
    }
    QCOMPARE(calls.at(0).last(), firstEnd);
    QCOMPARE(calls.at(1), QStringList({detach, attach, mountLoop, detach}));
    QCOMPARE(calls.at(2), QStringList({attach, mountLoop, detach}));
}

void SequenceTest::failedStepEndsTheSequence_data()
{
    QTest::addColumn<Keys>("keys");
    QTest::addColumn<QStringList>("failingTools");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("lastCall");
    const auto add = [](const char *name, const Keys &keys, const QStringList &failingTools, const QString &message,
                        const QString &lastCall) {
        addRow(name, keys, failingTools, message, lastCall);
    };
    const Keys connectPc{Qt::Key_F1, Qt::Key_F1};
    const Keys updateFromPc{Qt::Key_F1, Qt::Key_F1, Qt::Key_F1};
    add("device controller does not load", connectPc, {"modprobe fsl_usb2_udc"},
        "Failed to initialise USB Device Controller", "modprobe fsl_usb2_udc");
    add("neither storage can be exported", connectPc, {exportFile, exportPartition},
        "Failed to initialise PC connection", exportPartition);
    add("gadget does not unload", updateFromPc, {"rmmod g_mass"}, "Failed to close PC connection,",
        "rmmod g_mass_storage");
    add("device controller does not unload", updateFromPc, {"rmmod fsl"}, "Failed to close USB device controller,",
        "rmmod fsl_usb2_udc");
    add("loop device cannot be attached", updateFromPc, {"losetup"}, "Failed to create loop device,", attach);
    add("loop device does not mount", updateFromPc, {"mount -t"}, "Failed to mount loop device,", mountLoop);
    add("exported partition does not mount", updateFromPc, {exportFile, "mount"}, "Failed to mount update drive,",
        mountCard);
    add("stick does not mount", {Qt::Key_F2, Qt::Key_F1}, {"mount"}, "Failed to mount update drive,",
        "mount /dev/sda1 /mnt/update");
    add("card does not mount", {Qt::Key_F3, Qt::Key_F1}, {"mount"}, "Failed to mount update drive,", mountCard);
}

void SequenceTest::failedStepEndsTheSequence()
{
    QFETCH(Keys, keys);
    QFETCH(QStringList, failingTools);
    QFETCH(QString, message);
    QFETCH(QString, lastCall);
    Instrument instrument;
    instrument.insertMedium("mmcblk0p4");
    instrument.insertMedium("backfile");
    instrument.failTools(failingTools);
    Panel panel;
    panel.press(keys);
    QCOMPARE(panel.redMessages().size(), 1);
    QCOMPARE(panel.lastMessage(), "red: " + message + " press F1 to return to the main screen");
    QCOMPARE(instrument.takeCalls().last(), lastCall);
    QVERIFY(panel.button("F1Button")->isEnabled());
    QTest::mouseClick(panel.messageWindow()->viewport(), Qt::LeftButton, Qt::NoModifier, panel.endOfMessages());

    panel.press(Qt::Key_F1);
    QVERIFY(panel.showsMainScreen());
    QCOMPARE(instrument.takeCalls(), QStringList(unmount));
    panel.press(keys.first());
    QVERIFY2(panel.redMessages().isEmpty(), "the prompt took the colour of the line that was clicked");
}

QTEST_MAIN(SequenceTest)

#include "SequenceTest.moc"
