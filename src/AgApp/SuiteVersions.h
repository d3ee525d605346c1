#pragma once
/// Version label, version numbers and build date of the running program. Nothing is read from disk or environment.
/// All functions may be called by any thread, also while another one runs `exit`, and return at once; none fails.

#include <cstdint>
#include <string>

namespace AgApp {

/// Date and time of the build, 23 characters: "1901-01-01 00:00:00 UTC" while nobody has stamped the program.
std::string getBuildDate();

/// The build date as seconds since 1970-01-01 00:00:00 UTC; the upper 32 bits are zero. Means nothing in an unstamped
/// program, where 1901 wraps to 2117514496.
std::uint64_t getBuildTime();

/// The tree that the program was built from: "branches/" and a name, "tags/" and a tag, or "" for the trunk.
std::string getRepositoryPath();

/// Whether the program was built from a tag.
bool isTagged();

/// Version number of a tagged build, e.g. "1.00" or "2.05a"; else empty.
std::string getVersionString();

/// The number before the first "." of the version string; 0 when untagged or without ".".
std::int32_t getMajorVersion();

/// The number after the first "." of the version string; 0 when untagged or without ".".
std::int32_t getMinorVersion();

/// Whether this is a tagged build whose version string ends in a letter "a" to "z".
bool hasVersionLetter();

/// That letter, 0 when there is none.
char getVersionLetter();

/// Whether this is a tagged build without a version letter.
bool isReleaseVersion();

/// Whether the version string is not empty.
bool hasVersion();

/// The label that `-v` prints: "DUNMALLOW 1.00" for a tag, "Dev-trunk " or "Dev-" and the branch's name with the build
/// date for the rest, "Dev-unknown TAG " and the build date for a tag that is no version.
std::string getVersionLabel();

}  // namespace AgApp
