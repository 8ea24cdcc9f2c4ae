#ifndef SIMULATOR_TOOLS_INSTRUMENTSTATE_H
#define SIMULATOR_TOOLS_INSTRUMENTSTATE_H

#include <filesystem>
#include <string>
#include <vector>

/// Where the virtual instrument keeps what is not a file of its own root file system. Below `power` is what a power
/// cycle clears. docs/simulator.md says what each file holds.
namespace InstrumentState {

using Path = std::filesystem::path;
using Record = std::vector<std::string>; ///< one line, its fields separated by tabs

const Path directory = "/run/instrument";
const Path power = directory / "power";
const Path mounts = power / "mounts";   ///< source, target, "ro" or "rw"
const Path loops = power / "loops";     ///< device, offset, file, "attached" or "autoclear"
const Path modules = power / "modules"; ///< module, parameter
const Path covered = power / "covered"; ///< mount points that a mount lies upon
const Path media = directory / "media"; ///< a folder for each file system, named after its device
const Path flash = directory / "flash"; ///< mtd0, mtd1, mmcblk0
const Path calls = directory / "calls"; ///< exit code, command line
const Path faults = directory / "faults";
const Path oldKernel = directory / "old-kernel"; ///< when there, the kernel is one before 3.7
const Path powerCut = directory / "power-cut";

std::vector<Record> read(const Path &file);
void write(const Path &file, const std::vector<Record> &records);
void append(const Path &file, const Record &record);

/// The folder that plays the file system on `device`; empty when the device is not there or holds none.
Path fileSystemOn(const std::string &device);

/// The file that plays the raw device `device` (an MTD partition or the whole SD card); empty when there is none.
Path rawDevice(const std::string &device);

} // namespace InstrumentState

#endif
