#pragma once
/// Processes of this machine, read from the `/proc` file system (proc(5)).
///
/// Each call reads the table afresh. No function reports an error: a process that has gone leaves unknown values, and
/// is left out of a list. All functions may be called by any thread; they read files that never block.

#include <cstdint>
#include <istream>
#include <string>
#include <vector>

namespace AgApp {

/// One process. The initial values are those of a process that is not known.
struct ProcessRecord {
    std::string name;                ///< as the kernel keeps it: at most 15 bytes, and here only up to the first blank
    std::int32_t pid = -1;           ///< process id
    std::int32_t ppid = 0;           ///< the parent's process id
    std::uint32_t effectiveUid = 0;  ///< effective user id
    std::uint32_t realUid = 0;       ///< real user id
    bool isKernelThread = false;     ///< process 2, which creates the kernel's threads, or a child of it
};

/// Reads one process's record from /proc/`pid`/status. Unknown values when there is no such process.
ProcessRecord readProcessStatus(int pid);

/// Id of the parent of `pid`, 0 when there is no such process.
int getParentPid(int pid);

/// Whether `pid` is 2, known without reading anything, or the process's parent is 2.
bool isKernelThread(int pid);

/// All processes that exist at the moment of the scan, in the order of the scan, not sorted. Empty when it fails.
std::vector<ProcessRecord> listProcesses();

/// Whether some process has exactly this name (see `ProcessRecord::name`; case matters). False for null.
bool isProcessRunning(const char* name);

/// The leading decimal number of a text, after white space and with its sign; 0 when there is none, the nearest `int`
/// when it is too large. Independent of the locale.
int stringToInt(const std::string& text);

/// Reads the lines of a status file to their end. A number that is missing or does not fit stays unknown.
ProcessRecord parseProcessStatus(std::istream& status);

/// As `readProcessStatus`, from the process table in the folder `table`.
ProcessRecord readProcessStatusIn(const std::string& table, int pid);
/// As `getParentPid`, from the process table in the folder `table`.
int getParentPidIn(const std::string& table, int pid);
/// As `isKernelThread`, from the process table in the folder `table`.
bool isKernelThreadIn(const std::string& table, int pid);
/// As `listProcesses`, from the process table in the folder `table`.
std::vector<ProcessRecord> listProcessesIn(const std::string& table);
/// As `isProcessRunning`, from the process table in the folder `table`.
bool isProcessRunningIn(const std::string& table, const char* name);

}  // namespace AgApp
