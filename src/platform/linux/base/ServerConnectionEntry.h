#pragma once
/// Who a server application is, and how two of them compare. All functions are pure: safe from any thread.

#include <cstdint>
#include <string>
#include <string_view>

/// One server application as a client knows it.
struct ServerConnectionEntry {
    std::int32_t processId = 0;   ///< The server's process id; 0 when nothing is known of it.
    std::string applicationName;  ///< The server's process name as it reported it.
    std::string description;      ///< From the known applications; empty for any other name.
    std::string localAlias;       ///< Empty unless an application gives one.
    std::string version;          ///< Number of its version, as it reported it.
    std::string versionLabel;     ///< Name of its version, as it reported it.

    bool operator==(const ServerConnectionEntry&) const = default;
};

/// What `matches` leaves out.
enum ServerConnectionMask : unsigned {
    IgnoreProcessId = 1U << 0U,        ///< bit 0
    IgnoreApplicationName = 1U << 1U,  ///< bit 1
    IgnoreVersion = 1U << 2U,          ///< bit 2
    IgnoreVersionLabel = 1U << 3U,     ///< bit 3
};

/// The description of an application the family knows; empty for any other name. Names are compared exactly.
std::string_view applicationDescription(std::string_view applicationName);

/// The name to show: the local alias unless there is none or `ignoreLocal` is set, else the description, else the
/// application's name. Borrowed from `entry`.
const std::string& displayAlias(const ServerConnectionEntry& entry, bool ignoreLocal);

/// True when process id, name, version and version label are equal, but for those in `ignoreMask` (a sum of
/// `ServerConnectionMask`; other bits count nothing). Description and local alias are never compared.
bool matches(const ServerConnectionEntry& entry, const ServerConnectionEntry& other, unsigned ignoreMask);
