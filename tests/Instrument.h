#ifndef TESTS_INSTRUMENT_H
#define TESTS_INSTRUMENT_H

#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>

/// The virtual instrument as a test sees it from inside its sandbox: what is in its slots, which tools fail, which were
/// called. Each new one has empty media, no mounts, no journal and no plan; flash and root file system keep what was
/// written before.
class Instrument
{
public:
    using Files = QList<QPair<QString, QByteArray>>; ///< path and content

    Instrument();

    /// Makes the test program read and write the settings where the shipped program has them.
    static void useItsSettings();

    /// Puts an empty medium with a file system on `device` ("sda1", "mmcblk0p4", "backfile") in place; returns its
    /// folder.
    QString insertMedium(const QString &device) const;

    /// The same with a package on the medium, firmware_update.tar.bz2: `commandFile` as its update_config, and `files`
    /// (executable when the content begins with "#!"). `topFolder` is the folder in the archive.
    QString insertPackage(const QString &device, const QByteArray &commandFile, const Files &files = {},
                          const QString &topFolder = "firmware_update") const;

    /// Lets every call fail whose command line begins with one of these.
    void failTools(const QStringList &commandLines) const;
    void restoreTools() const;
    /// Makes the kernel reject detaching a loop device that is mounted, as kernels before 3.7 do.
    void useOldKernel() const;

    /// The command lines of the tools called since the last call of this function, in order.
    QStringList takeCalls();

    /// A file that can be opened but not read.
    static QString unreadableFile() { return "/run/host/sys/class/net/lo/speed"; }
    static int openDescriptors();
    static QByteArray contentOf(const QString &fileName);
    static void write(const QString &fileName, const QByteArray &content);

private:
    int m_CallsTaken = 0;
};

#endif
