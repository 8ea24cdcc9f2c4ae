#include "simulator/tools/InstrumentState.h"

#include <algorithm>
#include <fstream>
#include <sstream>

namespace InstrumentState {

namespace {

// The PC's disk has its FAT file system behind the first 4096 bytes of the backing file.
const char backingFile[] = "/mnt/ubiData/backfile";
const char backingFileSystemOffset[] = "4096";

Path existingOrNone(const Path &path)
{
    return std::filesystem::exists(path) ? path : Path();
}

Path fileSystemBehindLoop(const std::string &device)
{
    for (const Record &loop : read(loops)) {
        if (loop.at(0) == device && loop.at(1) == backingFileSystemOffset && loop.at(2) == backingFile)
            return existingOrNone(media / "backfile");
    }
    return {};
}

} // namespace

std::vector<Record> read(const Path &file)
{
    std::vector<Record> records;
    std::ifstream stream(file);
    for (std::string line; std::getline(stream, line);) {
        Record record;
        std::istringstream fields(line);
        for (std::string field; std::getline(fields, field, '\t');)
            record.push_back(field);
        records.push_back(record);
    }
    return records;
}

void write(const Path &file, const std::vector<Record> &records)
{
    std::filesystem::remove(file);
    for (const Record &record : records)
        append(file, record);
}

void append(const Path &file, const Record &record)
{
    std::string line;
    for (const std::string &field : record)
        line += (line.empty() ? "" : "\t") + field;
    std::replace(line.begin(), line.end(), '\n', ' '); // a name or an argument may hold one, and a record is one line
    std::ofstream(file, std::ios::app) << line + "\n";
}

Path fileSystemOn(const std::string &device)
{
    const Path path(device);
    if (path.parent_path() != "/dev")
        return {};
    if (path.filename() == "loop0")
        return fileSystemBehindLoop(device);
    return existingOrNone(media / path.filename());
}

Path rawDevice(const std::string &device)
{
    const Path path(device);
    return path.parent_path() == "/dev" ? existingOrNone(flash / path.filename()) : Path();
}

} // namespace InstrumentState
