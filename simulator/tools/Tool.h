#ifndef SIMULATOR_TOOLS_TOOL_H
#define SIMULATOR_TOOLS_TOOL_H

#include <map>
#include <string>
#include <vector>

namespace simulator {

/// How a stand-in tool is called.
struct Call
{
    std::map<char, std::string> options; ///< by letter; the value of one that has none is empty
    std::vector<std::string> operands;
};

/// Prints the message after the name of the tool to standard error and returns `exitCode`.
int fail(const std::string &message, int exitCode);

// The stand-in tools return the exit status that the real tool would give. They change the state of the virtual
// instrument only, and reject what the real tools reject.
int runMount(const Call &call);
int runUmount(const Call &call);
int runLosetup(const Call &call);
int runModprobe(const Call &call);
int runRmmod(const Call &call);
int runFlashEraseall(const Call &call);
int runNandwrite(const Call &call);
int runUbiformat(const Call &call);
int runSdimage(const Call &call);

} // namespace simulator

#endif
