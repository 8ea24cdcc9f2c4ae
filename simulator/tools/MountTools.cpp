// mount, umount and losetup. A mounted file system is a link in the place of the mount point, which waits aside.

#include "simulator/tools/InstrumentState.h"
#include "simulator/tools/Tool.h"

namespace fs = std::filesystem;
using namespace simulator;
using InstrumentState::Records;

namespace {

const int mountFailure = 32;

struct MountRequest
{
    std::string options;
    Arguments operands;
};

MountRequest parse(const Arguments &arguments)
{
    MountRequest request;
    for (size_t index = 0; index < arguments.size(); ++index) {
        const bool hasValue = index + 1 < arguments.size();
        if (arguments[index] == "-t" && hasValue)
            ++index;
        else if (arguments[index] == "-o" && hasValue)
            request.options = arguments[++index];
        else
            request.operands.push_back(arguments[index]);
    }
    return request;
}

int remount(const MountRequest &request)
{
    if (request.operands.size() != 1)
        return refuse("mount", "bad usage", 1);
    const std::string &mounted = request.operands.front();
    Records mounts = InstrumentState::read(InstrumentState::mounts);
    auto mount = InstrumentState::findLast(&mounts, 0, mounted);
    if (mount == mounts.end())
        mount = InstrumentState::findLast(&mounts, 1, mounted);
    if (mount == mounts.end())
        return refuse("mount", mounted + ": mount point does not exist.", mountFailure);
    mount->at(2) = request.options == "remount,rw" ? "rw" : "ro";
    InstrumentState::write(InstrumentState::mounts, mounts);
    return 0;
}

fs::path coveredBy(size_t mountIndex)
{
    return InstrumentState::covered / std::to_string(mountIndex);
}

bool isMounted(const std::string &source)
{
    Records mounts = InstrumentState::read(InstrumentState::mounts);
    return InstrumentState::findLast(&mounts, 0, source) != mounts.end();
}

// A loop device that was detached while it was mounted goes when its file system is unmounted.
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
        return refuse("losetup", device + ": detach failed: No such device or address", 1);
    if (isMounted(device) && !InstrumentState::read(InstrumentState::plan, "old-kernel").empty())
        return refuse("losetup", device + ": detach failed: Device or resource busy", 1);
    loop->at(3) = "autoclear";
    InstrumentState::write(InstrumentState::loops, loops);
    if (!isMounted(device))
        clearLoop(device);
    return 0;
}

int attachLoop(const std::string &device, const std::string &offset, const std::string &file)
{
    if (!fs::exists(file))
        return refuse("losetup", file + ": failed to set up loop device: No such file or directory", 1);
    Records loops = InstrumentState::read(InstrumentState::loops);
    if (InstrumentState::findLast(&loops, 0, device) != loops.end())
        return refuse("losetup", device + ": failed to set up loop device: Device or resource busy", 1);
    InstrumentState::append(InstrumentState::loops, {device, offset, file, "attached"});
    return 0;
}

} // namespace

int simulator::runMount(const Arguments &arguments)
{
    const MountRequest request = parse(arguments);
    if (request.options.rfind("remount", 0) == 0)
        return remount(request);
    if (request.operands.size() != 2)
        return refuse("mount", "bad usage", 1);

    const std::string &source = request.operands[0];
    const std::string &target = request.operands[1];
    const fs::path fileSystem = InstrumentState::fileSystemOn(source);
    if (!fs::is_directory(target))
        return refuse("mount", target + ": mount point does not exist.", mountFailure);
    if (fileSystem.empty())
        return refuse("mount", target + ": special device " + source + " does not exist, or holds no file system.",
                      mountFailure);
    if (isMounted(source))
        return refuse("mount", target + ": " + source + " already mounted or mount point busy.", mountFailure);

    fs::create_directories(InstrumentState::covered);
    fs::rename(target, coveredBy(InstrumentState::read(InstrumentState::mounts).size()));
    fs::create_symlink(fileSystem, target);
    InstrumentState::append(InstrumentState::mounts, {source, target, "rw"});
    return 0;
}

int simulator::runUmount(const Arguments &arguments)
{
    if (arguments.size() != 1)
        return refuse("umount", "bad usage", 1);
    const std::string &target = arguments.front();
    Records mounts = InstrumentState::read(InstrumentState::mounts);
    const auto mount = InstrumentState::findLast(&mounts, 1, target);
    if (mount == mounts.end())
        return refuse("umount", target + ": not mounted.", mountFailure);
    if (target == "/") { // stays, but can no longer be written
        mount->at(2) = "ro";
        InstrumentState::write(InstrumentState::mounts, mounts);
        return 0;
    }
    const std::string source = mount->at(0);
    fs::remove(target);
    fs::rename(coveredBy(static_cast<size_t>(mount - mounts.begin())), target);
    mounts.erase(mount);
    InstrumentState::write(InstrumentState::mounts, mounts);
    clearLoop(source);
    return 0;
}

int simulator::runLosetup(const Arguments &arguments)
{
    if (arguments.size() == 2 && arguments[0] == "-d")
        return detachLoop(arguments[1]);
    if (arguments.size() == 4 && arguments[0] == "-o")
        return attachLoop(arguments[2], arguments[1], arguments[3]);
    return refuse("losetup", "bad usage", 1);
}
