// flash_eraseall, nandwrite, ubiformat and sdimage. An MTD partition is a file of its size; an erased byte is 0xFF, and
// writing only
// clears bits: writing to cells that are not erased stores old AND new, and the tool reports success.

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>

#include "simulator/tools/InstrumentState.h"
#include "simulator/tools/Tool.h"

using namespace simulator;

namespace {

const int mtdFailure = 255;
const size_t pageSize = 2048;
const size_t blockSize = 64 * pageSize;
const char erased = static_cast<char>(0xFF);
const std::string ubiMagic = "UBI#"; // at the start of every erase block of an image

using Bytes = std::vector<char>;

bool readFile(const std::filesystem::path &file, Bytes *bytes)
{
    std::ifstream stream(file, std::ios::binary);
    if (!stream || !std::filesystem::is_regular_file(file))
        return false;
    bytes->assign(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
    return true;
}

void writeAt(const std::filesystem::path &file, size_t offset, const char *bytes, size_t length)
{
    std::fstream stream(file, std::ios::binary | std::ios::in | std::ios::out);
    stream.seekp(static_cast<std::streamoff>(offset));
    stream.write(bytes, static_cast<std::streamsize>(length));
}

void erase(const std::filesystem::path &partition)
{
    const Bytes blank(std::filesystem::file_size(partition), erased);
    writeAt(partition, 0, blank.data(), blank.size());
}

void program(const std::filesystem::path &partition, const Bytes &data)
{
    Bytes cells;
    if (!readFile(partition, &cells))
        return;
    std::transform(data.begin(), data.end(), cells.begin(), cells.begin(), [](char written, char present) {
        return static_cast<char>(static_cast<unsigned char>(written) & static_cast<unsigned char>(present));
    });
    writeAt(partition, 0, cells.data(), data.size());
}

// The blocks of the image up to the first that is not a UBI block.
Bytes ubiBlocks(const Bytes &image)
{
    size_t end = 0;
    while (end < image.size() &&
           std::equal(ubiMagic.begin(), ubiMagic.end(), image.begin() + static_cast<std::ptrdiff_t>(end)))
        end += blockSize;
    return {image.begin(), image.begin() + static_cast<std::ptrdiff_t>(end)};
}

} // namespace

int simulator::runFlashEraseall(const Arguments &arguments)
{
    if (arguments.size() != 1)
        return refuse("flash_eraseall", "bad usage", mtdFailure);
    const std::filesystem::path partition = InstrumentState::rawDevice(arguments[0]);
    if (partition.empty())
        return refuse("flash_eraseall", arguments[0] + ": No such file or directory", mtdFailure);
    erase(partition);
    std::printf("Erasing %zu Kibyte @ 0 -- 100 %% complete\n", std::filesystem::file_size(partition) / 1024);
    return 0;
}

int simulator::runNandwrite(const Arguments &arguments)
{
    Arguments operands = arguments;
    const auto option = std::find(operands.begin(), operands.end(), "-p");
    const bool pad = option != operands.end();
    if (pad)
        operands.erase(option);
    if (operands.size() != 2)
        return refuse("nandwrite", "bad usage", mtdFailure);

    const std::filesystem::path partition = InstrumentState::rawDevice(operands[0]);
    Bytes image;
    if (partition.empty() || !readFile(operands[1], &image))
        return refuse("nandwrite", "error!: cannot open " + (partition.empty() ? operands[0] : operands[1]),
                      mtdFailure);
    if (image.size() % pageSize != 0 && !pad)
        return refuse("nandwrite", "error!: Input file is not page-aligned. Use the padding option.", mtdFailure);
    image.resize((image.size() + pageSize - 1) / pageSize * pageSize, erased);
    if (image.size() > std::filesystem::file_size(partition))
        return refuse("nandwrite", "error!: Input file does not fit into device", mtdFailure);
    program(partition, image);
    std::printf("Wrote %zu pages to %s\n", image.size() / pageSize, operands[0].c_str());
    return 0;
}

int simulator::runUbiformat(const Arguments &arguments)
{
    if (arguments.size() != 3 || arguments[1] != "-f")
        return refuse("ubiformat", "bad usage", mtdFailure);
    const std::filesystem::path partition = InstrumentState::rawDevice(arguments[0]);
    Bytes image;
    if (partition.empty() || !readFile(arguments[2], &image))
        return refuse("ubiformat", "error!: cannot open " + (partition.empty() ? arguments[0] : arguments[2]),
                      mtdFailure);
    if (image.empty() || image.size() % blockSize != 0)
        return refuse("ubiformat", "error!: file \"" + arguments[2] + "\" is not multiple of eraseblock size",
                      mtdFailure);
    if (image.size() > std::filesystem::file_size(partition))
        return refuse("ubiformat", "error!: file \"" + arguments[2] + "\" is too large", mtdFailure);
    const Bytes blocks = ubiBlocks(image);
    erase(partition);
    program(partition, blocks);
    if (blocks.size() != image.size())
        return refuse("ubiformat", "error!: bad EC header in \"" + arguments[2] + "\"", mtdFailure);
    std::printf("ubiformat: flashed %zu eraseblocks of %s\n", image.size() / blockSize, arguments[0].c_str());
    return 0;
}

int simulator::runSdimage(const Arguments &arguments)
{
    if (arguments.size() != 4 || arguments[0] != "-f" || arguments[2] != "-d")
        return refuse("sdimage", "bad usage", 1);
    const std::filesystem::path card = InstrumentState::rawDevice(arguments[3]);
    Bytes image;
    if (card.empty() || !readFile(arguments[1], &image))
        return refuse("sdimage", "cannot open " + (card.empty() ? arguments[3] : arguments[1]), 1);
    std::filesystem::resize_file(card, 0);
    writeAt(card, 0, image.data(), image.size());
    std::printf("Wrote %zu bytes to %s\n", image.size(), arguments[3].c_str());
    return 0;
}
