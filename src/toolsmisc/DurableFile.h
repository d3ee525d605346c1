#pragma once
/// Files for tools that come from a small real-time system: paths may be written with "\" and a leading "~", files are
/// plain descriptors, and every close reaches the flash medium before it returns.
///
/// Each operation gives the system call's own result or a boolean, prints nothing and leaves the reason in `errno`. A
/// call on a path exists for strings and for zero-terminated texts, where a null pointer names nothing as "" does. Any
/// thread may call any function; all but `normalizePath` may wait for the medium. A descriptor belongs to the caller,
/// who gives it back with `closeFile`; programs started meanwhile do not inherit it.

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace toolsmisc {

/// `path` with the home directory of the real user for a leading "~" and with "/" for every "\". The "~" stays when the
/// user has no entry in the user database.
[[nodiscard]] std::string normalizePath(const std::string& path);
/// \copydoc normalizePath(const std::string&)
[[nodiscard]] std::string normalizePath(const char* path);

/// Opens the normalised path for reading and writing, creating the file (mode 0775 as far as the umask allows) and
/// before it the directories that are missing (mode 0755). What is in the file stays. Returns the descriptor or -1;
/// also -1, with EINVAL, when a missing directory is written with two "/" in a row. The current directory stays as it
/// is.
int createFile(const std::string& path);
/// \copydoc createFile(const std::string&)
int createFile(const char* path);

/// Opens the normalised path for reading. Returns the descriptor or -1.
int openForRead(const std::string& path);
/// \copydoc openForRead(const std::string&)
int openForRead(const char* path);

/// As `createFile`, for writing only.
int openForWrite(const std::string& path);
/// \copydoc openForWrite(const std::string&)
int openForWrite(const char* path);

/// Writes the file to its medium, closes it, then writes all file systems to theirs. Takes the descriptor; returns the
/// result of closing it, 0 or -1. Slow by design.
int closeFile(int fd);
/// Writes the file to its medium. Returns 0 or -1.
int flushFile(int fd);
/// Cuts or extends the file to `length` bytes. Returns 0 or -1.
int truncateFile(int fd, std::int64_t length);
/// Size of the open file in bytes, or -1.
std::int64_t getOpenFileSize(int fd);

/// Reads at most `count` bytes at the file's position. Returns how many, 0 at the end, or -1.
ssize_t readFile(int fd, void* buffer, std::size_t count);
/// Writes at most `count` bytes at the file's position. Returns how many, or -1.
ssize_t writeFile(int fd, const void* buffer, std::size_t count);
/// Moves the file's position; `whence` is SEEK_SET, SEEK_CUR or SEEK_END. Returns the new position or -1.
std::int64_t seekFile(int fd, std::int64_t offset, int whence);
/// Moves the file's position to `offset` and reads there as `readFile` does. Returns -1 also when it cannot be moved.
ssize_t readAt(int fd, std::int64_t offset, void* buffer, std::size_t count);
/// Writes `text` and "\r\n". Returns whether every byte was written; nothing is tried again.
bool writeLine(int fd, const std::string& text);
/// \copydoc writeLine(int,const std::string&)
bool writeLine(int fd, const char* text);

/// Renames the normalised `from` to the normalised `to`, replacing a file of that name. Returns 0 or -1.
int moveFile(const std::string& from, const std::string& to);
/// \copydoc moveFile(const std::string&,const std::string&)
int moveFile(const char* from, const char* to);
/// Removes the normalised path, a file or an empty directory. Returns 0 or -1.
int deleteFile(const std::string& path);
/// \copydoc deleteFile(const std::string&)
int deleteFile(const char* path);

/// Copies the content of `from` over that of `to`, opened as `openForRead` and `openForWrite` do, in blocks of 512
/// bytes, and closes both as `closeFile` does. As many bytes are copied as `from` had at the beginning; what `to` held
/// beyond them stays. A copy onto itself, by whatever name, changes nothing. Returns whether every byte was copied.
bool copyFile(const std::string& from, const std::string& to);
/// \copydoc copyFile(const std::string&,const std::string&)
bool copyFile(const char* from, const char* to);

/// Takes from, or gives to, the owner the right to write the normalised path; all other rights stay. Returns whether it
/// did.
bool setReadOnly(const std::string& path);
/// \copydoc setReadOnly(const std::string&)
bool setReadOnly(const char* path);
/// \copydoc setReadOnly(const std::string&)
bool setWritable(const std::string& path);
/// \copydoc setReadOnly(const std::string&)
bool setWritable(const char* path);

/// Room on the one root file system, which every drive names: "a", "A", "c", "C", "/" and "\". Bytes that are free, and
/// bytes in all, the latter modulo 4294967296. Either pointer may be null. Returns false, and touches neither, for
/// another drive and when the system cannot tell.
bool getDiskSpace(char drive, std::uint64_t* freeBytes, std::uint64_t* totalBytes);

/// Makes `path`, as it is written, the current directory of the process. Returns 0 or -1.
int changeDirectory(const std::string& path);
/// \copydoc changeDirectory(const std::string&)
int changeDirectory(const char* path);
/// Absolute path of the current directory; empty when it does not exist any more or has more than 4095 characters.
[[nodiscard]] std::string getCurrentDirectory();

}  // namespace toolsmisc
