#pragma once
/// Simple questions and changes to the file system. Paths are zero-terminated texts or strings, relative to the current
/// directory unless they begin with "/"; a null path names nothing, as "" does. Failures are plain results, and where
/// the system refused, `errno` tells the reason, unless a function says otherwise. Any thread may call any function;
/// each waits only for the file system.

#include <cstdint>
#include <string>
#include <vector>

namespace toolsmisc {

/// Whether `path` is a regular file. A link is none, whatever it leads to.
[[nodiscard]] bool isRegularFile(const char* path);
/// Whether `path` is a directory, or with `followLinks` a link that leads to one.
[[nodiscard]] bool isDirectory(const char* path, bool followLinks);

/// Whether `path` is a directory on another device than the directory above it, or exactly "/". The device of a link is
/// the link's own, the directory above it is that of its target. The directory above is `joinPath(path, "..")`, so a
/// path of two characters is never found to be a mount point.
[[nodiscard]] bool isMountPoint(const char* path);

/// Modification time in whole seconds since 1970, links followed; 0 when it cannot be had.
[[nodiscard]] std::int64_t getModificationTime(const char* path);
/// Size in bytes, links followed; -1 when it cannot be had, or is beyond 2147483647 bytes (`errno` is EOVERFLOW).
[[nodiscard]] std::int32_t getFileSize(const char* path);

/// Renames `from` to `to`, replacing a file of that name. Returns whether it did.
bool renameFile(const char* from, const char* to);
/// Removes `path` if it is a regular file, nothing else. Returns whether it was removed. `errno` is left as it was by
/// anything else that is there, as a directory, pipe or link.
bool removeFile(const char* path);

/// Creates every missing directory along `path`, for everyone as far as the umask allows. Components are put together
/// by `joinPath`, one at a time, so "ab/cd" creates "ab" and "abcd". Goes on behind a component that cannot be created,
/// and then returns false; `errno` then tells nothing, as the calls for the rest may have changed it. An empty path
/// needs nothing and gives true.
bool makeDirectories(const char* path);

/// Creates a new directory "/tmp/toolsmisc-XXXXXX" for this user only, six characters chosen by the system, and puts
/// its path into `out`. One a process: the first call uses up the name, every later call, in any thread, fails. Returns
/// false and clears `out` on failure. The caller removes the directory.
bool makeTempDirectory(std::string& out);

/// The paths that match the shell pattern, in the order of their directory. Empty when none does, and, unless
/// `ignoreErrors`, when any directory on the way cannot be read.
[[nodiscard]] std::vector<std::string> findFiles(const char* pattern, bool ignoreErrors);

/// Results of the two removals below.
inline constexpr unsigned kNotRemoved = 0;         ///< anything but the two others
inline constexpr unsigned kRemoved = 1;            ///< the directory is gone
inline constexpr unsigned kDirectoryNotEmpty = 2;  ///< the directory is still there, with something in it

/// Empties the directory as far as it can and removes it, returning kRemoved, kDirectoryNotEmpty or kNotRemoved.
///
/// Left behind are entries whose names begin with ".", what the system refuses to remove, file systems mounted inside,
/// and the directories that hold such. Links inside are removed, not followed. Nothing outside the directory is ever
/// removed: a path is a name and no pattern, a `path` that is a link (with or without "/" behind it) is left as it is
/// with all it leads to, and so is the current directory for an empty path. The tree may be of any depth; a few
/// descriptors and no stack are used for it. The call ends also while others add entries.
unsigned removeDirectoryTree(const char* path);
/// Removes an empty directory; with `recursive` the same as `removeDirectoryTree`. Same results.
unsigned removeDirectory(const char* path, bool recursive);

// The same for strings.

/// \copydoc isRegularFile(const char*)
[[nodiscard]] inline bool isRegularFile(const std::string& path) { return isRegularFile(path.c_str()); }
/// \copydoc isDirectory(const char*,bool)
[[nodiscard]] inline bool isDirectory(const std::string& path, bool followLinks) {
    return isDirectory(path.c_str(), followLinks);
}
/// \copydoc isMountPoint(const char*)
[[nodiscard]] inline bool isMountPoint(const std::string& path) { return isMountPoint(path.c_str()); }
/// \copydoc getModificationTime(const char*)
[[nodiscard]] inline std::int64_t getModificationTime(const std::string& path) {
    return getModificationTime(path.c_str());
}
/// \copydoc getFileSize(const char*)
[[nodiscard]] inline std::int32_t getFileSize(const std::string& path) { return getFileSize(path.c_str()); }
/// \copydoc renameFile(const char*,const char*)
inline bool renameFile(const std::string& from, const std::string& to) { return renameFile(from.c_str(), to.c_str()); }
/// \copydoc removeFile(const char*)
inline bool removeFile(const std::string& path) { return removeFile(path.c_str()); }
/// \copydoc makeDirectories(const char*)
inline bool makeDirectories(const std::string& path) { return makeDirectories(path.c_str()); }
/// \copydoc findFiles(const char*,bool)
[[nodiscard]] inline std::vector<std::string> findFiles(const std::string& pattern, bool ignoreErrors) {
    return findFiles(pattern.c_str(), ignoreErrors);
}
/// \copydoc removeDirectoryTree(const char*)
inline unsigned removeDirectoryTree(const std::string& path) { return removeDirectoryTree(path.c_str()); }
/// \copydoc removeDirectory(const char*,bool)
inline unsigned removeDirectory(const std::string& path, bool recursive) {
    return removeDirectory(path.c_str(), recursive);
}

}  // namespace toolsmisc
