// mount, umount, losetup, modprobe and rmmod: what they change lasts until the next power cycle. A mounted file system
// is a link in the place of the mount point, which is moved to `covered`.

#include "simulator/tools/InstrumentState.h"
#include "simulator/tools/Tool.h"

namespace fs = std::filesystem;
using namespace simulator;
using InstrumentState::Records;

namespace {

const int mountFailure = 32;
const char deviceController[] = "fsl_usb2_udc";
const char massStorage[] = "g_mass_storage";

bool isMounted(const std::string &source)
{
    return !InstrumentState::read(InstrumentState::mounts, source).empty();
}

bool isLoaded(const std::string &module)
{
    return !InstrumentState::read(InstrumentState::modules, module).empty();
}

int remount(const std::string &mounted, const std::string &options)
{
    Records mounts = InstrumentState::read(InstrumentState::mounts);
    auto mount = InstrumentState::findLast(&mounts, 0, mounted);
    if (mount == mounts.end())
        mount = InstrumentState::findLast(&mounts, 1, mounted);
    if (mount == mounts.end())
        return fail(mounted + ": mount point does not exist.", mountFailure);
    mount->at(2) = options == "remount,rw" ? "rw" : "ro";
    InstrumentState::write(InstrumentState::mounts, mounts);
    return 0;
}

fs::path coveredBy(size_t mountIndex)
{
    return InstrumentState::covered / std::to_string(mountIndex);
}

/// A loop device that was detached while it was mounted goes when its file system is unmounted.
void clearLoop(const std::string &device)
{
    Records loops = InstrumentState::read(InstrumentState::loops);
    const auto loop = InstrumentState::findLast(&loops, 0, device);
    if (loop != loops.end() && loop->at(3) == "autoclear")
        loops.erase(loop);
    InstrumentState::write(InstrumentState::loops, loops);
}

int detachLoop(const std::string &device)
{
    Records loops = InstrumentState::read(InstrumentState::loops);
    const auto loop = InstrumentState::findLast(&loops, 0, device);
    if (loop == loops.end())
        return fail(device + ": detach failed: No such device or address", 1);
    if (isMounted(device) && !InstrumentState::read(InstrumentState::plan, "old-kernel").empty())
        return fail(device + ": detach failed: Device or resource busy", 1);
    loop->at(3) = "autoclear";
    InstrumentState::write(InstrumentState::loops, loops);
    if (!isMounted(device))
        clearLoop(device);
    return 0;
}

int attachLoop(const std::string &device, const std::string &offset, const std::string &file)
{
    if (!fs::exists(file))
        return fail(file + ": failed to set up loop device: No such file or directory", 1);
    if (!InstrumentState::read(InstrumentState::loops, device).empty())
        return fail(device + ": failed to set up loop device: Device or resource busy", 1);
    InstrumentState::append(InstrumentState::loops, {device, offset, file, "attached"});
    return 0;
}

bool storageExists(const std::string &parameter)
{
    const std::string prefix = "file=";
    if (parameter.rfind(prefix, 0) != 0)
        return false;
    const std::string storage = parameter.substr(prefix.size());
    return fs::is_regular_file(storage) || !InstrumentState::fileSystemOn(storage).empty();
}

} // namespace

int simulator::runMount(const Call &call)
{
    const auto options = call.options.find('o');
    const bool remounts = options != call.options.end() && options->second.rfind("remount", 0) == 0;
    if (call.operands.size() != (remounts ? 1 : 2))
        return fail("usage error", 1);
    if (remounts)
        return remount(call.operands[0], options->second);

    const std::string &source = call.operands[0];
    const std::string &target = call.operands[1];
    const fs::path fileSystem = InstrumentState::fileSystemOn(source);
    if (!fs::is_directory(target))
        return fail(target + ": mount point does not exist.", mountFailure);
    if (fileSystem.empty())
        return fail(target + ": special device " + source + " does not exist, or holds no file system.", mountFailure);
    if (isMounted(source))
        return fail(target + ": " + source + " already mounted or mount point busy.", mountFailure);

    fs::create_directories(InstrumentState::covered);
    fs::rename(target, coveredBy(InstrumentState::read(InstrumentState::mounts).size()));
    fs::create_symlink(fileSystem, target);
    InstrumentState::append(InstrumentState::mounts, {source, target, "rw"});
    return 0;
}

int simulator::runUmount(const Call &call)
{
    const std::string &target = call.operands[0];
    Records mounts = InstrumentState::read(InstrumentState::mounts);
    const auto mount = InstrumentState::findLast(&mounts, 1, target);
    if (mount == mounts.end())
        return fail(target + ": not mounted.", mountFailure);
    if (target == "/") // stays, but can no longer be written
        return remount(target, "remount,ro");
    const std::string source = mount->at(0);
    fs::remove(target);
    fs::rename(coveredBy(static_cast<size_t>(mount - mounts.begin())), target);
    mounts.erase(mount);
    InstrumentState::write(InstrumentState::mounts, mounts);
    clearLoop(source);
    return 0;
}

int simulator::runLosetup(const Call &call)
{
    if (call.options.count('d') && call.operands.size() == 1)
        return detachLoop(call.operands[0]);
    if (call.options.count('o') && call.operands.size() == 2)
        return attachLoop(call.operands[0], call.options.at('o'), call.operands[1]);
    return fail("usage error", 1);
}

int simulator::runModprobe(const Call &call)
{
    const std::string &name = call.operands[0];
    const std::string parameter = call.operands.size() > 1 ? call.operands[1] : std::string();
    if (name != deviceController && name != massStorage)
        return fail("FATAL: Module " + name + " not found.", 1);
    if (isLoaded(name))
        return 0;
    if (name == massStorage && (!isLoaded(deviceController) || !storageExists(parameter)))
        return fail("ERROR: could not insert '" + name + "': No such device or file", 1);
    InstrumentState::append(InstrumentState::modules, {name, parameter});
    return 0;
}

int simulator::runRmmod(const Call &call)
{
    Records modules = InstrumentState::read(InstrumentState::modules);
    const auto module = InstrumentState::findLast(&modules, 0, call.operands[0]);
    if (module == modules.end())
        return fail("ERROR: Module " + call.operands[0] + " is not currently loaded", 1);
    modules.erase(module);
    InstrumentState::write(InstrumentState::modules, modules);
    return 0;
}
