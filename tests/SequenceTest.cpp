#include <QPushButton>
#include <QTextEdit>
#include <QtTest>

#include "tests/Instrument.h"
#include "tests/Panel.h"
#include "tests/Rows.h"

namespace {

const char emptyPackage[] = "firmware_update.tar.bz2";
const char unmount[] = "umount /mnt/update";

} // namespace

/// What F1 does on the progress screen, for each source, with each tool failing in turn.
class SequenceTest : public QObject
{
    Q_OBJECT

private slots:
    void sdCardIsMountedAndUpdatedFrom();
    void memoryStickIsTriedAsWholeDiskThenByItsFirstPartition();
    void pcIsGivenTheBackingFileOrElseTheCardPartition();
    void loopDeviceThatStayedAttachedIsDetachedBeforeTheNext_data();
    void loopDeviceThatStayedAttachedIsDetachedBeforeTheNext();
    void failedStepEndsTheSequence_data();
    void failedStepEndsTheSequence();
};

void SequenceTest::sdCardIsMountedAndUpdatedFrom()
{
    Instrument instrument;
    instrument.makePackage(instrument.insertMedium("mmcblk0p4") + "/" + emptyPackage, "");
    Panel panel;
    panel.press(Qt::Key_F3);
    QCOMPARE(panel.messages(),
             QStringList("Insert an SD card containing the update_firmware.tar.bz2 file into the unit "
                         "then press F1"));
    panel.press(Qt::Key_F1);
    QCOMPARE(instrument.takeCalls(),
             QStringList({unmount, "mount /dev/mmcblk0p4 /mnt/update",
                          "tar jxvf /mnt/update/firmware_update.tar.bz2 -C /tmp", "sync", unmount}));
    QCOMPARE(panel.messages().at(1), QString("Processing update"));
    QVERIFY(panel.lastMessage().startsWith("green: Update complete"));

    QVERIFY(!panel.showsMainScreen());
    panel.press(Qt::Key_F1);
    QVERIFY(panel.showsMainScreen());
    QCOMPARE(instrument.takeCalls(), QStringList(unmount));
}

void SequenceTest::memoryStickIsTriedAsWholeDiskThenByItsFirstPartition()
{
    for (const char *device : {"sda", "sda1", "sda2"}) {
        Instrument instrument;
        instrument.makePackage(instrument.insertMedium(device) + "/" + emptyPackage, "");
        Panel panel;
        panel.press(Qt::Key_F2);
        panel.press(Qt::Key_F1);
        const QStringList mounts = instrument.takeCalls().filter(QRegExp("^mount "));
        if (QLatin1String(device) == QLatin1String("sda")) {
            QCOMPARE(mounts, QStringList("mount /dev/sda /mnt/update"));
        } else {
            QCOMPARE(mounts, QStringList({"mount /dev/sda /mnt/update", "mount /dev/sda1 /mnt/update"}));
        }
        const bool mounted = QLatin1String(device) != QLatin1String("sda2");
        QCOMPARE(panel.lastMessage().startsWith("green: "), mounted);
        if (!mounted)
            QCOMPARE(panel.lastMessage(),
                     QString("red: Failed to mount update drive, press F1 to return to the main screen"));
    }
}

void SequenceTest::pcIsGivenTheBackingFileOrElseTheCardPartition()
{
    const QString exportFile = "modprobe g_mass_storage file=/mnt/ubiData/backfile";
    const QString exportPartition = "modprobe g_mass_storage file=/dev/mmcblk0p4";
    const QStringList start = QStringList({unmount, "modprobe fsl_usb2_udc", exportFile});
    const QStringList release = QStringList({unmount, "rmmod g_mass_storage", "rmmod fsl_usb2_udc"});
    for (const bool fileWorks : {true, false, true}) { // the storage of one update leaves nothing to the next
        Instrument instrument;
        const QString storage = instrument.insertMedium(fileWorks ? "backfile" : "mmcblk0p4");
        if (!fileWorks)
            instrument.failTool(exportFile);
        Panel panel;
        panel.press(Qt::Key_F1);
        panel.press(Qt::Key_F1);
        QCOMPARE(instrument.takeCalls(), fileWorks ? start : QStringList(start) << exportPartition);
        QCOMPARE(panel.messages(),
                 QStringList() << "Attach the unit to the PC via the USB cable provided then press F1"
                               << "Initialising PC connection"
                               << (fileWorks ? "Copy the firmware_update_tar.bz2 file to the unit and press F1"
                                             : "Copy the update_firmware.tar.bz2 file to the unit and press F1"));
        instrument.makePackage(storage + "/" + emptyPackage, "");
        panel.press(Qt::Key_F1);
        const QStringList mount = fileWorks ? QStringList({"losetup -o 4096 /dev/loop0 /mnt/ubiData/backfile",
                                                           "mount -t vfat /dev/loop0 /mnt/update"})
                                            : QStringList("mount /dev/mmcblk0p4 /mnt/update");
        QCOMPARE(instrument.takeCalls(), release + mount << "tar jxvf /mnt/update/firmware_update.tar.bz2 -C /tmp"
                                                         << "sync"
                                                         << "sync" << unmount << "losetup -d /dev/loop0");
        QVERIFY(panel.lastMessage().startsWith("green: "));
    }
}

