#ifndef TESTS_FUZZ_FUZZ_H
#define TESTS_FUZZ_FUZZ_H

#include <QByteArray>
#include <cstdint>
#include <cstdlib>

/// A fuzz target: gets one input, which must not crash it, exceed its limit or break a rule.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

inline QByteArray bytesOf(const uint8_t *data, size_t size)
{
    return QByteArray(reinterpret_cast<const char *>(data), static_cast<int>(size));
}

inline void require(bool rule)
{
    if (!rule)
        abort();
}

#endif
