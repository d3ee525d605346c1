#include "toolsmisc/FileInfo.h"

#include <sys/stat.h>

#include <algorithm>
#include <ctime>
#include <limits>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "toolsmisc/FileStatus.h"
#include "toolsmisc/FileSystem.h"
#include "toolsmisc/Path.h"
#include "toolsmisc/Text.h"

namespace toolsmisc {

namespace {

struct Matches {
    std::mutex mutex;  // guards the other two
    std::vector<std::string> paths;
    std::size_t next = 0;
};

/// The list of the process. It is never destroyed: a thread may still list while the process ends.
Matches& matches() {
    static Matches& all = *new Matches;
    return all;
}

/// As `localtime` does it, with the zone that the user has now. Empty when the year has no room in an int.
std::optional<std::tm> localTime(std::time_t seconds) {
    // tzset renews what it keeps of the zone, under a lock of the system that race detectors do not see.
    static std::mutex zoneMutex;
    const std::lock_guard lock(zoneMutex);
    tzset();
    std::tm local{};
    if (localtime_r(&seconds, &local) == nullptr) return std::nullopt;
    return local;
}

void setModification(FileInfo& info, std::time_t seconds) {
    constexpr int kLastYear = 429'496;  // the last one whose dates have room in 32 bits
    const auto local = localTime(seconds);
    if (!local) return;
    const std::int64_t year = std::int64_t{local->tm_year} + 1900;
    if (year < 0 || year > kLastYear) return;
    info.time = static_cast<std::uint32_t>(local->tm_hour * 10000 + local->tm_min * 100 + local->tm_sec);
    info.date = static_cast<std::uint32_t>(year * 10000 + (local->tm_mon + std::int64_t{1}) * 100 + local->tm_mday);
}

FileInfo infoOf(const std::string& path, const FileStatus& status) {
    FileInfo info;
    info.attributes = attributesOfMode(status.st_mode);
    setModification(info, status.st_mtime);
    info.size =
        static_cast<std::uint32_t>(std::min<std::int64_t>(status.st_size, std::numeric_limits<std::uint32_t>::max()));
    info.name = path.substr(path.rfind(kPathSeparator) + 1);
    return info;
}

void replaceMatches(std::vector<std::string> paths) {
    Matches& all = matches();
    const std::lock_guard lock(all.mutex);
    all.paths = std::move(paths);
    all.next = 0;
}

std::optional<std::string> takeMatch() {
    Matches& all = matches();
    const std::lock_guard lock(all.mutex);
    if (all.next == all.paths.size()) return std::nullopt;
    return all.paths[all.next++];
}

std::string hexadecimal(std::uint32_t value) { return formatString("%x", value); }

}  // namespace

std::uint32_t attributesOfMode(std::uint32_t mode) {
    std::uint32_t attributes = (mode & S_IFDIR) != 0 ? kDirectory : 0;
    if ((mode & (S_IFDIR | S_IFREG)) == 0) attributes |= kSystemEntry;
    if ((mode & S_IWUSR) == 0) attributes |= kReadOnly;
    return attributes;
}

bool findFirst(FileInfo& info, const std::string& pattern) {
    replaceMatches(findFiles(pattern, true));
    return findNext(info);
}

bool findFirst(FileInfo& info, const char* pattern) { return findFirst(info, makeString(pattern, kWholeText)); }

bool findNext(FileInfo& info) {
    while (const auto path = takeMatch()) {
        const auto status = statusOf(path->c_str());
        if (!status) continue;
        info = infoOf(*path, *status);
        return true;
    }
    return false;
}

std::string formatFileInfo(const FileInfo& info) {
    return "attrib: 0x" + hexadecimal(info.attributes) + "; time: " + std::to_string(info.time) +
           "; date: " + std::to_string(info.date) + "; size: " + std::to_string(info.size) + "; '" + info.name + "'";
}

}  // namespace toolsmisc
