#ifndef BENCHMARKS_BENCHMARKRUN_H
#define BENCHMARKS_BENCHMARKRUN_H

#include <QTemporaryFile>

#include "pic/PicProgrammer.h"

/// The complete update that is measured: the erase phase with its blank check, then 32 KiB in records of 16 bytes, all
/// erased bytes. Its course is the same whatever the pins lead to, because it does not depend on the data.
class BenchmarkRun : public QObject
{
    Q_OBJECT

public:
    /// Holds all PICs in reset but the one that is updated.
    BenchmarkRun();

    /// False when the update failed.
    bool updatePic();

    /// Reads bytes as the blank check does; returns the clocks that took.
    int readBytes();

protected slots:
    void programFile();

private:
    QTemporaryFile m_File;
    PicProgrammer *m_Programmer;
};

#endif
