#pragma once
/// All server applications that this process has met, by their process ids.

#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/base/ServerConnectionEntry.h"

// The process has one list, in order of first arrival. All three may be called by any thread and return at once.

/// Enters `entry`, in the place of the entry with the same process id if there is one.
void recordServerConnection(const ServerConnectionEntry& entry);
/// Replaces `out` by a copy of the list.
void getServerConnectionList(std::vector<ServerConnectionEntry>& out);
/// Prints the list as a table to standard output, under this process's name and id.
void printServerConnectionList();

/// Writes the table of `entries`, in their order, to `out`. `processName` and `processId` stand in its title.
void writeServerConnectionTable(std::ostream& out, std::string_view processName, int processId,
                                const std::vector<ServerConnectionEntry>& entries);
