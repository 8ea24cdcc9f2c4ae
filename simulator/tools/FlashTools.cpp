// flash_eraseall, nandwrite, ubiformat and sdimage. An MTD partition is a file of its size; an erased byte is 0xFF, and
// writing only clears bits: writing to cells that are not erased stores old AND new, and the tool reports success.

#include <cstdio>
#include <fstream>
#include <iterator>

#include "simulator/tools/InstrumentState.h"
#include "simulator/tools/Tool.h"

namespace fs = std::filesystem;
using namespace simulator;

namespace {

const int mtdFailure = 255;
const size_t pageSize = 2048;
const size_t blockSize = 64 * pageSize;
const char erased = '\xFF';
const char ubiMagic[] = "UBI#"; // at the start of every erase block of an image

void write(const fs::path &file, const std::string &bytes)
{
    std::ofstream(file, std::ios::binary) << bytes;
}

void erase(const fs::path &partition)
{
    write(partition, std::string(fs::file_size(partition), erased));
}

void program(const fs::path &partition, const std::string &data)
{
    std::ifstream stream(partition, std::ios::binary);
    std::string cells(std::istreambuf_iterator<char>(stream), {});
    for (size_t index = 0; index < data.size(); ++index)
        cells[index] = static_cast<char>(cells[index] & data[index]);
    write(partition, cells);
}

/// Finds the partition or card and the image for it.
bool open(const std::string &device, const std::string &file, fs::path *raw, std::string *image)
{
    *raw = InstrumentState::rawDevice(device);
    std::ifstream stream(file, std::ios::binary);
    if (!raw->empty() && stream && fs::is_regular_file(file)) {
        image->assign(std::istreambuf_iterator<char>(stream), {});
        return true;
    }
    fail("error!: cannot open " + (raw->empty() ? device : file), mtdFailure);
    return false;
}

} // namespace

int simulator::runFlashEraseall(const Call &call)
{
    const fs::path partition = InstrumentState::rawDevice(call.operands[0]);
    if (partition.empty())
        return fail(call.operands[0] + ": No such file or directory", mtdFailure);
    erase(partition);
    std::printf("Erasing %zu Kibyte @ 0 -- 100 %% complete\n", fs::file_size(partition) / 1024);
    return 0;
}

int simulator::runNandwrite(const Call &call)
{
    fs::path partition;
    std::string image;
    if (!open(call.operands[0], call.operands[1], &partition, &image))
        return mtdFailure;
    if (image.size() % pageSize != 0 && !call.options.count('p'))
        return fail("error!: Input file is not page-aligned. Use the padding option.", mtdFailure);
    const size_t room = fs::file_size(partition);
    if (image.size() / pageSize * pageSize > room) // a last page that is not full does not count
        return fail("error!: Input file does not fit into device", mtdFailure);
    image += std::string((pageSize - image.size() % pageSize) % pageSize, erased);
    program(partition, image.substr(0, room));
    if (image.size() > room)
        return fail("error!: Data was only partially written due to error", mtdFailure);
    std::printf("Wrote %zu pages to %s\n", image.size() / pageSize, call.operands[0].c_str());
    return 0;
}

int simulator::runUbiformat(const Call &call)
{
    const auto option = call.options.find('f');
    if (option == call.options.end())
        return fail("usage error", mtdFailure);
    const std::string &file = option->second;
    fs::path partition;
    std::string image;
    if (!open(call.operands[0], file, &partition, &image))
        return mtdFailure;
    if (image.empty() || image.size() % blockSize != 0)
        return fail("error!: file \"" + file + "\" is not multiple of eraseblock size", mtdFailure);
    if (image.size() > fs::file_size(partition))
        return fail("error!: file \"" + file + "\" is too large", mtdFailure);
    size_t end = 0; // of the blocks before the first that is not a UBI block
    while (end < image.size() && image.compare(end, sizeof ubiMagic - 1, ubiMagic) == 0)
        end += blockSize;
    erase(partition);
    program(partition, image.substr(0, end));
    if (end != image.size())
        return fail("error!: bad EC header in \"" + file + "\"", mtdFailure);
    std::printf("ubiformat: flashed %zu eraseblocks of %s\n", image.size() / blockSize, call.operands[0].c_str());
    return 0;
}

int simulator::runSdimage(const Call &call)
{
    if (call.options.size() != 2)
        return fail("usage error", 1);
    fs::path card;
    std::string image;
    if (!open(call.options.at('d'), call.options.at('f'), &card, &image))
        return 1;
    write(card, image);
    std::printf("Wrote %zu bytes to %s\n", image.size(), call.options.at('d').c_str());
    return 0;
}
