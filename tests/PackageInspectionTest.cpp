#include <QtTest>

#include "simulator/models/pic/HexRecord.h"
#include "simulator/rehearsal/PackageInspection.h"
#include "tests/Instrument.h"

using namespace simulator;

namespace {

const char archive[] = "/tmp/unit_firmware_update.tar.bz2";
const QByteArray script = "#!/bin/sh\ncp /tmp/firmware_update/tables/a /etc\ncp notes.txt /etc\n";

QStringList textsOf(const QList<PackageInspection::Finding> &findings)
{
    QStringList texts;
    for (const PackageInspection::Finding &finding : findings)
        texts << QString::number(finding.line) + ' ' + finding.kind + ": " + finding.text;
    return texts;
}

QByteArray hexFile()
{
    return hexRecord(4, 0, QByteArray(2, 0)) + hexRecord(0, 0xFFEE, QByteArray(16, 1)) +
           hexRecord(0, 0xFFFE, QByteArray(2, 1)) + hexRecord(4, 0, QByteArray("\x00\x20", 2)) +
           hexRecord(0, 0, QByteArray(8, 1)) + hexRecord(4, 0, QByteArray("\x00\x30", 2)) +
           hexRecord(0, 0, QByteArray(16, 0)) + hexRecord(4, 0, QByteArray("\x00\xF0", 2)) +
           hexRecord(0, 0, QByteArray(16, 1)) + hexRecord(0, 16, QByteArray(16, 1)) + hexRecord(1, 0, QByteArray());
}

} // namespace

/// What the reading of a package finds, and what it must not object to.
class PackageInspectionTest : public QObject
{
    Q_OBJECT

private slots:
    void acceptsWhatTheUpdaterDoes();
    void findsMistakes_data();
    void findsMistakes();
    void namesWhatTheProgrammerPassesOver();
    void namesPayloadThatNothingUses();
    void wantsAPackageThatTheUpdaterFinds();
};

void PackageInspectionTest::acceptsWhatTheUpdaterDoes()
{
    const Instrument instrument;
    instrument.makePackage(archive,
                           "SYSTEM:SDCARD\r\nKERNEL:/k\r\nSYSTEM:NAND\r\nIMAGE:/image\r\nFILE:/etc\r\nAPP:/boot/app\r\n"
                           "SCRIPT:/go.sh now\r\nPIC4:/p.hex\r\nESA_IO_APP_V2:/k\r\n",
                           {{"k", "1"},
                            {"image", "2"},
                            {"etc/deep/a", "3"},
                            {"boot/app", "4"},
                            {"go.sh", script},
                            {"tables/a", "5"},
                            {"notes.txt", "6"},
                            {"p.hex", hexRecord(0, 0xFFEE, QByteArray(16, 1))}});
    const PackageInspection inspection((UnpackedPackage(archive)));
    QCOMPARE(textsOf(inspection.mistakes()), QStringList());
    QCOMPARE(textsOf(inspection.remarks()), QStringList());
}

void PackageInspectionTest::findsMistakes_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("mistake");
    QTest::newRow("one letter more") << "KERNELL:/k"
                                     << "unknown keyword: KERNELL is no keyword; did you mean KERNEL?";
    QTest::newRow("one letter less") << "SYSTM:NAND"
                                     << "unknown keyword: SYSTM is no keyword; did you mean SYSTEM?";
    QTest::newRow("another letter") << "ESA_I0_APP:/k"
                                    << "unknown keyword: ESA_I0_APP is no keyword; did you mean ESA_IO_APP?";
    QTest::newRow("swapped letters") << "FLIE:/k"
                                     << "unknown keyword: FLIE is no keyword; did you mean FILE?";
    QTest::newRow("small letters") << "image:/k"
                                   << "unknown keyword: image is no keyword; did you mean IMAGE?";
    QTest::newRow("blank") << "SCRIPT :/k"
                           << "unknown keyword: SCRIPT  is no keyword; did you mean SCRIPT?";
    QTest::newRow("two edits") << "KRNLE:/k"
                               << "unknown keyword: KRNLE is no keyword";
    QTest::newRow("PIC by another number") << "PIC5:/p.hex"
                                           << "no such PIC: PIC5 selects no PIC; did you mean PIC1?";
    QTest::newRow("two colons") << "FILE:/k:"
                                << "bad line: 2 colons in place of one";
    QTest::newRow("empty line") << ""
                                << "bad line: an empty line is no command";
    QTest::newRow("folder for a file") << "APP:/folder"
                                       << "missing payload: /folder is a folder";
    QTest::newRow("blank in a path") << "APP:/k k"
                                     << "blank in a path: the tools take /k k for several files";
    QTest::newRow("image as the tool") << "IMAGE:/ubiformat"
                                       << "image path: the image takes the place of the tool that writes it";
    QTest::newRow("no interpreter") << "SCRIPT:/crlf.sh"
                                    << "script: /crlf.sh has CR LF line ends: its interpreter is not found";
    QTest::newRow("unknown system type") << "SYSTEM: NAND\nKERNEL:/k"
                                         << "system type: ' NAND' is neither NAND nor SDCARD, and the lines below "
                                            "write nothing\n3 system type: of an unknown type nothing is written, and "
                                            "counts as done";
    QTest::newRow("damaged HEX file") << "PIC1:/damaged.hex"
                                      << "damaged HEX file: /damaged.hex stops the PIC at its line 2: cut short, or a "
                                         "wrong checksum";
}

