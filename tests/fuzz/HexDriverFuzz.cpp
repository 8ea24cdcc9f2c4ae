#include <QSignalSpy>

#include "tests/PicFixture.h"
#include "tests/fuzz/Fuzz.h"

// A whole HEX file: the driver must end, within its percentages, and keep to the memories that a file may change.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    PicFixture fixture;
    QSignalSpy progress(&fixture.programmer(), SIGNAL(lineProgrammed(int)));
    fixture.program(bytesOf(data, size));
    require(fixture.programmer().isFinished());
    for (const QList<QVariant> &arguments : progress)
        require(arguments.at(0).toInt() >= 1 && arguments.at(0).toInt() <= 100);
    require(fixture.memory().eeprom().bytes().count('\xFF') == fixture.memory().eeprom().size());
    for (const QString &violation : fixture.boards().violations())
        require(violation.contains(QLatin1String("write ignored"))); // the file protects memory
    return 0;
}
