// modprobe and rmmod, for the modules that make the instrument a USB drive.

#include "simulator/tools/InstrumentState.h"
#include "simulator/tools/Tool.h"

using namespace simulator;
using InstrumentState::Records;

namespace {

const char deviceController[] = "fsl_usb2_udc";
const char massStorage[] = "g_mass_storage";

bool isLoaded(const std::string &name)
{
    Records modules = InstrumentState::read(InstrumentState::modules);
    return InstrumentState::findLast(&modules, 0, name) != modules.end();
}

bool storageExists(const std::string &parameter)
{
    const std::string prefix = "file=";
    if (parameter.rfind(prefix, 0) != 0)
        return false;
    const std::string storage = parameter.substr(prefix.size());
    return std::filesystem::is_regular_file(storage) || !InstrumentState::fileSystemOn(storage).empty();
}

} // namespace

int simulator::runModprobe(const Arguments &arguments)
{
    if (arguments.empty())
        return refuse("modprobe", "ERROR: missing parameters.", 1);
    const std::string &name = arguments[0];
    const std::string parameter = arguments.size() > 1 ? arguments[1] : std::string();
    if (name != deviceController && name != massStorage)
        return refuse("modprobe", "FATAL: Module " + name + " not found.", 1);
    if (isLoaded(name))
        return 0;
    if (name == massStorage && (!isLoaded(deviceController) || !storageExists(parameter)))
        return refuse("modprobe", "ERROR: could not insert '" + name + "': No such device or file", 1);
    InstrumentState::append(InstrumentState::modules, {name, parameter});
    return 0;
}

int simulator::runRmmod(const Arguments &arguments)
{
    if (arguments.size() != 1)
        return refuse("rmmod", "ERROR: missing module name.", 1);
    const std::string &name = arguments[0];
    Records modules = InstrumentState::read(InstrumentState::modules);
    const auto module = InstrumentState::findLast(&modules, 0, name);
    if (module == modules.end())
        return refuse("rmmod", "ERROR: Module " + name + " is not currently loaded", 1);
    modules.erase(module);
    InstrumentState::write(InstrumentState::modules, modules);
    return 0;
}
