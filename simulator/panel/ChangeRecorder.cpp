#include "simulator/panel/ChangeRecorder.h"

#include <algorithm>

#include "simulator/tools/InstrumentState.h"

namespace fs = std::filesystem;

namespace {

const fs::path changes = InstrumentState::directory / "changes";

// What is no file of the instrument.
const char *const passedOver[] = {"/dev", "/proc", "/run", "/root", "/sys"};

struct Place
{
    fs::path folder;
    const char *shownAs;
};

const Place places[] = {{"/", "/"}, {InstrumentState::flash, "/dev/"}, {InstrumentState::media, "medium "}};

bool isSame(const struct stat &left, const struct stat &right)
{
    if (left.st_mode != right.st_mode)
        return false;
    if (S_ISDIR(left.st_mode))
        return true; // what is in it counts by itself
    return left.st_ino == right.st_ino && left.st_size == right.st_size &&
           left.st_ctim.tv_sec == right.st_ctim.tv_sec && left.st_ctim.tv_nsec == right.st_ctim.tv_nsec;
}

std::string describe(const char *change, const std::string &path, const struct stat &file)
{
    const std::string text = std::string(change) + " " + path;
    if (S_ISREG(file.st_mode) && path.rfind("/dev/", 0) != 0)
        return text + ", " + std::to_string(file.st_size) + " bytes";
    return S_ISDIR(file.st_mode) ? text + "/" : text;
}

} // namespace

void ChangeRecorder::begin()
{
    fs::remove(changes);
    m_Files = takeStock();
}

// A percentage is replaced by taking its line away first, so that one message less means nothing. A prompt clears the
// window for a new sequence.
void ChangeRecorder::messagesShown(int count)
{
    const bool newSequence = count == 1 && m_MessageCount > 1;
    if (count <= m_MessageCount && !newSequence)
        return;
    Files now = takeStock();
    writeFiles(now);
    writeCalls();
    if (newSequence)
        fs::remove(changes);
    m_Files.swap(now);
    m_MessageCount = count;
}

ChangeRecorder::Files ChangeRecorder::takeStock()
{
    Files files;
    for (const Place &place : places) {
        std::error_code error;
        fs::recursive_directory_iterator entry(place.folder, fs::directory_options::skip_permission_denied, error);
        for (; entry != fs::recursive_directory_iterator(); entry.increment(error)) {
            const fs::path &path = entry->path();
            if (std::find(std::begin(passedOver), std::end(passedOver), path) != std::end(passedOver)) {
                entry.disable_recursion_pending();
                continue;
            }
            struct stat status = {};
            if (lstat(path.c_str(), &status) == 0)
                files.emplace(place.shownAs + path.lexically_relative(place.folder).string(), status);
        }
    }
    return files;
}

void ChangeRecorder::write(const std::string &kind, const std::string &what) const
{
    InstrumentState::append(changes, {std::to_string(m_MessageCount - 1), kind, what});
}

void ChangeRecorder::writeFiles(const Files &now) const
{
    for (const auto &[path, status] : now) {
        const auto before = m_Files.find(path);
        if (before == m_Files.end())
            write("changed", describe("new", path, status));
        else if (!isSame(before->second, status))
            write("changed", describe("wrote", path, status));
    }
    for (const auto &[path, status] : m_Files) {
        if (now.find(path) == now.end())
            write("changed", describe("removed", path, status));
    }
}

void ChangeRecorder::writeCalls()
{
    const std::vector<InstrumentState::Record> calls = InstrumentState::read(InstrumentState::calls);
    for (; m_CallsSeen < calls.size(); ++m_CallsSeen)
        write("called", calls[m_CallsSeen].at(0) + "\t" + calls[m_CallsSeen].at(1));
}
