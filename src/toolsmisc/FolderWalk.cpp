#include "toolsmisc/FolderWalk.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "toolsmisc/Descriptor.h"
#include "toolsmisc/FileStatus.h"
#include "toolsmisc/Path.h"
#include "toolsmisc/Text.h"

namespace toolsmisc {

namespace {

/// A place to go on from, as the current directory would be one: no right to read it is needed.
Descriptor goInto(int folder, const char* name) {
    return Descriptor(openat(folder, name, O_PATH | O_DIRECTORY | O_CLOEXEC));
}

Descriptor goIntoOrCreate(int folder, const char* name) {
    Descriptor next = goInto(folder, name);
    if (next.valid()) return next;
    const int reason = mkdirat(folder, name, 0755) == 0 ? EEXIST : errno;
    next = goInto(folder, name);  // also when it was refused: somebody else may have been faster
    if (!next.valid() && reason != EEXIST) errno = reason;
    return next;
}

/// Only the first folder is named from the root or the current directory, every other one from the folder before it.
bool createFolders(const std::string& path) {
    std::string start = isAbsolutePath(path) ? kPathSeparator : "";
    Descriptor here(AT_FDCWD);
    for (const std::string& component : splitString(path.substr(start.size()), kPathSeparator)) {
        if (component.empty()) {
            errno = EINVAL;
            return false;
        }
        here = goIntoOrCreate(here.get(), (start + component).c_str());
        if (!here.valid()) return false;
        start.clear();
    }
    return true;
}

}  // namespace

bool makeFoldersOf(const std::string& file) {
    const std::size_t separator = file.rfind(kPathSeparator);
    if (separator == std::string::npos || separator == 0) return true;
    const std::string folder = file.substr(0, separator);
    return statusOf(folder.c_str()) || createFolders(folder);
}

}  // namespace toolsmisc
