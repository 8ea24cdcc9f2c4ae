#include <QDir>
#include <QtTest>

#include "tests/Instrument.h"
#include "update/SystemCommand.h"

/// The stand-in tools are held to what the real ones do, or a rehearsal would prove nothing.
class StandInToolsTest : public QObject
{
    Q_OBJECT

private slots:
    void mountNeedsAMediumAndUmountAMount();
    void remountNeedsTheMountedRoot();
    void loopDeviceIsBusyUntilItIsDetached();
    void gadgetNeedsItsControllerAndItsStorage();
    void flashThatIsNotErasedStoresOldAndNew();
    void kernelThatIsTooLargeIsRejected();
    void ubiformatWantsAUbiImage();
};

void StandInToolsTest::mountNeedsAMediumAndUmountAMount()
{
    const Instrument instrument;
    QCOMPARE(runSystemCommand("umount /mnt/update"), 32);
    QCOMPARE(runSystemCommand("mount /dev/sda /mnt/update"), 32);
    instrument.write(instrument.insertMedium("sda") + "/here", "");
    QCOMPARE(runSystemCommand("mount /dev/sda /mnt/nowhere"), 32);
    QCOMPARE(runSystemCommand("mount /dev/sda /mnt/update"), 0);
    QCOMPARE(runSystemCommand("mount /dev/sda /mnt/update"), 32);
    QVERIFY(QFile::exists("/mnt/update/here"));
    QCOMPARE(runSystemCommand("umount /mnt/update"), 0);
    QVERIFY(QDir("/mnt/update").entryList(QDir::NoDotAndDotDot | QDir::AllEntries).isEmpty());
}

void StandInToolsTest::remountNeedsTheMountedRoot()
{
    const Instrument instrument; // its root is in NAND
    QCOMPARE(runSystemCommand("mount / -o remount,rw"), 0);
    QCOMPARE(runSystemCommand("mount ubi0:rootfs -o remount,rw"), 0);
    QCOMPARE(runSystemCommand("mount /dev/mmcblk0p2 -o remount,rw"), 32);
    QCOMPARE(runSystemCommand("umount /"), 0); // makes it read-only
}

void StandInToolsTest::loopDeviceIsBusyUntilItIsDetached()
{
    const Instrument instrument;
    instrument.insertMedium("backfile");
    QCOMPARE(runSystemCommand("losetup -d /dev/loop0"), 1);
    QCOMPARE(runSystemCommand("losetup -o 4096 /dev/loop0 /mnt/missing"), 1);
    QCOMPARE(runSystemCommand("losetup -o 512 /dev/loop0 /mnt/ubiData/backfile"), 0);
    QCOMPARE(runSystemCommand("mount -t vfat /dev/loop0 /mnt/update"), 32); // no file system begins there
    QCOMPARE(runSystemCommand("losetup -d /dev/loop0"), 0);

    const QString attach = "losetup -o 4096 /dev/loop0 /mnt/ubiData/backfile";
    QCOMPARE(runSystemCommand(attach), 0);
    QCOMPARE(runSystemCommand(attach), 1);
    QCOMPARE(runSystemCommand("mount -t vfat /dev/loop0 /mnt/update"), 0);
    QCOMPARE(runSystemCommand("losetup -d /dev/loop0"), 0); // takes effect at the unmount
    QCOMPARE(runSystemCommand(attach), 1);
    QCOMPARE(runSystemCommand("umount /mnt/update"), 0);
    QCOMPARE(runSystemCommand(attach), 0);
}

void StandInToolsTest::gadgetNeedsItsControllerAndItsStorage()
{
    const Instrument instrument;
    const QString exportFile = "modprobe g_mass_storage file=/mnt/ubiData/backfile";
    QCOMPARE(runSystemCommand(exportFile), 1);
    QCOMPARE(runSystemCommand("modprobe fsl_usb2_udc"), 0);
    QCOMPARE(runSystemCommand("modprobe g_mass_storage file=/dev/mmcblk0p4"), 1);
    QCOMPARE(runSystemCommand(exportFile), 0);
    QCOMPARE(runSystemCommand("rmmod fsl_usb2_udc"), 0); // the gadget does not hold it
    QCOMPARE(runSystemCommand("rmmod fsl_usb2_udc"), 1);
    QCOMPARE(runSystemCommand("rmmod g_mass_storage"), 0);
    QCOMPARE(runSystemCommand("rmmod g_mass_storage"), 1);
    QCOMPARE(runSystemCommand("modprobe other"), 1);
}

void StandInToolsTest::flashThatIsNotErasedStoresOldAndNew()
{
    const Instrument instrument;
    instrument.write("/tmp/kernel", QByteArray(3000, '\x55'));
    instrument.write("/tmp/other", QByteArray(3000, '\x66'));
    QCOMPARE(runSystemCommand("flash_eraseall /dev/mtd0"), 0);
    QCOMPARE(runSystemCommand("nandwrite /dev/mtd0 /tmp/kernel"), 255); // no whole pages, no padding asked for
    QCOMPARE(runSystemCommand("nandwrite /dev/mtd0 /tmp/kernel -p"), 0);
    QVERIFY(instrument.contentOf("/dev/mtd0").startsWith(QByteArray(3000, '\x55') + QByteArray(1096, '\xFF')));
    QCOMPARE(runSystemCommand("nandwrite /dev/mtd0 /tmp/other -p"), 0);
    QVERIFY(instrument.contentOf("/dev/mtd0").startsWith(QByteArray(3000, '\x44') + QByteArray(1096, '\xFF')));
    QCOMPARE(runSystemCommand("flash_eraseall /dev/mtd0"), 0);
    QVERIFY(instrument.contentOf("/dev/mtd0").startsWith(QByteArray(4096, '\xFF')));
    QCOMPARE(runSystemCommand("flash_eraseall /dev/mtd7"), 255);
}

void StandInToolsTest::kernelThatIsTooLargeIsRejected()
{
    const Instrument instrument;
    instrument.write("/tmp/kernel", QByteArray(static_cast<int>(QFileInfo("/dev/mtd0").size()) + 1, 'k'));
    QCOMPARE(runSystemCommand("flash_eraseall /dev/mtd0"), 0);
    QCOMPARE(runSystemCommand("nandwrite /dev/mtd0 /tmp/kernel -p"), 255);
    QVERIFY(instrument.contentOf("/dev/mtd0").startsWith("\xFF"));
}

void StandInToolsTest::ubiformatWantsAUbiImage()
{
    const Instrument instrument;
    const QByteArray block = QByteArray("UBI#").leftJustified(128 * 1024, 'r');
    instrument.write("/tmp/short", block.left(1000));
    instrument.write("/tmp/half", block + QByteArray(128 * 1024, 'r'));
    instrument.write("/tmp/good", block + block);
    QCOMPARE(runSystemCommand("ubiformat /dev/mtd1 -f /tmp/short"), 255);
    QCOMPARE(runSystemCommand("ubiformat /dev/mtd1 -f /tmp/half"), 255);
    QVERIFY(instrument.contentOf("/dev/mtd1").startsWith(block + '\xFF')); // finds out when it comes to the block
    QCOMPARE(runSystemCommand("ubiformat /dev/mtd1 -f /tmp/good"), 0);
    QVERIFY(instrument.contentOf("/dev/mtd1").startsWith(block + block));
}

QTEST_GUILESS_MAIN(StandInToolsTest)

#include "StandInToolsTest.moc"
