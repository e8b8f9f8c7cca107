// The files of the repository directory at one moment, each with the state of
// its inode (device, inode, size, mtime, ctime): while a file's state is
// unchanged, so are its bytes, provided the state had settled when it was
// taken. The manifest refresh asks its last snapshot whether it is still
// current, which costs a stat of each file; the RPM backend lists the files
// from one and remembers each file's state.
//
// Threads: a value, with no lock; take() may run on any thread.
#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace Velmora {

class RepositorySnapshot {
public:
    // One state of a file.
    struct FileState {
        // The state of the file `name` in the open directory `directory`
        // names now; none when it can't be read.
        static std::optional<FileState> of(int directory, char const* name);
        bool operator==(FileState const& other) const;
        // True when a change of the file after `now` can't leave the same
        // state: its ctime lies before `now` by more than the unit in which
        // the filesystem stamps changes.
        bool settledBefore(timespec const& now) const;

        dev_t device = 0;
        ino_t inode = 0;
        off_t size = 0;
        timespec modified{};
        timespec changed{};
    };
    // An entry's name and its state when the snapshot was taken.
    using File = std::pair<std::string, std::optional<FileState>>;

    // Every entry of `directory` but "." and "..", in the directory's order;
    // none when the directory can't be opened.
    static std::optional<RepositorySnapshot> take(std::string const& directory);

    std::vector<File> const& getFiles() const { return files; }
    // "<directory>/<name>" of one of the files.
    std::string pathOf(File const& file) const;
    // The coarse clock just before the files were looked at.
    timespec const& getTakenAt() const { return takenAt; }
    // True when every file could be read and had settled before the snapshot
    // began: an equal snapshot taken later then means unchanged bytes.
    bool isSettled() const;
    // True when the directory holds the same files in the same states, in the
    // same order, as when the snapshot was taken; builds no snapshot.
    bool isCurrent() const;

private:
    std::string directory;
    std::vector<File> files;
    timespec takenAt{};
};

} // namespace Velmora
