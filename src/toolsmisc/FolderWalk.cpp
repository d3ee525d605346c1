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
    mkdirat(folder, name, 0755);  // refused when somebody else was faster: then it can be entered now
    return goInto(folder, name);
}

bool walk(Descriptor here, const std::string& components) {
    for (const std::string& component : splitString(components, kPathSeparator)) {
        if (component.empty()) {
            errno = EINVAL;
            return false;
        }
        here = goIntoOrCreate(here.get(), component.c_str());
        if (!here.valid()) return false;
    }
    return here.valid();
}

}  // namespace

bool makeFoldersOf(const std::string& file) {
    const std::size_t separator = file.rfind(kPathSeparator);
    if (separator == std::string::npos || separator == 0) return true;
    const std::string folder = file.substr(0, separator);
    if (statusOf(folder.c_str())) return true;
    if (isAbsolutePath(folder)) return walk(goInto(AT_FDCWD, kPathSeparator), folder.substr(1));
    return walk(goInto(AT_FDCWD, "."), folder);
}

}  // namespace toolsmisc
