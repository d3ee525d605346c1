#include "AgApp/Directories.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <string>

#include "tests/support/RowName.h"
#include "tests/support/TempFolder.h"

namespace {

using testsupport::ScopedEnvironment;

constexpr uid_t kSuperUser = 0;
constexpr uid_t kOperator = 1000;
constexpr uid_t kNobody = 65534;

// The root that the user who runs the test has with the `HOME` of these tests, written without the code under test.
std::string rootForOperatorHome() { return getuid() == 0 ? "/usr/local/varnex" : "/home/op/.varnex"; }

struct RootRow {
    const char* why;
    uid_t uid;
    const char* home;
    const char* root;
};
class RootDirectory : public testing::TestWithParam<RootRow> {};

TEST_P(RootDirectory, FollowsUserAndHome) {
    EXPECT_EQ(AgApp::rootDirectory(GetParam().uid, GetParam().home), GetParam().root);
}

INSTANTIATE_TEST_SUITE_P(Rows, RootDirectory,
                         testing::Values(RootRow{"superUserWithHome", kSuperUser, "/root", "/usr/local/varnex"},
                                         RootRow{"superUserWithoutHome", kSuperUser, nullptr, "/usr/local/varnex"},
                                         RootRow{"ordinaryUser", kOperator, "/home/op", "/home/op/.varnex"},
                                         RootRow{"firstOrdinaryUser", 1, "/home/op", "/home/op/.varnex"},
                                         RootRow{"largestUser", 4294967294U, "/home/op", "/home/op/.varnex"},
                                         RootRow{"ordinaryUserWithoutHome", kOperator, nullptr, "/usr/local/varnex"},
                                         RootRow{"noDoubledSeparator", kOperator, "/home/op/", "/home/op/.varnex"},
                                         RootRow{"homeIsTheTop", kOperator, "/", "/.varnex"},
                                         RootRow{"emptyHomeIsSet", kOperator, "", ".varnex"},
                                         RootRow{"homeWithBlank", kOperator, "/home/o p", "/home/o p/.varnex"},
                                         RootRow{"twoCharactersGetNoSeparator", kOperator, "/h", "/h.varnex"}),
                         RowName());

struct NameRow {
    const char* why;
    const char* root;
    const char* folder;
    const char* name;
};
class ApplicationName : public testing::TestWithParam<NameRow> {};

TEST_P(ApplicationName, IsTheFolderRelativeToTheRoot) {
    EXPECT_EQ(AgApp::applicationName(GetParam().root, GetParam().folder), GetParam().name);
}

INSTANTIATE_TEST_SUITE_P(Rows, ApplicationName,
                         testing::Values(NameRow{"below", "/usr/local/varnex", "/usr/local/varnex/common", "common"},
                                         NameRow{"deepBelow", "/r", "/r/a/b", "a/b"},
                                         NameRow{"rootItself", "/r", "/r", "app"},
                                         NameRow{"rootAndSeparatorOnly", "/r", "/r/", "app"},
                                         NameRow{"anyOneCharacterSeparates", "/r", "/rxcommon", "common"},
                                         NameRow{"emptyRootBeginsAll", "", "common", "ommon"},
                                         NameRow{"bothEmpty", "", "", "app"},
                                         NameRow{"relativeElsewhere", "/r", "tools/common", "tools/common"},
                                         NameRow{"emptyElsewhere", "/r", "", "app"},
                                         NameRow{"absoluteElsewhere", "/r", "/opt/common", "opt/common"},
                                         NameRow{"onlyTheFirstSeparatorGoes", "/r", "//opt", "/opt"},
                                         NameRow{"topElsewhere", "/r", "/", "app"},
                                         NameRow{"rootInTheMiddleDoesNotCount", "/r", "/opt/r/common", "opt/r/common"},
                                         NameRow{"rootInTheMiddleOfRelative", "/r", "opt/r/common", "opt/r/common"},
                                         NameRow{"rootTwiceFirstCounts", "/r", "/r/r/common", "r/common"},
                                         NameRow{"folderShorterThanRoot", "/root/varnex", "/root", "root"}),
                         RowName());

struct PathRow {
    const char* why;
    std::string (*operation)();
    const char* belowRoot;
};
const PathRow kPaths[] = {
    {"root", AgApp::getRootDirectory, ""},
    {"application", AgApp::getApplicationDirectory, "/common"},
    {"bin", AgApp::getBinDirectory, "/bin"},
    {"system", AgApp::getSystemDirectory, "/system"},
    {"share", AgApp::getShareDirectory, "/share"},
    {"config", AgApp::getConfigDirectory, "/common/config"},
    {"data", AgApp::getDataDirectory, "/common/data"},
    {"wifi", AgApp::getWifiDirectory, "/common/wifi"},
    {"transfer", AgApp::getTransferDirectory, "/common/transfer"},
    {"hexFile", AgApp::getHexFileDirectory, "/common/hexfile"},
    {"auxData", AgApp::getAuxDataDirectory, "/common/data/aux"},
    {"storage", AgApp::getStorageDirectory, "/storage"},
    {"appStorage", AgApp::getAppStorageDirectory, "/storage/common"},
    {"sharedStorage", AgApp::getSharedStorageDirectory, "/storage/share"},
    {"appStorageConfig", AgApp::getAppStorageConfigDirectory, "/storage/common/config"},
    {"appStorageData", AgApp::getAppStorageDataDirectory, "/storage/common/data"},
    {"guideLines", AgApp::getGuideLinesFile, "/common/data/guidelines.gln"},
    {"guideCircles", AgApp::getGuideCirclesFile, "/common/data/guidecircles.gln"},
    {"guidePolygons", AgApp::getGuidePolygonsFile, "/common/data/guidepolygons.gln"},
    {"boundaries", AgApp::getBoundariesFile, "/common/data/boundaries.bnd"},
    {"applied", AgApp::getAppliedFile, "/common/data/applied.rcd"},
    {"quadTree", AgApp::getQuadTreeFile, "/common/data/quadtree.dat"},
    {"lastRun", AgApp::getLastRunFile, "/common/data/lastrun.txt"},
    {"gpsInfo", AgApp::getGpsInfoDirectory, "/common/data/zkgps"},
    {"gpsModel", AgApp::getGpsModelFile, "/common/data/zkgps/model.inf"},
    {"gpsType", AgApp::getGpsTypeFile, "/common/data/zkgps/type.inf"},
    {"gpsFirmware", AgApp::getGpsFirmwareFile, "/common/data/zkgps/firmware.inf"},
};
class DirectoryTable : public testing::TestWithParam<PathRow> {
    ScopedEnvironment home{"HOME", "/home/op"};
    ScopedEnvironment gps{"GPS_INFO_FILES_DIRECTORY", nullptr};
};

TEST_P(DirectoryTable, IsComposedBelowTheRoot) {
    EXPECT_EQ(GetParam().operation(), rootForOperatorHome() + GetParam().belowRoot);
}

INSTANTIATE_TEST_SUITE_P(Rows, DirectoryTable, testing::ValuesIn(kPaths), RowName());

TEST(Directories, ApplicationNameIsCommon) { EXPECT_EQ(AgApp::getApplicationName(), "common"); }

struct NumberRow {
    const char* why;
    int number;
    const char* folder;
};
class NumberedConfigDirectory : public testing::TestWithParam<NumberRow> {
    ScopedEnvironment home{"HOME", "/home/op"};
};

TEST_P(NumberedConfigDirectory, HasAtLeastFourDigits) {
    EXPECT_EQ(AgApp::getNumberedConfigDirectory(GetParam().number),
              rootForOperatorHome() + "/common/config/" + GetParam().folder);
}

INSTANTIATE_TEST_SUITE_P(Rows, NumberedConfigDirectory,
                         testing::Values(NumberRow{"ordinary", 7, "S0007"}, NumberRow{"zero", 0, "S0000"},
                                         NumberRow{"fourDigits", 9999, "S9999"},
                                         NumberRow{"fiveDigits", 12345, "S12345"},
                                         NumberRow{"minusInsideTheWidth", -7, "S-007"},
                                         NumberRow{"largest", 2147483647, "S2147483647"},
                                         NumberRow{"smallest", -2147483647 - 1, "S-2147483648"}),
                         RowName());

struct GpsRow {
    const char* why;
    const char* variable;
    const char* folder;
    const char* model;
    const char* type;
    const char* firmware;
};
class GpsInfo : public testing::TestWithParam<GpsRow> {};

TEST_P(GpsInfo, VariableReplacesTheFolderEvenWhenEmpty) {
    const ScopedEnvironment home("HOME", "/home/op");
    const ScopedEnvironment gps("GPS_INFO_FILES_DIRECTORY", GetParam().variable);
    EXPECT_EQ(AgApp::getGpsInfoDirectory(), GetParam().folder);
    EXPECT_EQ(AgApp::getGpsModelFile(), GetParam().model);
    EXPECT_EQ(AgApp::getGpsTypeFile(), GetParam().type);
    EXPECT_EQ(AgApp::getGpsFirmwareFile(), GetParam().firmware);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, GpsInfo,
    testing::Values(GpsRow{"set", "/var/gps", "/var/gps", "/var/gps/model.inf", "/var/gps/type.inf",
                           "/var/gps/firmware.inf"},
                    GpsRow{"emptyGivesARelativePath", "", "", "model.inf", "type.inf", "firmware.inf"},
                    GpsRow{"trailingSeparator", "/var/gps/", "/var/gps/", "/var/gps/model.inf", "/var/gps/type.inf",
                           "/var/gps/firmware.inf"},
                    GpsRow{"relative", "gps", "gps", "gps/model.inf", "gps/type.inf", "gps/firmware.inf"},
                    GpsRow{"twoCharactersGetNoSeparator", "/g", "/g", "/gmodel.inf", "/gtype.inf", "/gfirmware.inf"}),
    RowName());

TEST(Directories, GpsFolderWithoutVariableIsInTheDataFolder) {
    EXPECT_EQ(AgApp::gpsInfoDirectory(nullptr, "/d"), "/dzkgps") << "two characters get no separator";
    EXPECT_EQ(AgApp::gpsInfoDirectory(nullptr, "/data"), "/data/zkgps");
}

// `check` runs in a child process under the user ids given.
void expectAs(uid_t real, uid_t effective, const std::function<bool()>& check) {
    GTEST_FLAG_SET(death_test_style, "fast");
    const auto child = [&] {
        if (setresuid(real, effective, effective) != 0) _exit(2);
        _exit(check() ? 0 : 1);
    };
    EXPECT_EXIT(child(), testing::ExitedWithCode(0), "");
}

void expectAsOrdinaryUser(const std::function<bool()>& check) {
    const uid_t user = getuid() == kSuperUser ? kNobody : getuid();
    expectAs(user, user, check);
}

TEST(OrdinaryUser, HasARootOfHisOwn) {
    const ScopedEnvironment home("HOME", "/home/op");
    expectAsOrdinaryUser([] {
        return AgApp::getRootDirectory() == "/home/op/.varnex" && AgApp::getBinDirectory() == "/home/op/.varnex/bin";
    });
}

TEST(OrdinaryUser, ChangeOfHomeTakesEffectAtOnce) {
    expectAsOrdinaryUser([] {
        setenv("HOME", "/home/first", 1);
        const bool first = AgApp::getRootDirectory() == "/home/first/.varnex";
        setenv("HOME", "/home/second", 1);
        const bool second = AgApp::getConfigDirectory() == "/home/second/.varnex/common/config";
        unsetenv("HOME");
        return first && second && AgApp::getRootDirectory() == "/usr/local/varnex";
    });
}

TEST(OrdinaryUser, NothingIsCreated) {
    const testsupport::TempFolder folder;
    ASSERT_EQ(chmod(folder.path().c_str(), 0777), 0);
    const ScopedEnvironment home("HOME", folder.path().c_str());
    const ScopedEnvironment gps("GPS_INFO_FILES_DIRECTORY", nullptr);
    expectAsOrdinaryUser([root = folder / ".varnex"] {
        const bool composed = std::all_of(std::begin(kPaths), std::end(kPaths),
                                          [&](const PathRow& row) { return row.operation() == root + row.belowRoot; });
        return composed && AgApp::getApplicationName() == "common" &&
               AgApp::getNumberedConfigDirectory(1) == root + "/common/config/S0001";
    });
    EXPECT_EQ(rmdir(folder.path().c_str()), 0) << "the folder is not empty";
}

TEST(RealUser, CountsNotTheEffectiveOne) {
    if (getuid() != kSuperUser) GTEST_SKIP() << "only the super-user can become somebody else";
    const ScopedEnvironment home("HOME", "/home/op");
    expectAs(kSuperUser, kNobody, [] { return AgApp::getRootDirectory() == "/usr/local/varnex"; });
    expectAs(kNobody, kSuperUser, [] { return AgApp::getRootDirectory() == "/home/op/.varnex"; });
}

// "/home/" and 93 letters, "/.varnex/common/config" and "/S0007" are 127 characters.
TEST(OrdinaryUser, NumberedFolderOfExactly128CharactersLosesItsLast) {
    expectAsOrdinaryUser([] {
        const std::string home127 = "/home/" + std::string(93, 'x');
        setenv("HOME", home127.c_str(), 1);
        const bool whole = AgApp::getNumberedConfigDirectory(7) == home127 + "/.varnex/common/config/S0007";
        const std::string home128 = home127 + "x";
        setenv("HOME", home128.c_str(), 1);
        const bool cut = AgApp::getNumberedConfigDirectory(7) == home128 + "/.varnex/common/config/S000";
        const std::string home129 = home128 + "x";
        setenv("HOME", home129.c_str(), 1);
        return whole && cut && AgApp::getNumberedConfigDirectory(7) == home129 + "/.varnex/common/config/S0007";
    });
}

}  // namespace
