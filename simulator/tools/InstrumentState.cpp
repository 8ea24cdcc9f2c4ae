#include "simulator/tools/InstrumentState.h"

#include <algorithm>
#include <csignal>
#include <fstream>
#include <sstream>

namespace simulator::InstrumentState {

namespace {

// The PC's disk has its FAT file system after the first 4096 bytes of the backing file.
const char backingFile[] = "/mnt/ubiData/backfile";
const char backingFileSystemOffset[] = "4096";

Path existingOrNone(const Path &path)
{
    return std::filesystem::exists(path) ? path : Path();
}

} // namespace

Records read(const Path &file)
{
    Records records;
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

void write(const Path &file, const Records &records)
{
    std::filesystem::remove(file);
    for (const Record &record : records)
        append(file, record);
}

void append(const Path &file, const Record &record)
{
    std::string line;
    for (std::string field : record) {
        std::replace(field.begin(), field.end(), '\n', ' '); // a name or an argument may hold one
        std::replace(field.begin(), field.end(), '\t', ' ');
        line += (line.empty() ? "" : "\t") + field;
    }
    std::ofstream(file, std::ios::app) << line + "\n";
}

Records read(const Path &file, const std::string &kind)
{
    Records records;
    for (const Record &record : read(file)) {
        if (!record.empty() && record.front() == kind)
            records.emplace_back(record.begin() + 1, record.end());
    }
    return records;
}

Records::iterator findLast(Records *records, size_t field, const std::string &value)
{
    auto record = records->end();
    while (record != records->begin()) {
        if ((--record)->at(field) == value)
            return record;
    }
    return records->end();
}

// Every process of the sandbox, whose first process is bubblewrap's; elsewhere it would be every process at all.
void cutPowerIfPlanned(const std::string &event, size_t count)
{
    const Records cuts = read(plan, "power-cut");
    const Record due = {event, std::to_string(count)};
    std::string firstProcess;
    std::ifstream("/proc/1/comm") >> firstProcess;
    if (firstProcess != "bwrap" || std::find(cuts.begin(), cuts.end(), due) == cuts.end())
        return;
    kill(-1, SIGKILL);
    raise(SIGKILL);
}

Path fileSystemOn(const std::string &device)
{
    const Path path(device);
    if (path.parent_path() != "/dev")
        return {};
    if (path.filename() != "loop0")
        return existingOrNone(media / path.filename());
    for (const Record &loop : read(loops, device)) {
        if (loop.at(0) == backingFileSystemOffset && loop.at(1) == backingFile)
            return existingOrNone(media / "backfile");
    }
    return {};
}

Path rawDevice(const std::string &device)
{
    const Path path(device);
    return path.parent_path() == "/dev" ? existingOrNone(flash / path.filename()) : Path();
}

} // namespace simulator::InstrumentState
