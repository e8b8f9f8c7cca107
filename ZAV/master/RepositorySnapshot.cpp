#include "RepositorySnapshot.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <dirent.h>
#include <memory>
#include <sys/stat.h>

namespace Velmora {

namespace {

struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};

std::int64_t nanoseconds(timespec const& time)
{
    return static_cast<std::int64_t>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

} // namespace

std::optional<RepositorySnapshot::FileState> RepositorySnapshot::FileState::of(int directory, char const* name)
{
    struct stat status {};
    if (fstatat(directory, name, &status, 0) != 0)
        return std::nullopt;
    return FileState{status.st_dev, status.st_ino, status.st_size, status.st_mtim, status.st_ctim};
}

bool RepositorySnapshot::FileState::operator==(FileState const& other) const
{
    return device == other.device && inode == other.inode && size == other.size &&
           nanoseconds(modified) == nanoseconds(other.modified) && nanoseconds(changed) == nanoseconds(other.changed);
}

// Stamps without a fraction may come from a filesystem that keeps whole
// seconds, or two (FAT); others keep at most 10 ms.
bool RepositorySnapshot::FileState::settledBefore(timespec const& now) const
{
    std::int64_t const unit = changed.tv_nsec == 0 ? 2'000'000'000 : 10'000'000;
    return nanoseconds(changed) + unit < nanoseconds(now);
}

// Calls visit(name, state) for each entry of `directory` but "." and "..",
// in the directory's order, until it answers false; false when the directory
// can't be opened or a visit answered false. Each state is read relative to
// the open directory, so that the path to it isn't walked again for every file.
template <class Visit>
static bool forEachFile(std::string const& directory, Visit visit)
{
    std::unique_ptr<DIR, CloseDirectory> entries(opendir(directory.c_str()));
    if (!entries)
        return false;
    int const descriptor = dirfd(entries.get());
    while (dirent* entry = readdir(entries.get())) {
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0)
            continue;
        if (!visit(entry->d_name, RepositorySnapshot::FileState::of(descriptor, entry->d_name)))
            return false;
    }
    return true;
}

std::optional<RepositorySnapshot> RepositorySnapshot::take(std::string const& directory)
{
    RepositorySnapshot snapshot;
    snapshot.directory = directory;
    // Before the files' states: a later change is stamped after it.
    clock_gettime(CLOCK_REALTIME_COARSE, &snapshot.takenAt);
    bool const opened = forEachFile(directory, [&snapshot](char const* name, std::optional<FileState> state) {
        snapshot.files.emplace_back(name, state);
        return true;
    });
    if (!opened)
        return std::nullopt;
    return snapshot;
}

bool RepositorySnapshot::isCurrent() const
{
    auto file = files.begin();
    bool const same = forEachFile(directory, [&](char const* name, std::optional<FileState> state) {
        if (file == files.end() || file->first != name || file->second != state)
            return false;
        ++file;
        return true;
    });
    return same && file == files.end();
}

std::string RepositorySnapshot::pathOf(File const& file) const
{
    return directory + "/" + file.first;
}

bool RepositorySnapshot::isSettled() const
{
    return std::all_of(files.begin(), files.end(),
                       [this](File const& file) { return file.second && file.second->settledBefore(takenAt); });
}

} // namespace Velmora
