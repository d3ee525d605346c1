#pragma once
/// Directory listings one entry at a time, as the tools of a small real-time system know them.

#include <cstdint>
#include <string>

namespace toolsmisc {

/// What a listing tells about one entry.
struct FileInfo {
    std::uint32_t attributes = 0;  ///< a sum of kReadOnly, kSystemEntry and kDirectory
    std::uint32_t time = 0;        ///< modification time hhmmss as a decimal number, local time; 0 if it has no date
    std::uint32_t date = 0;        ///< modification date yyyymmdd as a decimal number; 0 if it cannot be put so
    std::uint32_t size = 0;        ///< bytes, 4294967295 for all that are larger
    std::string name;              ///< without its directory
};

inline constexpr std::uint32_t kReadOnly = 0x01;     ///< the owner may not write it
inline constexpr std::uint32_t kSystemEntry = 0x04;  ///< a device or another special entry
inline constexpr std::uint32_t kDirectory = 0x10;    ///< a directory

/// The attributes of a mode as `stat` reports it. The kind of an entry is read from two of its bits, one for
/// directories, one for files: a block device and a socket count as directories, other devices and pipes as system
/// entries. A pure function.
[[nodiscard]] std::uint32_t attributesOfMode(std::uint32_t mode);

/// Expands the shell pattern, keeps its matches for `findNext` in the order of their directory, and fills `info` from
/// the first one. Matches that are gone, or that are links to nothing, are passed over, directories that cannot be read
/// too. Returns false, and leaves `info`, when there is none (left). Pattern and names are taken as they are written.
///
/// There is one list of matches in the process: a `findFirst` of any thread replaces it. Threads that share it get each
/// match once. Both calls wait for the file system.
bool findFirst(FileInfo& info, const std::string& pattern);
/// \copydoc findFirst(FileInfo&,const std::string&)
bool findFirst(FileInfo& info, const char* pattern);
/// Fills `info` from the next match of the last `findFirst`; false when there is none left.
bool findNext(FileInfo& info);

/// One line: "attrib: 0x10; time: 134501; date: 20240105; size: 4096; 'data'". Returns at once; any thread may call it.
[[nodiscard]] std::string formatFileInfo(const FileInfo& info);

}  // namespace toolsmisc
