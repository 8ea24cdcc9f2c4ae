#include <QtTest>

#include "tests/Instrument.h"
#include "tests/Rows.h"
#include "update/SystemCommand.h"

/// The stand-in tools do what the real ones do, or a rehearsal would prove nothing.
class StandInToolsTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void toolsBehaveLikeTheRealOnes_data();
    void toolsBehaveLikeTheRealOnes();
};

void StandInToolsTest::initTestCase()
{
    const QByteArray block = QByteArray("UBI#").leftJustified(128 * 1024, 'r');
    const Instrument::Files files{
        {"old", QByteArray(3000, '\x55')},
        {"new", QByteArray(3000, '\x66')},
        {"large", QByteArray(static_cast<int>(QFileInfo("/dev/mtd0").size()) + 1, 'k')},
        {"two_blocks", block + block},
        {"one_block", block + QByteArray(128 * 1024, 'r')},
        {"short", block.left(1000)},
        // what the first pages and blocks then hold
        {"erased", QByteArray(4096, '\xFF')},
        {"old_stored", QByteArray(3000, '\x55').leftJustified(4096, '\xFF')},
        {"old_AND_new", QByteArray(3000, '\x44').leftJustified(4096, '\xFF')},
        {"one_block_stored", block.leftJustified(256 * 1024, '\xFF')},
    };
    for (const auto &[name, content] : files)
        Instrument::write("/tmp/" + name, content);
}

void StandInToolsTest::toolsBehaveLikeTheRealOnes_data()
{
    QTest::addColumn<QStringList>("steps"); ///< exit status and command line
    const auto add = [](const char *name, const QStringList &steps) {
        addRow(name, steps);
    };
    add("mount needs a medium, umount a mount",
        {"32 umount /mnt/update", "32 mount /dev/mmcblk0p4 /mnt/update", "32 mount /dev/sda /mnt/nowhere",
         "0 mount /dev/sda /mnt/update", "32 mount /dev/sda /mnt/update", "0 test -e /mnt/update/here",
         "0 umount /mnt/update", "1 test -e /mnt/update/here"});
    add("remount needs the mounted root, which is in NAND",
        {"0 mount / -o remount,rw", "0 mount ubi0:rootfs -o remount,rw", "32 mount /dev/mmcblk0p2 -o remount,rw",
         "0 umount /"}); // makes it read-only
    add("loop device needs a file, mount a file system in it",
        {"1 losetup -d /dev/loop0", "1 losetup -o 4096 /dev/loop0 /mnt/missing",
         "0 losetup -o 512 /dev/loop0 /mnt/ubiData/backfile", "32 mount -t vfat /dev/loop0 /mnt/update",
         "0 losetup -d /dev/loop0"});
    const QString attach = " losetup -o 4096 /dev/loop0 /mnt/ubiData/backfile";
    add("loop device that is mounted is detached at the unmount",
        {"0" + attach, "1" + attach, "0 mount -t vfat /dev/loop0 /mnt/update", "0 losetup -d /dev/loop0", "1" + attach,
         "0 umount /mnt/update", "0" + attach});
    add("gadget needs its controller and its storage",
        {"1 modprobe g_mass_storage file=/mnt/ubiData/backfile", "0 modprobe fsl_usb2_udc",
         "1 modprobe g_mass_storage file=/dev/mmcblk0p4", "0 modprobe g_mass_storage file=/mnt/ubiData/backfile"});
    add("gadget does not hold its controller",
        {"0 modprobe fsl_usb2_udc", "0 modprobe g_mass_storage file=/mnt/ubiData/backfile", "0 rmmod fsl_usb2_udc",
         "1 rmmod fsl_usb2_udc", "0 rmmod g_mass_storage", "1 rmmod g_mass_storage", "1 modprobe other"});
    const QString erase = "0 flash_eraseall /dev/mtd0";
    const QString write = "0 nandwrite /dev/mtd0 /tmp/old -p";
    add("pages are padded on demand only",
        {erase, "255 nandwrite /dev/mtd0 /tmp/old", write, "0 cmp -n 4096 /dev/mtd0 /tmp/old_stored"});
    add("flash that is not erased stores old AND new",
        {erase, write, "0 nandwrite /dev/mtd0 /tmp/new -p", "0 cmp -n 4096 /dev/mtd0 /tmp/old_AND_new"});
    add("erased flash", {write, erase, "255 flash_eraseall /dev/mtd7", "0 cmp -n 4096 /dev/mtd0 /tmp/erased"});
    add("kernel that is too large",
        {erase, "255 nandwrite /dev/mtd0 /tmp/large -p", "0 cmp -n 4096 /dev/mtd0 /tmp/erased"});
    add("invalid block ends a UBI image",
        {"0 ubiformat /dev/mtd1 -f /tmp/two_blocks", "255 ubiformat /dev/mtd1 -f /tmp/short",
         "0 cmp -n 262144 /dev/mtd1 /tmp/two_blocks", "255 ubiformat /dev/mtd1 -f /tmp/one_block",
         "0 cmp -n 262144 /dev/mtd1 /tmp/one_block_stored"});
}

void StandInToolsTest::toolsBehaveLikeTheRealOnes()
{
    QFETCH(QStringList, steps);
    const Instrument instrument;
    instrument.insertMedium("backfile");
    instrument.write(instrument.insertMedium("sda") + "/here", "");
    for (const QString &step : steps) {
        const QString command = step.section(' ', 1);
        QCOMPARE(QString::number(runSystemCommand(command)) + ' ' + command, step);
    }
}

QTEST_GUILESS_MAIN(StandInToolsTest)

#include "StandInToolsTest.moc"
