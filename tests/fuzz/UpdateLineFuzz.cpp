#include "tests/fuzz/Fuzz.h"
#include "update/UpdateLine.h"

// A line of update_config: every line but a malformed one has a keyword and an argument, and every line that can fail a
// text that says so.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString text = QString::fromUtf8(bytesOf(data, size));
    const UpdateLine line(text);
    require((line.kind == UpdateLine::Malformed) == (text.count(':') != 1));
    if (line.kind != UpdateLine::Malformed)
        require(line.keyword + ':' + line.argument == text);
    require((line.kind == UpdateLine::Pic || line.kind == UpdateLine::Esa) <= (line.announcement.text != nullptr));
    require((line.failure.text == nullptr) == (line.kind == UpdateLine::System));
    for (const UpdateLine::Message &message : {line.announcement, line.failure}) {
        if (message.text)
            require(!message.filledIn(QString::fromLatin1(message.text)).isEmpty());
    }
    return 0;
}