void SequenceTest::loopDeviceThatStayedAttachedIsDetachedBeforeTheNext_data()
{
    QTest::addColumn<bool>("mountFails");
    QTest::addColumn<QString>("firstEnd");
    addRow("an old kernel refuses to detach it while it is mounted", false, "losetup -d /dev/loop0");
    addRow("it did not mount", true, "mount -t vfat /dev/loop0 /mnt/update");
}

void SequenceTest::loopDeviceThatStayedAttachedIsDetachedBeforeTheNext()
{
    QFETCH(bool, mountFails);
    QFETCH(QString, firstEnd);
    Instrument instrument;
    instrument.useOldKernel();
    const QString storage = instrument.insertMedium("backfile");
    if (mountFails)
        instrument.failTool("mount -t vfat");
    const QString attach = "losetup -o 4096 /dev/loop0 /mnt/ubiData/backfile";
    const QString detach = "losetup -d /dev/loop0";
    Panel panel;
    QList<QStringList> calls;
    for (int update = 0; update < 3; ++update) { // the first without a package
        for (int press = 0; press < 3; ++press)
            panel.press(Qt::Key_F1);
        calls << instrument.takeCalls().filter(QRegExp("losetup|vfat"));
        instrument.mendTools();
        instrument.makePackage(storage + "/" + emptyPackage, "");
        panel.press(Qt::Key_F1);
    }
    QCOMPARE(calls.at(0).last(), firstEnd);
    QCOMPARE(calls.at(1), QStringList({detach, attach, "mount -t vfat /dev/loop0 /mnt/update", detach}));
    QCOMPARE(calls.at(2), QStringList({attach, "mount -t vfat /dev/loop0 /mnt/update", detach}));
}

void SequenceTest::failedStepEndsTheSequence_data()
{
    QTest::addColumn<int>("sourceKey");
    QTest::addColumn<QStringList>("failures");
    QTest::addColumn<int>("pressesOfF1");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("lastCall");

    const int pc = Qt::Key_F1;
    const QString backfile = "modprobe g_mass_storage file=/mnt/ubiData/backfile";
    const QString partition = "modprobe g_mass_storage file=/dev/mmcblk0p4";
    addRow("device controller does not load", pc, QStringList("modprobe fsl_usb2_udc"), 1,
           "Failed to initialise USB Device Controller", "modprobe fsl_usb2_udc");
    addRow("neither storage can be exported", pc, QStringList({backfile, partition}), 1,
           "Failed to initialise PC connection", partition);
    addRow("gadget does not unload", pc, QStringList("rmmod g_mass"), 2, "Failed to close PC connection,",
           "rmmod g_mass_storage");
    addRow("device controller does not unload", pc, QStringList("rmmod fsl"), 2,
           "Failed to close USB device controller,", "rmmod fsl_usb2_udc");
    addRow("loop device cannot be attached", pc, QStringList("losetup"), 2, "Failed to create loop device,",
           "losetup -o 4096 /dev/loop0 /mnt/ubiData/backfile");
    addRow("loop device does not mount", pc, QStringList("mount -t"), 2, "Failed to mount loop device,",
           "mount -t vfat /dev/loop0 /mnt/update");
    addRow("exported partition does not mount", pc, QStringList({backfile, "mount"}), 2,
           "Failed to mount update drive,", "mount /dev/mmcblk0p4 /mnt/update");
    addRow("stick does not mount", static_cast<int>(Qt::Key_F2), QStringList("mount"), 1,
           "Failed to mount update drive,", "mount /dev/sda1 /mnt/update");
    addRow("card does not mount", static_cast<int>(Qt::Key_F3), QStringList("mount"), 1,
           "Failed to mount update drive,", "mount /dev/mmcblk0p4 /mnt/update");
}

void SequenceTest::failedStepEndsTheSequence()
{
    QFETCH(int, sourceKey);
    QFETCH(QStringList, failures);
    QFETCH(int, pressesOfF1);
    QFETCH(QString, message);
    QFETCH(QString, lastCall);

    Instrument instrument;
    instrument.insertMedium("mmcblk0p4");
    instrument.insertMedium("backfile");
    for (const QString &failure : failures)
        instrument.failTool(failure);
    Panel panel;
    panel.press(static_cast<Qt::Key>(sourceKey));
    for (int press = 0; press < pressesOfF1; ++press)
        panel.press(Qt::Key_F1);

    QCOMPARE(panel.redMessages().size(), 1);
    QVERIFY2(panel.lastMessage().startsWith("red: " + message), qPrintable(panel.lastMessage()));
    QCOMPARE(instrument.takeCalls().last(), lastCall);
    QVERIFY(panel.button("F1Button")->isEnabled());
    QTest::mouseClick(panel.messageWindow()->viewport(), Qt::LeftButton, Qt::NoModifier, panel.endOfMessages());

    panel.press(Qt::Key_F1);
    QVERIFY(panel.showsMainScreen());
    QCOMPARE(instrument.takeCalls(), QStringList(unmount));
    panel.press(static_cast<Qt::Key>(sourceKey));
    QVERIFY2(panel.redMessages().isEmpty(), "the prompt took the colour of the line that was clicked");
}

QTEST_MAIN(SequenceTest)

#include "SequenceTest.moc"
