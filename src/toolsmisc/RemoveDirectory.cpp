#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "toolsmisc/Descriptor.h"
#include "toolsmisc/FileStatus.h"
#include "toolsmisc/FileSystem.h"
#include "toolsmisc/Path.h"
#include "toolsmisc/Text.h"

namespace toolsmisc {

namespace {

bool sameFolder(const FileStatus& one, const FileStatus& other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

/// Number of the mount that an open folder lies in, 0 where the kernel does not number mounts. A folder that is mounted
/// in a second place has the same device there, but another number.
std::uint64_t mountOf(int folder) {
    struct statx extended {};
    statx(folder, "", AT_EMPTY_PATH, STATX_MNT_ID, &extended);
    return extended.stx_mnt_id;
}

/// The folder itself: a link of that name is not followed. Does not wait, not even for a pipe.
Descriptor openFolder(int above, const char* name) {
    return Descriptor(openat(above, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

/// Names of the folder's entries, without those that begin with ".".
std::vector<std::string> visibleEntries(int folder) {
    std::vector<std::string> names;
    Descriptor own(fcntl(folder, F_DUPFD_CLOEXEC, 0));
    const std::unique_ptr<DIR, int (*)(DIR*)> listing(fdopendir(own.get()), &closedir);
    if (!listing) return names;
    static_cast<void>(own.release());  // the listing owns it now
    while (const dirent* entry = readdir(listing.get())) {
        if (entry->d_name[0] != '.') names.emplace_back(entry->d_name);
    }
    return names;
}

/// Empties a folder without recursion and with a handful of descriptors: the walk goes down and up again one folder at
/// a time, up only into the very folder it came from. Each folder's entries are listed once, so that the walk ends.
class FolderEmptier {
public:
    void empty(Descriptor top) {
        open(std::move(top), "");
        while (!levels.empty()) {
            std::vector<std::string>& left = levels.back().left;
            if (left.empty()) {
                if (!leave()) return;
                continue;
            }
            const std::string name = std::move(left.back());
            left.pop_back();
            if (unlinkat(current.get(), name.c_str(), 0) != 0 && !enter(name)) removeEmptyFolder(name);
        }
    }

private:
    struct Level {
        std::string name;  // in the folder above
        FileStatus status;
        std::uint64_t mount;
        std::vector<std::string> left;
    };

    bool open(Descriptor folder, const std::string& name) {
        const auto status = statusOfOpen(folder.get());
        if (!status) return false;
        levels.push_back({name, *status, mountOf(folder.get()), visibleEntries(folder.get())});
        current = std::move(folder);
        return true;
    }

    /// Goes down into `name`, but not into what is mounted there, nor where there is no way back.
    bool enter(const std::string& name) {
        Descriptor below = openFolder(current.get(), name.c_str());
        const auto status = statusOfOpen(below.get());
        const Level& here = levels.back();
        if (!status || status->st_dev != here.status.st_dev || mountOf(below.get()) != here.mount) return false;
        return folderAbove(below.get()).valid() && open(std::move(below), name);
    }

    /// Goes up and removes the folder it came from. False at the top, and when the folder has been moved meanwhile:
    /// the way up would lead out of the tree.
    bool leave() {
        const std::string name = std::move(levels.back().name);
        levels.pop_back();
        if (levels.empty()) return false;
        current = folderAbove(current.get());
        if (!current.valid()) return false;
        removeEmptyFolder(name);
        return true;
    }

    /// The folder above `folder` if that is the one of the last level, else none.
    Descriptor folderAbove(int folder) const {
        Descriptor above = openFolder(folder, "..");
        const auto status = statusOfOpen(above.get());
        return status && sameFolder(*status, levels.back().status) ? std::move(above) : Descriptor(-1);
    }

    void removeEmptyFolder(const std::string& name) const {
        static_cast<void>(unlinkat(current.get(), name.c_str(), AT_REMOVEDIR));
    }

    Descriptor current{-1};
    std::vector<Level> levels;
};

/// `path` as a name that a link hides behind: "link/" would lead through the link.
std::string withoutTrailingSeparators(std::string path) {
    while (path.size() > 1 && path.ends_with(kPathSeparator)) path.pop_back();
    return path;
}

}  // namespace

unsigned removeDirectoryTree(const char* path) {
    const std::string name = withoutTrailingSeparators(makeString(path, kWholeText));
    FolderEmptier().empty(openFolder(AT_FDCWD, name.c_str()));
    return removeDirectory(path, false);
}

unsigned removeDirectory(const char* path, bool recursive) {
    if (recursive) return removeDirectoryTree(path);
    if (rmdir(makeString(path, kWholeText).c_str()) == 0) return kRemoved;
    return errno == ENOTEMPTY ? kDirectoryNotEmpty : kNotRemoved;
}

}  // namespace toolsmisc