void PackageInspectionTest::findsMistakes()
{
    QFETCH(QString, line);
    QFETCH(QString, mistake);
    const Instrument instrument;
    instrument.makePackage(
        archive, "SYSTEM:NAND\n" + line.toLatin1() + "\n",
        {{"k", "1"},
         {"folder/a", "2"},
         {"ubiformat", "3"},
         {"crlf.sh", "#!/bin/sh\r\n"},
         {"p.hex", hexRecord(0, 0, QByteArray(2, 1))},
         {"damaged.hex", hexRecord(0, 0, QByteArray(2, 1)) + hexRecord(0, 2, QByteArray(2, 1), "\n", 1)}});
    const PackageInspection inspection((UnpackedPackage(archive)));
    QCOMPARE(textsOf(inspection.mistakes()), ("2 " + mistake).split('\n'));
}

void PackageInspectionTest::namesWhatTheProgrammerPassesOver()
{
    const Instrument instrument;
    instrument.makePackage(archive, "PIC1:/p.hex\n", {{"p.hex", hexFile()}});
    const PackageInspection inspection((UnpackedPackage(archive)));
    const QString name = "1 HEX range passed over: /p.hex: ";
    QCOMPARE(textsOf(inspection.remarks()), QStringList({name + "0x00fffe to 0x00ffff (2 bytes, program memory)",
                                                         name + "0x200000 to 0x200007 (8 bytes, user id)",
                                                         name + "0x30000e to 0x30000f (2 bytes, no memory)",
                                                         name + "0xf00000 to 0xf0001f (32 bytes, data EEPROM)"}));
}

void PackageInspectionTest::namesPayloadThatNothingUses()
{
    const Instrument instrument;
    instrument.makePackage(archive, "KERNEL:/k\n",
                           {{"k", "1"}, {"old/k", "2"}, {"run.sh", script}, {"notes.txt", "3"}});
    const PackageInspection inspection((UnpackedPackage(archive)));
    QCOMPARE(textsOf(inspection.remarks()),
             QStringList({"1 no system type: no SYSTEM line above: the type is that of the update before, or NAND",
                          "0 unused payload: no line and no script names /notes.txt",
                          "0 unused payload: no line and no script names /old/k",
                          "0 unused payload: no line and no script names /run.sh"}));
}

void PackageInspectionTest::wantsAPackageThatTheUpdaterFinds()
{
    const Instrument instrument;
    instrument.makePackage("/tmp/update_firmware 1.tar.bz2", "", {}, "firmware");
    QCOMPARE(textsOf(PackageInspection(UnpackedPackage("/tmp/update_firmware 1.tar.bz2")).mistakes()),
             QStringList({"0 archive name: the updater looks for *firmware_update*.tar.bz2, and passes over "
                          "update_firmware 1.tar.bz2",
                          "0 archive name: a blank in the name of the archive keeps it from being unpacked",
                          "0 no package folder: the archive holds no folder firmware_update"}));
    Instrument::write(archive, "no archive");
    QCOMPARE(PackageInspection(UnpackedPackage(archive)).mistakes().first().kind, QString("archive"));
}

QTEST_GUILESS_MAIN(PackageInspectionTest)

#include "PackageInspectionTest.moc"
