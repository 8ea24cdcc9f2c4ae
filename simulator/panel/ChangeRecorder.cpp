#include "simulator/panel/ChangeRecorder.h"

#include <set>

#include "simulator/tools/InstrumentState.h"

namespace fs = std::filesystem;

namespace simulator {

namespace {

const std::set<fs::path> volatileFolders = {"/dev", "/proc", "/run", "/root", "/sys"};
const std::map<fs::path, const char *> shownFolders = {
    {"/", "/"}, {InstrumentState::flash, "/dev/"}, {InstrumentState::media, "medium "}};

bool isSame(const struct stat &left, const struct stat &right)
{
    if (left.st_mode != right.st_mode)
        return false;
    if (S_ISDIR(left.st_mode))
        return true; // what is in it counts by itself
    return left.st_ino == right.st_ino && left.st_size == right.st_size &&
           left.st_ctim.tv_sec == right.st_ctim.tv_sec && left.st_ctim.tv_nsec == right.st_ctim.tv_nsec;
}

void write(const char *change, const std::string &path, const struct stat &file)
{
    std::string text = std::string(change) + " " + path;
    if (S_ISREG(file.st_mode) && path.rfind("/dev/", 0) != 0)
        text += ", " + std::to_string(file.st_size) + " bytes";
    InstrumentState::append(InstrumentState::journal, {"change", S_ISDIR(file.st_mode) ? text + "/" : text});
}

} // namespace

void ChangeRecorder::record()
{
    Files now = snapshot();
    for (const auto &[path, status] : now) {
        const auto before = m_Files.find(path);
        if (before == m_Files.end())
            write("new", path, status);
        else if (!isSame(before->second, status))
            write("wrote", path, status);
    }
    for (const auto &[path, status] : m_Files) {
        if (now.find(path) == now.end())
            write("removed", path, status);
    }
    m_Files.swap(now);
}

ChangeRecorder::Files ChangeRecorder::snapshot()
{
    Files files;
    for (const auto &[folder, shownAs] : shownFolders) {
        std::error_code error;
        fs::recursive_directory_iterator entry(folder, fs::directory_options::skip_permission_denied, error);
        for (; entry != fs::recursive_directory_iterator(); entry.increment(error)) {
            const fs::path &path = entry->path();
            struct stat status = {};
            if (volatileFolders.count(path))
                entry.disable_recursion_pending();
            else if (lstat(path.c_str(), &status) == 0)
                files.emplace(shownAs + path.lexically_relative(folder).string(), status);
        }
    }
    return files;
}

} // namespace simulator
