#ifndef SIMULATOR_TOOLS_TOOL_H
#define SIMULATOR_TOOLS_TOOL_H

#include <string>
#include <vector>

namespace simulator {

/// The stand-ins for the instrument's system tools. One program under many names: each function below is a tool, takes
/// the arguments after the program name and returns the exit code that the real tool would give. They change the state
/// of the virtual instrument only, and refuse what the real tool refuses.
using Arguments = std::vector<std::string>;

/// Prints "`tool`: `message`" to standard error and returns `exitCode`.
int refuse(const std::string &tool, const std::string &message, int exitCode);

int runMount(const Arguments &arguments);
int runUmount(const Arguments &arguments);
int runLosetup(const Arguments &arguments);

int runModprobe(const Arguments &arguments);
int runRmmod(const Arguments &arguments);

int runFlashEraseall(const Arguments &arguments);
int runNandwrite(const Arguments &arguments);
int runUbiformat(const Arguments &arguments);
int runSdimage(const Arguments &arguments);

} // namespace simulator

#endif
