// Prints what a program built from the trunk, a branch or a tag says of itself.
#include <cinttypes>
#include <cstdio>

#include "AgApp/SuiteVersions.h"

int main() {
    std::printf("%s\n", AgApp::getVersionLabel().c_str());
    std::printf("%s\n", AgApp::getBuildDate().c_str());
    std::printf("%" PRIu64 "\n", AgApp::getBuildTime());
    std::printf("%s|%s %" PRId32 " %" PRId32 " letter %d", AgApp::getRepositoryPath().c_str(),
                AgApp::getVersionString().c_str(), AgApp::getMajorVersion(), AgApp::getMinorVersion(),
                AgApp::getVersionLetter());
    std::printf("%s%s%s%s\n", AgApp::isTagged() ? " isTagged" : "", AgApp::hasVersion() ? " hasVersion" : "",
                AgApp::hasVersionLetter() ? " hasVersionLetter" : "",
                AgApp::isReleaseVersion() ? " isReleaseVersion" : "");
}
