#include "platform/linux/base/ServerConnectionEntry.h"

#include <array>

namespace {

struct KnownApplication {
    std::string_view name;
    std::string_view description;
};

// The network manager has no two-letter prefix: operators know it by its full name.
constexpr std::array kKnownApplications{
    KnownApplication{"ostrel", "(FS) File Server"},        KnownApplication{"quenbury", "(UT) Universal Terminal"},
    KnownApplication{"pellick", "ISOBUS Network Manager"}, KnownApplication{"marrowin", "(TC) Task Controller"},
    KnownApplication{"vextoner", "(SM) Sound Manager"},
};

}  // namespace

std::string_view applicationDescription(std::string_view applicationName) {
    for (const KnownApplication& row : kKnownApplications)
        if (row.name == applicationName) return row.description;
    return {};
}

const std::string& displayAlias(const ServerConnectionEntry& entry, bool ignoreLocal) {
    if (!ignoreLocal && !entry.localAlias.empty()) return entry.localAlias;
    return entry.description.empty() ? entry.applicationName : entry.description;
}

bool matches(const ServerConnectionEntry& entry, const ServerConnectionEntry& other, unsigned ignoreMask) {
    const auto compared = [ignoreMask](unsigned bit) { return (ignoreMask & bit) == 0; };
    if (compared(IgnoreProcessId) && entry.processId != other.processId) return false;
    if (compared(IgnoreApplicationName) && entry.applicationName != other.applicationName) return false;
    if (compared(IgnoreVersion) && entry.version != other.version) return false;
    return !compared(IgnoreVersionLabel) || entry.versionLabel == other.versionLabel;
}
