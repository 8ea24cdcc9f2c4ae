// The stand-in tools of the virtual instrument, called by the name under which they are started. Every call is in the
// journal. The plan says which fail, and after which one the power is cut.

#include <cerrno>
#include <iostream>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "simulator/tools/InstrumentState.h"
#include "simulator/tools/Tool.h"

using namespace simulator;

namespace {

const std::string linkFolder = "/run/instrument/bin/";
const std::string realFolder = "/usr/bin/";
const int cannotBeStarted = 127;

struct Tool
{
    int (*run)(const Call &);
    const char *options; ///< as getopt() takes them
    size_t leastOperands;
    size_t mostOperands;
    int usageError;
};

const std::map<std::string, Tool> standIns = {
    {"mount", {runMount, "t:o:", 1, 2, 1}},
    {"umount", {runUmount, "", 1, 1, 1}},
    {"losetup", {runLosetup, "do:", 1, 2, 1}},
    {"modprobe", {runModprobe, "", 1, 99, 1}},
    {"rmmod", {runRmmod, "", 1, 1, 1}},
    {"flash_eraseall", {runFlashEraseall, "", 1, 1, 255}},
    {"nandwrite", {runNandwrite, "p", 2, 2, 255}},
    {"ubiformat", {runUbiformat, "f:", 1, 1, 255}},
    {"sdimage", {runSdimage, "f:d:", 0, 0, 1}},
};

int run(const Tool &tool, int argc, char **argv)
{
    Call call;
    opterr = 0;
    for (int option = 0; (option = getopt(argc, argv, tool.options)) != -1;)
        call.options[static_cast<char>(option)] = optarg == nullptr ? "" : optarg;
    call.operands.assign(argv + optind, argv + argc);
    if (call.options.count('?') || call.operands.size() < tool.leastOperands ||
        call.operands.size() > tool.mostOperands)
        return fail("usage error", tool.usageError);
    return tool.run(call);
}

// tar, cp and sync do real work on real files.
int runRealTool(char **argv)
{
    const std::string program = realFolder + program_invocation_short_name;
    pid_t child = 0;
    if (posix_spawn(&child, program.c_str(), nullptr, nullptr, argv, environ) != 0)
        return fail("there is no such tool on the instrument", cannotBeStarted);
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : cannotBeStarted;
}

std::string commandLine(char **argv)
{
    std::string line = *argv;
    if (line.rfind(linkFolder, 0) == 0)
        line.erase(0, linkFolder.size());
    while (*++argv != nullptr)
        line += std::string(" ") + *argv;
    return line;
}

int runAsPlanned(const std::string &line, int argc, char **argv)
{
    for (const InstrumentState::Record &fault : InstrumentState::read(InstrumentState::plan, "tool")) {
        if (line.rfind(fault.at(1), 0) == 0)
            return fail("fails by plan", std::stoi(fault.at(0)));
    }
    const auto standIn = standIns.find(program_invocation_short_name);
    return standIn == standIns.end() ? runRealTool(argv) : run(standIn->second, argc, argv);
}

} // namespace

int simulator::fail(const std::string &message, int exitCode)
{
    std::cerr << program_invocation_short_name << ": " << message << std::endl;
    return exitCode;
}

int main(int argc, char **argv)
{
    const std::string line = commandLine(argv); // before getopt() permutes the arguments
    const int exitCode = runAsPlanned(line, argc, argv);
    InstrumentState::append(InstrumentState::journal, {"call", std::to_string(exitCode), line});
    InstrumentState::cutPowerIfPlanned("call", InstrumentState::read(InstrumentState::journal, "call").size());
    return exitCode;
}
