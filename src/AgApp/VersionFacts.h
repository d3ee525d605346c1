#pragma once
/// What can be read off the build-date marker and the repository keyword. Pure functions of their arguments: any
/// thread, return at once, never fail. `SuiteVersions.h` gives the same facts for the running program.
///
/// `repositoryPath` is what `repositoryPathFrom` returns: "tags/" and a tag, "branches/" and a branch name, or "" for
/// the trunk. A tag is a code name, "-Ver-", the major number, "_" and the minor number: "DUNMALLOW-Ver-1_00".

#include <cstdint>
#include <string>

namespace AgApp {

/// The 23 characters of date and time inside a marker: "1901-01-01 00:00:00 UTC". Empty for a text too short to hold
/// any.
std::string buildDateFrom(const std::string& marker);

/// Seconds since 1970-01-01 00:00:00 UTC of a date made by `buildDateFrom`, in the lower 32 bits; the upper 32 bits are
/// zero on every platform. Right for 1970 to 2106; earlier dates wrap, so an unstamped program's 1901 gives 2117514496.
/// The digits are not checked: each character counts as its distance from '0', a missing one as '0', and months, days,
/// hours, minutes and seconds out of range carry into the next larger unit.
std::uint64_t buildTimeFrom(const std::string& buildDate);

/// The tree named by a keyword: the first "/usr/local/Repository/" counts, and at least one more component must follow
/// the branch's or the tag's name. Empty for the trunk, for any other tree and without a match.
std::string repositoryPathFrom(const std::string& keyword);

/// Whether the path begins with "tags/".
bool isTaggedPath(const std::string& repositoryPath);

/// Version number of a tag, the part after its last "-" with "." for "_": "1.00". Empty for an untagged path and for a
/// tag with fewer than two "-".
std::string versionStringFrom(const std::string& repositoryPath);

/// The number before the first "." of the version number, limited to 32 bits; 0 when untagged or without ".".
std::int32_t majorVersionFrom(const std::string& repositoryPath);

/// The number after the first "." of the version number, limited to 32 bits; 0 when untagged or without ".".
/// A trailing letter is ignored.
std::int32_t minorVersionFrom(const std::string& repositoryPath);

/// The version number's last character when it is a letter "a" to "z", else 0.
char versionLetterFrom(const std::string& repositoryPath);

/// The label for people: "DUNMALLOW 1.00" for a tag, "Dev-" with the branch's name or "trunk" and the build date for
/// the rest, "Dev-unknown TAG " and the build date for a tag that is no version.
std::string versionLabelFrom(const std::string& repositoryPath, const std::string& buildDate);

}  // namespace AgApp
