#pragma once
/// Whether a path can be uploaded.

#include <sys/stat.h>

#include <string>

namespace CANFlasher {

/// True when `path` leads to a regular file. Follows links, as the server does when it opens the path; an empty path
/// and one that cannot be looked at are no regular files.
inline bool leadsToRegularFile(const std::string& path) {
    struct stat entry {};
    return !path.empty() && stat(path.c_str(), &entry) == 0 && S_ISREG(entry.st_mode);
}

}  // namespace CANFlasher
