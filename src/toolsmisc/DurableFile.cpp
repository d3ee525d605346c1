#include "toolsmisc/DurableFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <string_view>

#include "toolsmisc/Descriptor.h"
#include "toolsmisc/FileStatus.h"
#include "toolsmisc/FolderWalk.h"
#include "toolsmisc/HomeFolder.h"
#include "toolsmisc/Path.h"
#include "toolsmisc/Text.h"

namespace toolsmisc {

namespace {

constexpr std::size_t kCopyBlock = 512;
constexpr std::size_t kLongestPath = 4096;

int openCreating(const std::string& path, int access) {
    const std::string file = normalizePath(path);
    if (!makeFoldersOf(file)) return -1;
    return open(file.c_str(), access | O_CREAT | O_CLOEXEC, 0775);
}

bool transferred(ssize_t done, std::size_t wanted) { return done == static_cast<ssize_t>(wanted); }

bool writeWhole(int fd, std::string_view text) {
    return text.empty() || transferred(writeFile(fd, text.data(), text.size()), text.size());
}

// Nothing is cut off before it is read: a file copied onto itself gets each of its blocks once more.
bool copyContent(int source, int destination) {
    std::int64_t left = getOpenFileSize(source);
    if (left < 0) return false;
    std::array<char, kCopyBlock> block{};
    while (left > 0) {
        const auto part = static_cast<std::size_t>(std::min<std::int64_t>(left, kCopyBlock));
        if (!transferred(readFile(source, block.data(), part), part)) return false;
        if (!transferred(writeFile(destination, block.data(), part), part)) return false;
        left -= static_cast<std::int64_t>(part);
    }
    return true;
}

bool changeOwnerWrite(const std::string& path, bool writable) {
    const std::string file = normalizePath(path);
    const auto status = statusOf(file.c_str());
    if (!status) return false;
    constexpr mode_t kAllRights = 07777;
    constexpr mode_t kOwnerWrite = S_IWUSR;
    const mode_t others = status->st_mode & kAllRights & ~kOwnerWrite;
    return chmod(file.c_str(), writable ? others | kOwnerWrite : others) == 0;
}

}  // namespace

std::string normalizePath(const std::string& path) {
    std::string normal = path;
    if (normal.starts_with('~')) {
        if (const auto home = homeOfRealUser()) normal.replace(0, 1, *home);
    }
    std::replace(normal.begin(), normal.end(), '\\', '/');
    return normal;
}

int createFile(const std::string& path) { return openCreating(path, O_RDWR); }

int openForRead(const std::string& path) { return open(normalizePath(path).c_str(), O_RDONLY | O_CLOEXEC); }

int openForWrite(const std::string& path) { return openCreating(path, O_WRONLY); }

int closeFile(int fd) {
    fsync(fd);
    const int result = close(fd);
    sync();
    return result;
}

int flushFile(int fd) { return fsync(fd); }

int truncateFile(int fd, std::int64_t length) { return ftruncate(fd, length); }

std::int64_t getOpenFileSize(int fd) {
    const auto status = statusOfOpen(fd);
    return status ? std::int64_t{status->st_size} : -1;
}

ssize_t readFile(int fd, void* buffer, std::size_t count) { return read(fd, buffer, count); }

ssize_t writeFile(int fd, const void* buffer, std::size_t count) { return write(fd, buffer, count); }

std::int64_t seekFile(int fd, std::int64_t offset, int whence) { return lseek(fd, offset, whence); }

ssize_t readAt(int fd, std::int64_t offset, void* buffer, std::size_t count) {
    if (seekFile(fd, offset, SEEK_SET) < 0) return -1;
    return readFile(fd, buffer, count);
}

bool writeLine(int fd, const std::string& text) { return writeWhole(fd, text) && writeWhole(fd, "\r\n"); }

int moveFile(const std::string& from, const std::string& to) {
    return rename(normalizePath(from).c_str(), normalizePath(to).c_str());
}

int deleteFile(const std::string& path) { return remove(normalizePath(path).c_str()); }

bool copyFile(const std::string& from, const std::string& to) {
    Descriptor source(openForRead(from));
    if (!source.valid()) return false;
    Descriptor destination(openForWrite(to));
    const bool copied = destination.valid() && copyContent(source.get(), destination.get());
    const int reason = errno;
    closeFile(source.release());
    const bool closed = destination.valid() && closeFile(destination.release()) == 0;
    if (!copied) errno = reason;
    return copied && closed;
}

bool setReadOnly(const std::string& path) { return changeOwnerWrite(path, false); }

bool setWritable(const std::string& path) { return changeOwnerWrite(path, true); }

bool getDiskSpace(char drive, std::uint64_t* freeBytes, std::uint64_t* totalBytes) {
    if (std::string_view("aAcC/\\").find(drive) == std::string_view::npos) return false;
    struct statvfs figures {};
    if (statvfs(getRealPath(normalizePath(kPathSeparator)).c_str(), &figures) != 0) return false;
    const std::uint64_t blockBytes = figures.f_bsize;
    if (freeBytes != nullptr) *freeBytes = blockBytes * figures.f_bfree;
    // In 32 bits, so that it wraps: installation scripts compare with the number they have always been given.
    if (totalBytes != nullptr) *totalBytes = static_cast<std::uint32_t>(blockBytes * figures.f_blocks);
    return true;
}

int changeDirectory(const std::string& path) { return chdir(path.c_str()); }

std::string getCurrentDirectory() {
    std::string buffer(kLongestPath, '\0');
    return makeString(getcwd(buffer.data(), buffer.size()), kWholeText);
}

// The same for zero-terminated texts.

std::string normalizePath(const char* path) { return normalizePath(makeString(path, kWholeText)); }
int createFile(const char* path) { return createFile(makeString(path, kWholeText)); }
int openForRead(const char* path) { return openForRead(makeString(path, kWholeText)); }
int openForWrite(const char* path) { return openForWrite(makeString(path, kWholeText)); }
bool writeLine(int fd, const char* text) { return writeLine(fd, makeString(text, kWholeText)); }
int deleteFile(const char* path) { return deleteFile(makeString(path, kWholeText)); }
bool setReadOnly(const char* path) { return setReadOnly(makeString(path, kWholeText)); }
bool setWritable(const char* path) { return setWritable(makeString(path, kWholeText)); }
int changeDirectory(const char* path) { return changeDirectory(makeString(path, kWholeText)); }

int moveFile(const char* from, const char* to) {
    return moveFile(makeString(from, kWholeText), makeString(to, kWholeText));
}

bool copyFile(const char* from, const char* to) {
    return copyFile(makeString(from, kWholeText), makeString(to, kWholeText));
}

}  // namespace toolsmisc
