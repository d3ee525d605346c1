#include "Hardware/UploadNames.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>
#include <type_traits>

#include "Hardware/CANFlasherClient.h"

using namespace CANFlasher;

namespace {

struct ModeRow {
    const char* why;
    std::uint32_t mode;
    const char* displayName;
    const char* optionName;
};
class UploadModeNames : public testing::TestWithParam<ModeRow> {};

TEST_P(UploadModeNames, AreShownOnTheScreen) { EXPECT_EQ(modeDisplayName(GetParam().mode), GetParam().displayName); }

TEST_P(UploadModeNames, AreShownInTheUsage) {
    EXPECT_EQ(modeOptionName(static_cast<TMode>(static_cast<std::int32_t>(GetParam().mode))), GetParam().optionName);
}

INSTANTIATE_TEST_SUITE_P(Rows, UploadModeNames,
                         testing::Values(ModeRow{"first", 0, "ISO Style", "ISOStyle"},
                                         ModeRow{"second", 1, "MT CAN", "MTCAN"},
                                         ModeRow{"third", 2, "New Module", "NewModule"},
                                         ModeRow{"last", 3, "Global", "Global"},
                                         ModeRow{"oneBeyondHasNoName", 4, "unknown", ""},
                                         ModeRow{"aByteBeyondHasNoName", 255, "unknown", ""},
                                         ModeRow{"minusOneHasNoName", 0xFFFFFFFFU, "unknown", ""}),
                         [](const auto& row) { return std::string(row.param.why); });

struct OptionRow {
    const char* why;
    const char* text;
    TMode mode;
};
class UploadModeOfOption : public testing::TestWithParam<OptionRow> {};

TEST_P(UploadModeOfOption, IsComparedExactly) { EXPECT_EQ(modeOfOptionName(GetParam().text), GetParam().mode); }

INSTANTIATE_TEST_SUITE_P(Rows, UploadModeOfOption,
                         testing::Values(OptionRow{"iso", "ISOStyle", ISOStyle}, OptionRow{"mtcan", "MTCAN", MTCAN},
                                         OptionRow{"newModule", "NewModule", NewModule},
                                         OptionRow{"global", "Global", Global},
                                         OptionRow{"wrongCaseMeansIsoStyle", "mtcan", ISOStyle},
                                         OptionRow{"displayNameIsNoOption", "MT CAN", ISOStyle},
                                         OptionRow{"prefixMeansIsoStyle", "Glob", ISOStyle},
                                         OptionRow{"moreThanTheNameMeansIsoStyle", "Globals", ISOStyle},
                                         OptionRow{"numberMeansIsoStyle", "3", ISOStyle},
                                         OptionRow{"emptyMeansIsoStyle", "", ISOStyle}),
                         [](const auto& row) { return std::string(row.param.why); });

struct StateRow {
    const char* why;
    std::uint32_t state;
    const char* displayName;
};
class UploadStateNames : public testing::TestWithParam<StateRow> {};

TEST_P(UploadStateNames, AreShownOnTheScreen) { EXPECT_EQ(stateDisplayName(GetParam().state), GetParam().displayName); }

INSTANTIATE_TEST_SUITE_P(
    Rows, UploadStateNames,
    testing::Values(StateRow{"locked", 0, "Locked"}, StateRow{"idle", 1, "Idle"},
                    StateRow{"preparing", 2, "Preparing for upload"}, StateRow{"searching", 3, "Searching for device"},
                    StateRow{"erasing", 4, "Erasing FLASH"}, StateRow{"programming", 5, "Programming"},
                    StateRow{"done", 6, "Done"}, StateRow{"oneBeyondDone", 7, "unknown"},
                    StateRow{"middleOfTheGap", 50, "unknown"}, StateRow{"lastOfTheGap", 99, "unknown"},
                    StateRow{"deviceNotFound", 100, "Error! Device not found."},
                    StateRow{"eraseTimeout", 101, "Error! Timed out while waiting for FLASH erase."},
                    StateRow{"responseTimeout", 102, "Error! Timed out while waiting for response."},
                    StateRow{"hexFileNotFound", 103, "Error! Unable to find the hex file."},
                    StateRow{"hexFileOpen", 104, "Error! Unable to open the hex file."},
                    StateRow{"hexFileFormat", 105, "Error! The hex file is incorrectly formatted."},
                    StateRow{"oneBeyondTheTable", 106, "unknown"}, StateRow{"largestByte", 255, "unknown"},
                    StateRow{"largestOfAll", 0xFFFFFFFFU, "unknown"}),
    [](const auto& row) { return std::string(row.param.why); });

TEST(UploadStateNames, EveryValueOfTheGapIsUnknown) {
    for (std::uint32_t state = 7; state < 100; ++state) EXPECT_EQ(stateDisplayName(state), "unknown") << state;
}

// Widths in memory.
static_assert(std::is_same_v<std::underlying_type_t<TMode>, std::int32_t>);
static_assert(std::is_same_v<std::underlying_type_t<TState>, std::uint32_t>);
static_assert(std::is_same_v<std::underlying_type_t<TUpdCmd>, std::uint32_t>);
static_assert(std::is_same_v<decltype(TStatus::mode), std::uint32_t>);
static_assert(std::is_same_v<decltype(TStatus::state), std::uint32_t>);
static_assert(std::is_same_v<decltype(TStatus::progress), std::uint32_t>);
static_assert(std::is_same_v<decltype(TStatus::address), std::uint32_t>);
static_assert(std::is_same_v<decltype(TStatus::serial), std::uint32_t>);
static_assert(sizeof(TStatus) == 20);
static_assert(std::is_same_v<decltype(UploadRequest::mode), TMode>);
static_assert(std::is_same_v<decltype(UploadRequest::address), std::int32_t>);
static_assert(std::is_same_v<decltype(UploadRequest::serial), std::uint32_t>);

// The class has all names too.
using Client = CANFlasherClient;
static_assert(Client::CmdStatus == 1000 && Client::CmdStatusRequest == 1001 && Client::CmdStatusReset == 1002 &&
              Client::CmdByte == 1003 && Client::CmdUpload == 1004);
static_assert(std::is_same_v<decltype(Client::CmdUpload), const std::uint16_t>);
static_assert(Client::UpdQuit == 0 && Client::UpdStep == 1 && Client::UpdPoll == 2 && Client::UpdDisconnect == 3);
static_assert(Client::ISOStyle == 0 && Client::MTCAN == 1 && Client::NewModule == 2 && Client::Global == 3);
static_assert(Client::Locked == 0 && Client::Idle == 1 && Client::Preparing == 2 && Client::Searching == 3 &&
              Client::Erasing == 4 && Client::Programming == 5 && Client::Done == 6);
static_assert(Client::ErrDeviceNotFound == 100 && Client::ErrEraseTimeout == 101 && Client::ErrResponseTimeout == 102 &&
              Client::ErrHexFileNotFound == 103 && Client::ErrHexFileOpen == 104 && Client::ErrHexFileFormat == 105);

TEST(UploadTypes, HaveTheValuesThatGoOnTheWire) {
    EXPECT_EQ((std::array<int, 4>{ISOStyle, MTCAN, NewModule, Global}), (std::array<int, 4>{0, 1, 2, 3}));
    EXPECT_EQ((std::array<std::uint32_t, 13>{Locked, Idle, Preparing, Searching, Erasing, Programming, Done,
                                             ErrDeviceNotFound, ErrEraseTimeout, ErrResponseTimeout, ErrHexFileNotFound,
                                             ErrHexFileOpen, ErrHexFileFormat}),
              (std::array<std::uint32_t, 13>{0, 1, 2, 3, 4, 5, 6, 100, 101, 102, 103, 104, 105}));
    EXPECT_EQ((std::array<std::uint32_t, 4>{UpdQuit, UpdStep, UpdPoll, UpdDisconnect}),
              (std::array<std::uint32_t, 4>{0, 1, 2, 3}));
    EXPECT_EQ((std::array<int, 5>{CmdStatus, CmdStatusRequest, CmdStatusReset, CmdByte, CmdUpload}),
              (std::array<int, 5>{1000, 1001, 1002, 1003, 1004}));
}

TEST(UploadTypes, BusyIsPreparingToProgramming) {
    EXPECT_FALSE(isBusyState(0));
    EXPECT_FALSE(isBusyState(1));
    for (std::uint32_t state = 2; state <= 5; ++state) EXPECT_TRUE(isBusyState(state)) << state;
    EXPECT_FALSE(isBusyState(6));
    EXPECT_FALSE(isBusyState(255));
    EXPECT_FALSE(isBusyState(0xFFFFFFFFU));
}

TEST(UploadStatus, DefaultKnowsNothing) {
    const TStatus status;
    EXPECT_EQ(status.mode, 0U);
    EXPECT_EQ(status.state, 1U);
    EXPECT_EQ(status.progress, 0U);
    EXPECT_EQ(status.address, 254U);
    EXPECT_EQ(status.serial, 0xFFFFFFFFU);
}

TEST(UploadStatus, DiffersWhenAnyFieldDiffers) {
    const TStatus one{1, 2, 3, 4, 5};
    EXPECT_EQ(one, (TStatus{1, 2, 3, 4, 5}));
    EXPECT_NE(one, (TStatus{0, 2, 3, 4, 5}));
    EXPECT_NE(one, (TStatus{1, 0, 3, 4, 5}));
    EXPECT_NE(one, (TStatus{1, 2, 0, 4, 5}));
    EXPECT_NE(one, (TStatus{1, 2, 3, 0, 5}));
    EXPECT_NE(one, (TStatus{1, 2, 3, 4, 0}));
}

TEST(UploadRequest, DefaultHasAnAddressThatIsRefused) {
    const UploadRequest request;
    EXPECT_EQ(request.mode, ISOStyle);
    EXPECT_EQ(request.address, 254);
    EXPECT_EQ(request.serial, 0U);
    EXPECT_EQ(request.hexFile, "");
    EXPECT_EQ(kHighestDeviceAddress, 253);
}

}  // namespace
