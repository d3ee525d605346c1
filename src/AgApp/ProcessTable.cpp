#include "AgApp/ProcessTable.h"

#include <glob.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstddef>
#include <fstream>
#include <locale>
#include <span>
#include <sstream>

namespace AgApp {

namespace {

constexpr const char* kProcessTable = "/proc";
constexpr std::int32_t kKernelThreadCreator = 2;

/// Owns the matches of a pattern; none when the scan fails.
class Matches {
public:
    explicit Matches(const std::string& pattern) : found(glob(pattern.c_str(), GLOB_NOSORT, nullptr, &result) == 0) {}
    ~Matches() { globfree(&result); }
    Matches(const Matches&) = delete;
    Matches& operator=(const Matches&) = delete;

    std::span<char* const> paths() const { return {result.gl_pathv, found ? result.gl_pathc : 0}; }

private:
    glob_t result{};
    bool found;
};

bool isFolder(const char* path) {
    struct stat status {};
    return stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

bool isNumber(const std::string& text) { return text.find_first_not_of("0123456789") == std::string::npos; }

std::istringstream classicStream(const std::string& text) {
    std::istringstream stream(text);
    stream.imbue(std::locale::classic());
    return stream;
}

template <typename Number>
void readNumber(std::istream& line, Number& value) {
    Number number = 0;
    if (line >> number) value = number;
}

// Only the whole first word is a key: a process may call itself "Pid:".
void readField(std::istream& line, ProcessRecord& record) {
    std::string key;
    line >> key;
    if (key == "Name:") line >> record.name;
    if (key == "Pid:") readNumber(line, record.pid);
    if (key == "PPid:") readNumber(line, record.ppid);
    if (key == "Uid:") {
        readNumber(line, record.realUid);
        readNumber(line, record.effectiveUid);
    }
}

}  // namespace

ProcessRecord parseProcessStatus(std::istream& status) {
    ProcessRecord record;
    for (std::string text; std::getline(status, text);) {
        std::istringstream line = classicStream(text);
        readField(line, record);
    }
    record.isKernelThread = record.pid == kKernelThreadCreator || record.ppid == kKernelThreadCreator;
    return record;
}

ProcessRecord readProcessStatusIn(const std::string& table, int pid) {
    std::ifstream status(table + "/" + std::to_string(pid) + "/status");
    return parseProcessStatus(status);
}

int getParentPidIn(const std::string& table, int pid) { return readProcessStatusIn(table, pid).ppid; }

bool isKernelThreadIn(const std::string& table, int pid) {
    return pid == kKernelThreadCreator || getParentPidIn(table, pid) == kKernelThreadCreator;
}

std::vector<ProcessRecord> listProcessesIn(const std::string& table) {
    std::vector<ProcessRecord> processes;
    const Matches matches(table + "/[0-9]*");
    for (const char* path : matches.paths()) {
        const std::string digits = std::string(path).substr(table.size() + 1);
        if (!isNumber(digits) || !isFolder(path)) continue;
        ProcessRecord record = readProcessStatusIn(table, stringToInt(digits));
        if (record.pid != -1) processes.push_back(std::move(record));
    }
    return processes;
}

bool isProcessRunningIn(const std::string& table, const char* name) {
    if (name == nullptr) return false;
    const std::vector<ProcessRecord> processes = listProcessesIn(table);
    return std::any_of(processes.begin(), processes.end(),
                       [name](const auto& process) { return process.name == name; });
}

ProcessRecord readProcessStatus(int pid) { return readProcessStatusIn(kProcessTable, pid); }
int getParentPid(int pid) { return getParentPidIn(kProcessTable, pid); }
bool isKernelThread(int pid) { return isKernelThreadIn(kProcessTable, pid); }
std::vector<ProcessRecord> listProcesses() { return listProcessesIn(kProcessTable); }
bool isProcessRunning(const char* name) { return isProcessRunningIn(kProcessTable, name); }

int stringToInt(const std::string& text) {
    int value = 0;
    classicStream(text) >> value;
    return value;
}

}  // namespace AgApp
