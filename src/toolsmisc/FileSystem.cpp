#include "toolsmisc/FileSystem.h"

#include <glob.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <mutex>

#include "toolsmisc/FileStatus.h"
#include "toolsmisc/Path.h"
#include "toolsmisc/Text.h"

namespace toolsmisc {

namespace {

/// The matches of a pattern, freed with the object.
class GlobMatches {
public:
    GlobMatches(const std::string& pattern, int flags) : failed(glob(pattern.c_str(), flags, nullptr, &matches) != 0) {}
    ~GlobMatches() { globfree(&matches); }
    GlobMatches(const GlobMatches&) = delete;
    GlobMatches& operator=(const GlobMatches&) = delete;

    std::vector<std::string> paths() const {
        if (failed) return {};
        return {matches.gl_pathv, matches.gl_pathv + matches.gl_pathc};
    }

private:
    glob_t matches{};
    bool failed;
};

bool ensureDirectory(const std::string& path) { return isDirectory(path, true) || mkdir(path.c_str(), 0777) == 0; }

}  // namespace

bool isRegularFile(const char* path) {
    const auto status = statusOfLink(path);
    return status && S_ISREG(status->st_mode);
}

bool isDirectory(const char* path, bool followLinks) {
    const auto status = followLinks ? statusOf(path) : statusOfLink(path);
    return status && S_ISDIR(status->st_mode);
}

bool isMountPoint(const char* path) {
    const std::string name = makeString(path, kWholeText);
    const auto itself = statusOfLink(path);
    const auto above = statusOf(joinPath(name, "..").c_str());
    if (isDirectory(path, true) && itself && above && itself->st_dev != above->st_dev) return true;
    return name == kPathSeparator;
}

std::int64_t getModificationTime(const char* path) {
    const auto status = statusOf(path);
    return status ? std::int64_t{status->st_mtime} : 0;
}

std::int32_t getFileSize(const char* path) {
    const auto status = statusOf(path);
    if (!status) return -1;
    if (status->st_size > std::numeric_limits<std::int32_t>::max()) {
        errno = EOVERFLOW;
        return -1;
    }
    return static_cast<std::int32_t>(status->st_size);
}

bool renameFile(const char* from, const char* to) {
    return rename(makeString(from, kWholeText).c_str(), makeString(to, kWholeText).c_str()) != -1;
}

bool removeFile(const char* path) { return isRegularFile(path) && unlink(path) == 0; }

bool makeDirectories(const char* path) {
    const std::vector<std::string> fields = splitString(makeString(path, kWholeText), kPathSeparator);
    std::string running = fields.empty() || !fields.front().empty() ? "" : kPathSeparator;
    bool complete = true;
    for (const std::string& field : fields) {
        running = joinPath(running, field);
        complete = ensureDirectory(running) && complete;
    }
    return complete;
}

bool makeTempDirectory(std::string& out) {
    // The name is written into the pattern itself and uses it up: tools count on at most one such folder a process.
    static char pattern[] = "/tmp/toolsmisc-XXXXXX";
    static std::mutex patternMutex;
    const std::lock_guard lock(patternMutex);
    out = makeString(mkdtemp(pattern), kWholeText);
    return !out.empty();
}

std::vector<std::string> findFiles(const char* pattern, bool ignoreErrors) {
    return GlobMatches(makeString(pattern, kWholeText), GLOB_NOSORT | (ignoreErrors ? 0 : GLOB_ERR)).paths();
}

}  // namespace toolsmisc
