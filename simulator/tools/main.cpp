// The stand-in tools of the virtual instrument, called by the name under which they are started. Every call is in the
// journal. The plan says which fail, and after which one the power is cut.

#include <cstdlib>
#include <iostream>
#include <map>
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

const std::map<std::string, int (*)(const Arguments &)> standIns = {
    {"mount", runMount},         {"umount", runUmount},       {"losetup", runLosetup},
    {"modprobe", runModprobe},   {"rmmod", runRmmod},         {"flash_eraseall", runFlashEraseall},
    {"nandwrite", runNandwrite}, {"ubiformat", runUbiformat}, {"sdimage", runSdimage},
};

// tar, cp and sync do real work on real files.
int runRealTool(const std::string &name, char **argv)
{
    const std::string program = realFolder + name;
    pid_t child = 0;
    if (posix_spawn(&child, program.c_str(), nullptr, nullptr, argv, environ) != 0)
        return refuse(name, "there is no such tool on the instrument", cannotBeStarted);
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : cannotBeStarted;
}

int run(const std::string &name, const Arguments &arguments, char **argv)
{
    const auto standIn = standIns.find(name);
    return standIn == standIns.end() ? runRealTool(name, argv) : standIn->second(arguments);
}

std::string joined(std::string program, const Arguments &arguments)
{
    if (program.rfind(linkFolder, 0) == 0)
        program.erase(0, linkFolder.size());
    for (const std::string &argument : arguments)
        program += " " + argument;
    return program;
}

bool findFault(const std::string &commandLine, int *exitCode)
{
    for (const InstrumentState::Record &fault : InstrumentState::read(InstrumentState::plan, "tool")) {
        if (commandLine.rfind(fault.at(1), 0) == 0) {
            *exitCode = static_cast<int>(std::strtol(fault.at(0).c_str(), nullptr, 10));
            return true;
        }
    }
    return false;
}

} // namespace

int simulator::refuse(const std::string &tool, const std::string &message, int exitCode)
{
    std::cerr << tool << ": " << message << std::endl;
    return exitCode;
}

int main(int argc, char **argv)
{
    const std::string program = argv[0];
    const std::string name = InstrumentState::Path(program).filename();
    const Arguments arguments(argv + 1, argv + argc);
    const std::string commandLine = joined(program, arguments);

    int exitCode = 0;
    if (findFault(commandLine, &exitCode))
        refuse(name, "fails by plan", exitCode);
    else
        exitCode = run(name, arguments, argv);

    InstrumentState::append(InstrumentState::journal, {"call", std::to_string(exitCode), commandLine});
    InstrumentState::cutPowerIfPlanned("call", InstrumentState::read(InstrumentState::journal, "call").size());
    return exitCode;
}
