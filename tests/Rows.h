#ifndef TESTS_ROWS_H
#define TESTS_ROWS_H

#include <QTest>

/// A row of a test's table: its name, then the value of each column.
template <typename... Values>
void addRow(const char *name, const Values &...values)
{
    (QTest::newRow(name) << ... << values);
}

#endif
