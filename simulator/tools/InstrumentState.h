#ifndef SIMULATOR_TOOLS_INSTRUMENTSTATE_H
#define SIMULATOR_TOOLS_INSTRUMENTSTATE_H

#include <filesystem>
#include <string>
#include <vector>

/// Where the virtual instrument keeps what is not a file of its own root file system. Below `power` is what a power
/// cycle clears. docs/simulator.md says what each file holds.
namespace simulator::InstrumentState {

using Path = std::filesystem::path;
using Record = std::vector<std::string>; ///< one line, its fields separated by tabs
using Records = std::vector<Record>;

const Path directory = "/run/instrument";
const Path power = directory / "power";
const Path mounts = power / "mounts";   ///< source, target, "ro" or "rw"
const Path loops = power / "loops";     ///< device, offset, file, "attached" or "autoclear"
const Path modules = power / "modules"; ///< module, parameter
const Path covered = power / "covered"; ///< mount points that a mount lies upon
const Path media = directory / "media"; ///< a folder for each file system, named after its device
const Path flash = directory / "flash"; ///< mtd0, mtd1, mmcblk0
const Path boards = directory / "boards";
const Path plan = directory / "plan";       ///< what is to happen: kind, fields
const Path journal = directory / "journal"; ///< what happened, in order: kind, fields

Records read(const Path &file);
void write(const Path &file, const Records &records);
void append(const Path &file, const Record &record);

/// The records of this kind in the plan or the journal, without their kind.
Records read(const Path &file, const std::string &kind);

/// The last record that holds `value` in this field.
Records::iterator findLast(Records *records, size_t field, const std::string &value);

/// Ends everything on the instrument if the plan has a power cut after event `event` number `count`.
void cutPowerIfPlanned(const std::string &event, size_t count);

/// The folder that stands for the file system on `device`; empty when the device is not there or holds none.
Path fileSystemOn(const std::string &device);

/// The file that stands for the raw device `device` (an MTD partition or the whole SD card); empty when there is none.
Path rawDevice(const std::string &device);

} // namespace simulator::InstrumentState

#endif
