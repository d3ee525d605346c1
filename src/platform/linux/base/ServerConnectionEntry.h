#pragma once
/// One server application as a client knows it.

#include <cstdint>
#include <string>
#include <string_view>

struct ServerConnectionEntry {
    std::int32_t processId = 0;
    std::string applicationName;  ///< The server's process name as it reported it.
    std::string description;      ///< From the known applications; empty for any other name.
    std::string localAlias;       ///< Empty unless an application gives one.
    std::string version;
    std::string versionLabel;

    bool operator==(const ServerConnectionEntry&) const = default;
};

/// What `matches` leaves out.
enum ServerConnectionMask : unsigned {
    IgnoreProcessId = 1U << 0U,
    IgnoreApplicationName = 1U << 1U,
    IgnoreVersion = 1U << 2U,
    IgnoreVersionLabel = 1U << 3U,
};

/// The description of an application the family knows; empty for any other name. Names are compared exactly.
std::string_view applicationDescription(std::string_view applicationName);

/// The name to show: the local alias unless there is none or `ignoreLocal` is set, else the description, else the
/// application's name.
const std::string& displayAlias(const ServerConnectionEntry& entry, bool ignoreLocal);

/// True when process id, name, version and version label are equal, but for those in `ignoreMask` (a sum of
/// `ServerConnectionMask`; other bits count nothing). Description and local alias are never compared.
bool matches(const ServerConnectionEntry& entry, const ServerConnectionEntry& other, unsigned ignoreMask);
