#ifndef TESTS_FUZZ_FUZZTTY_H
#define TESTS_FUZZ_FUZZTTY_H

#include <QByteArray>
#include <QList>

/// What the TtyHandler that the targets are linked with reads and was sent, instead of a port.
namespace FuzzTty {

extern QList<QByteArray> chunks; ///< to be read, one for each notification
extern QByteArray sent;

/// The chunks of an input: each byte that is 0xFE ends one.
void setInput(const QByteArray &input);

} // namespace FuzzTty

#endif
