#pragma once
/// `stat` and its relatives as values. Any thread may call them; they read the file system and return at once.

#include <sys/stat.h>

#include <optional>

namespace toolsmisc {

/// A status record of the system.
using FileStatus = struct stat;

/// Status of what `path` names, links followed. Empty with `errno` when it cannot be had; a null `path` names nothing.
[[nodiscard]] std::optional<FileStatus> statusOf(const char* path);

/// As `statusOf`, but of a link itself.
[[nodiscard]] std::optional<FileStatus> statusOfLink(const char* path);

/// Status of an open descriptor. Empty with `errno` when it cannot be had.
[[nodiscard]] std::optional<FileStatus> statusOfOpen(int fd);

}  // namespace toolsmisc
