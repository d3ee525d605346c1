#include "AgApp/SuiteVersions.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "AgApp/BuildMarker.h"
#include "AgApp/Directories.h"
#include "AgApp/VersionFacts.h"

namespace {

// What the build was configured for.
const std::string kConfiguredPath = DUNMALLOW_TEST_REPOSITORY_PATH;

class TrunkBuild : public testing::Test {
protected:
    void SetUp() override {
        if (kConfiguredPath != "trunk") GTEST_SKIP() << "configured for " << kConfiguredPath;
    }
};

TEST_F(TrunkBuild, UnstampedLabelNamesTrunkAndThePlaceholderYear) {
    EXPECT_EQ(AgApp::getVersionLabel(), "Dev-trunk 1901-01-01 00:00:00 UTC");
}

TEST_F(TrunkBuild, HasNoVersion) {
    EXPECT_EQ(AgApp::getRepositoryPath(), "");
    EXPECT_FALSE(AgApp::isTagged());
    EXPECT_EQ(AgApp::getVersionString(), "");
    EXPECT_EQ(AgApp::getMajorVersion(), 0);
    EXPECT_EQ(AgApp::getMinorVersion(), 0);
    EXPECT_FALSE(AgApp::hasVersionLetter());
    EXPECT_EQ(AgApp::getVersionLetter(), 0);
    EXPECT_FALSE(AgApp::isReleaseVersion());
    EXPECT_FALSE(AgApp::hasVersion());
}

TEST(SuiteVersions, MarkerHas37CharactersAndTheDateInThem) {
    EXPECT_EQ(AgApp::readBuildMarker(), "!Build Date: 1901-01-01 00:00:00 UTC!");
    EXPECT_EQ(AgApp::getBuildDate(), "1901-01-01 00:00:00 UTC");
}

// timegm gives -2177452800; its lower 32 bits, with a zero upper word on 32-bit and 64-bit machines alike.
TEST(SuiteVersions, BuildTimeOfAnUnstampedProgramWraps) {
    EXPECT_EQ(AgApp::getBuildTime(), std::uint64_t{2117514496});
    static_assert(sizeof(AgApp::getBuildTime()) == 8);
}

TEST(SuiteVersions, KeywordIsTheUrlOfItsOwnSourceInTheConfiguredTree) {
    EXPECT_EQ(AgApp::readRepositoryKeyword(), "$HeadURL: svn+ssh://repository.example/usr/local/Repository/" +
                                                  kConfiguredPath + "/src/AgApp/SuiteVersions.cpp $");
}

TEST(SuiteVersions, EveryFactFollowsFromTheKeyword) {
    const std::string path = kConfiguredPath == "trunk" ? "" : kConfiguredPath;
    EXPECT_EQ(AgApp::getRepositoryPath(), path);
    EXPECT_EQ(AgApp::isTagged(), AgApp::isTaggedPath(path));
    EXPECT_EQ(AgApp::getVersionString(), AgApp::versionStringFrom(path));
    EXPECT_EQ(AgApp::getMajorVersion(), AgApp::majorVersionFrom(path));
    EXPECT_EQ(AgApp::getMinorVersion(), AgApp::minorVersionFrom(path));
    EXPECT_EQ(AgApp::getVersionLetter(), AgApp::versionLetterFrom(path));
    EXPECT_EQ(AgApp::hasVersionLetter(), AgApp::versionLetterFrom(path) != 0);
    EXPECT_EQ(AgApp::isReleaseVersion(), AgApp::isTaggedPath(path) && AgApp::versionLetterFrom(path) == 0);
    EXPECT_EQ(AgApp::hasVersion(), !AgApp::versionStringFrom(path).empty());
    EXPECT_EQ(AgApp::getVersionLabel(), AgApp::versionLabelFrom(path, "1901-01-01 00:00:00 UTC"));
}

TEST(SuiteVersions, EveryThreadGetsTheSameAnswers) {
    std::atomic<bool> start{false};
    std::atomic<int> alike{0};
    const auto ask = [&] {
        while (!start) std::this_thread::yield();
        const std::string label = AgApp::getVersionLabel();
        if (label == AgApp::versionLabelFrom(AgApp::getRepositoryPath(), AgApp::getBuildDate()) &&
            AgApp::hasVersion() == !AgApp::getVersionString().empty() && AgApp::getApplicationName() == "common") {
            ++alike;
        }
    };
    std::vector<std::thread> threads;
    threads.reserve(8);
    for (int i = 0; i < 8; ++i) threads.emplace_back(ask);
    start = true;
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(alike, 8);
}

// The program ends on one thread while others still run, so the cached texts must outlive all static objects. This
// check is registered before anything is cached, and so runs after the destructors of whatever was cached later.
bool checkAtExit = false;
void askAtExit() {
    if (!checkAtExit) return;
    const bool kept =
        AgApp::getVersionLabel() == AgApp::versionLabelFrom(AgApp::getRepositoryPath(), AgApp::getBuildDate()) &&
        AgApp::getBuildDate() == "1901-01-01 00:00:00 UTC" && AgApp::getApplicationName() == "common";
    _exit(kept ? 42 : 1);
}
[[maybe_unused]] const int registered = std::atexit(askAtExit);

[[noreturn]] void fillCachesAndExit() {
    static_cast<void>(AgApp::getVersionLabel() + AgApp::getApplicationName());
    checkAtExit = true;
    std::exit(0);
}

TEST(SuiteVersions, CachedTextsOutliveStaticObjects) {
    GTEST_FLAG_SET(death_test_style, "fast");
    EXPECT_EXIT(fillCachesAndExit(), testing::ExitedWithCode(42), "");
}

}  // namespace
