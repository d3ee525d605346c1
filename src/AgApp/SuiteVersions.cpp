#include "AgApp/SuiteVersions.h"

#include "AgApp/BuildMarker.h"
#include "AgApp/VersionFacts.h"

// Cached texts are never destroyed: the program may end on one thread while another still asks for its version.

namespace AgApp {

std::string getBuildDate() {
    static const std::string& date = *new std::string(buildDateFrom(readBuildMarker()));
    return date;
}

std::uint64_t getBuildTime() { return buildTimeFrom(getBuildDate()); }

std::string getRepositoryPath() {
    static const std::string& path = *new std::string(repositoryPathFrom(readRepositoryKeyword()));
    return path;
}

bool isTagged() { return isTaggedPath(getRepositoryPath()); }

std::string getVersionString() { return versionStringFrom(getRepositoryPath()); }

std::int32_t getMajorVersion() { return majorVersionFrom(getRepositoryPath()); }

std::int32_t getMinorVersion() { return minorVersionFrom(getRepositoryPath()); }

bool hasVersionLetter() { return getVersionLetter() != 0; }

char getVersionLetter() { return versionLetterFrom(getRepositoryPath()); }

bool isReleaseVersion() { return isTagged() && !hasVersionLetter(); }

bool hasVersion() {
    static const bool known = !getVersionString().empty();
    return known;
}

std::string getVersionLabel() {
    static const std::string& label = *new std::string(versionLabelFrom(getRepositoryPath(), getBuildDate()));
    return label;
}

}  // namespace AgApp
