#include "toolsmisc/FileStatus.h"

namespace toolsmisc {

namespace {

const char* pathText(const char* path) { return path == nullptr ? "" : path; }

}  // namespace

std::optional<FileStatus> statusOf(const char* path) {
    FileStatus status{};
    if (stat(pathText(path), &status) != 0) return std::nullopt;
    return status;
}

std::optional<FileStatus> statusOfLink(const char* path) {
    FileStatus status{};
    if (lstat(pathText(path), &status) != 0) return std::nullopt;
    return status;
}

std::optional<FileStatus> statusOfOpen(int fd) {
    FileStatus status{};
    if (fstat(fd, &status) != 0) return std::nullopt;
    return status;
}

}  // namespace toolsmisc
