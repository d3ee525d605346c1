#include "platform/linux/base/ServerConnectionList.h"

#include <unistd.h>

#include <algorithm>
#include <iomanip>
#include <iostream>
#include <sstream>

#include "sw_drv/RTkernel/linux/threadfunc.h"

using threadfunc::MutexLock;

namespace {

struct SharedList {
    threadfunc::mutex guard;  // innermost: no other lock is taken under it
    std::vector<ServerConnectionEntry> entries GUARDED_BY(guard);
};

/// Never destroyed: a dispatch thread may still enter a server while the process ends.
SharedList& sharedList() {
    static SharedList& list = *new SharedList;
    return list;
}

}  // namespace

void recordServerConnection(const ServerConnectionEntry& entry) {
    SharedList& list = sharedList();
    const MutexLock lock(list.guard);
    const auto known = std::find_if(list.entries.begin(), list.entries.end(),
                                    [&entry](const auto& old) { return old.processId == entry.processId; });
    if (known != list.entries.end()) {
        *known = entry;
    } else {
        list.entries.push_back(entry);
    }
}

void getServerConnectionList(std::vector<ServerConnectionEntry>& out) {
    SharedList& list = sharedList();
    const MutexLock lock(list.guard);
    out = list.entries;
}

void printServerConnectionList() {
    std::vector<ServerConnectionEntry> entries;
    getServerConnectionList(entries);
    std::ostringstream table;
    writeServerConnectionTable(table, threadfunc::processName(), getpid(), entries);
    std::cout << table.str() << std::flush;
}

void writeServerConnectionTable(std::ostream& out, std::string_view processName, int processId,
                                const std::vector<ServerConnectionEntry>& entries) {
    out << "Server connection list for '" << processName << "' process id " << processId << ":\n"
        << "  Process Id | Application Name | Application Alias        | Local Alias              | Version |"
           " Version Label\n";
    for (const ServerConnectionEntry& entry : entries)
        out << "  " << std::setw(8) << entry.processId << "   | " << std::setw(16) << entry.applicationName << " | "
            << std::setw(24) << displayAlias(entry, true) << " | " << std::setw(24) << displayAlias(entry, false)
            << " | " << std::setw(7) << entry.version << " | " << entry.versionLabel << '\n';
}
