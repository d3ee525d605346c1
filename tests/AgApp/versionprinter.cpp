// Prints what a program built from the trunk, a branch or a tag says of itself.
#include <cinttypes>
#include <cstdio>

#include "AgApp/SuiteVersions.h"

int main() {
    std::printf("%s\n", AgApp::getVersionLabel().c_str());
    std::printf("%s\n", AgApp::getBuildDate().c_str());
    std::printf("%" PRIu64 "\n", AgApp::getBuildTime());
    std::printf("[%s] %" PRId32 " %" PRId32 " release %d\n", AgApp::getVersionString().c_str(),
                AgApp::getMajorVersion(), AgApp::getMinorVersion(), AgApp::isReleaseVersion() ? 1 : 0);
}
