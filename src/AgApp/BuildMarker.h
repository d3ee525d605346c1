#pragma once
/// The two constants that tell when a program was finished and from which tree. The version label and all that
/// belongs to it is computed from them; `docs/version-label.md` tells how both are set.

#include <string>

namespace AgApp {

/// The build-date marker as it stands in the program file: "!Build Date: ", 23 characters of date and time, "!".
/// `scripts/stamp-build-date` overwrites the date in the finished program. Any thread; returns at once.
std::string readBuildMarker();

/// The repository keyword: "$HeadURL: ", the repository's URL of `src/AgApp/SuiteVersions.cpp`, " $".
/// Any thread; returns at once.
std::string readRepositoryKeyword();

}  // namespace AgApp
