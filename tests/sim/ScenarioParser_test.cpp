#include "sim/ScenarioParser.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <variant>

#include "tests/sim/HexText.h"

namespace {

using namespace std::chrono_literals;
using sim::Moment;

/// The scenario, or an empty one after a test failure that shows the problem.
sim::Scenario parsed(const std::string& text) {
    auto result = sim::parseScenario(text);
    if (const auto* problem = std::get_if<sim::ScenarioProblem>(&result)) {
        ADD_FAILURE() << problem->line << ":" << problem->column << ": expected " << problem->expected << ", got "
                      << problem->got;
        return {};
    }
    return std::get<sim::Scenario>(std::move(result));
}

sim::Settings settings(const std::string& text) { return parsed(text).settings; }

template <typename Kind>
Kind onlyStep(const std::string& text) {
    const sim::Scenario scenario = parsed(text);
    EXPECT_EQ(scenario.onUpload.size(), 1U);
    const auto* step = scenario.onUpload.empty() ? nullptr : std::get_if<Kind>(&scenario.onUpload[0]);
    EXPECT_NE(step, nullptr) << text;
    return step == nullptr ? Kind{} : *step;
}

TEST(SimScenario, EmptyTextIsAServerThatDoesEverythingRight) {
    for (const char* text : {"", "\n\n", "# nothing but words\n", " \t \r\n;;;\n"}) {
        const sim::Scenario scenario = parsed(text);
        ASSERT_EQ(scenario.onConnect.size(), 1U);
        EXPECT_TRUE(std::holds_alternative<sim::Greet>(scenario.onConnect[0]));
        ASSERT_EQ(scenario.onUpload.size(), 1U);
        EXPECT_EQ(std::get<sim::Normal>(scenario.onUpload[0]).until, (Moment{6, {}}));
        EXPECT_EQ(scenario.settings.pace.bitsPerSecond, 250'000U);
        EXPECT_FALSE(scenario.settings.idle);
    }
}

TEST(SimScenarioSetting, PaceIsSettable) {
    const sim::Settings all = settings(
        "bitrate 500000\nblock 0x80\nbytes 4096\nwrite-time 250us\nprepare-time 1s\nsearch-time 2ms\n"
        "erase-time 3s\nverify-time 0ms\nspeed 20\n");
    EXPECT_EQ(all.pace.bitsPerSecond, 500'000U);
    EXPECT_EQ(all.pace.blockBytes, 128U);
    EXPECT_EQ(all.bytes, 4096U);
    EXPECT_EQ(all.pace.writeTime, 250us);
    EXPECT_EQ(all.pace.prepareTime, 1s);
    EXPECT_EQ(all.pace.searchTime, 2ms);
    EXPECT_EQ(all.pace.eraseTime, 3s);
    EXPECT_EQ(all.pace.verifyTime, 0s);
    EXPECT_EQ(all.speed, 20U);
}

TEST(SimScenarioSetting, LifeOfTheServerIsSettable) {
    EXPECT_EQ(settings("idle 30s").idle, sim::Duration(30s));
    EXPECT_FALSE(settings("idle never").idle);
    EXPECT_EQ(settings("listen-delay 250ms").listenDelay, 250ms);
    EXPECT_TRUE(settings("refuse connections").refuseConnections);
    EXPECT_FALSE(settings("").refuseConnections);
    EXPECT_EQ(settings("refuse start").refuseStart, 1);
    EXPECT_EQ(settings("refuse start 7").refuseStart, 7);
    EXPECT_FALSE(settings("").refuseStart);
}

TEST(SimScenarioSetting, DeliveryIsSettable) {
    const sim::Settings split = settings("split 1 3 8 pause 20ms");
    EXPECT_EQ(split.delivery.cuts, (std::vector<std::uint32_t>{1, 3, 8}));
    EXPECT_EQ(split.delivery.cutPause, 20ms);
    const sim::Settings coalesced = settings("coalesce 5 within 300ms");
    EXPECT_EQ(coalesced.delivery.gather, 5U);
    EXPECT_EQ(coalesced.delivery.gatherWithin, 300ms);
    EXPECT_EQ(settings("payload-offset 12").payloadOffset, 12);
}

TEST(SimScenarioSetting, IdentityAndFilesAreSettable) {
    const sim::Settings all = settings(
        "process-id 77\napplication ostrel\nversion 2.1\nversion-label \"2.1 of \t May; # 3\"\n"
        "journal \"/tmp/a b\"\nlog /tmp/c#d\nrange 0x8000 0xFFFF\nignore ping 1002 upload\n");
    EXPECT_EQ(all.identity.processId, 77U);
    EXPECT_EQ(all.identity.application, "ostrel");
    EXPECT_EQ(all.identity.version, "2.1");
    EXPECT_EQ(all.identity.versionLabel, "2.1 of \t May; # 3");
    EXPECT_EQ(all.journal, "/tmp/a b");
    EXPECT_EQ(all.log, "/tmp/c#d");
    EXPECT_EQ(all.addresses, (sim::AddressRange{0x8000, 0xFFFF}));
    EXPECT_EQ(all.ignored, (std::vector<std::uint16_t>{1, 1002, 1004}));
}

TEST(SimScenarioStep, StateMayNameAllFields) {
    const auto full = onlyStep<sim::ShowStatus>("state ErrEraseTimeout progress 42 address 0x2A mode 1 serial 12345");
    EXPECT_EQ(full.state, 101);
    EXPECT_EQ(full.progress, 42);
    EXPECT_EQ(full.address, 0x2A);
    EXPECT_EQ(full.mode, 1);
    EXPECT_EQ(full.serial, 12345U);
    const auto bare = onlyStep<sim::ShowStatus>("state 255");
    EXPECT_EQ(bare.state, 255);
    EXPECT_FALSE(bare.progress || bare.address || bare.mode || bare.serial);
    EXPECT_EQ(onlyStep<sim::ShowStatus>("state 0 serial none").serial, 0xFFFFFFFF);
}

TEST(SimScenarioStep, EveryStateHasAName) {
    const std::pair<const char*, int> names[] = {{"Locked", 0},
                                                 {"Idle", 1},
                                                 {"Preparing", 2},
                                                 {"Searching", 3},
                                                 {"Erasing", 4},
                                                 {"Programming", 5},
                                                 {"Done", 6},
                                                 {"ErrDeviceNotFound", 100},
                                                 {"ErrEraseTimeout", 101},
                                                 {"ErrResponseTimeout", 102},
                                                 {"ErrHexFileNotFound", 103},
                                                 {"ErrHexFileOpen", 104},
                                                 {"ErrHexFileFormat", 105}};
    for (const auto& [name, number] : names)
        EXPECT_EQ(onlyStep<sim::ShowStatus>(std::string("state ") + name).state, number) << name;
}

TEST(SimScenarioStep, StateForATimeIsAStateAndAWait) {
    const sim::Scenario scenario = parsed("state Erasing for 1500ms");
    ASSERT_EQ(scenario.onUpload.size(), 2U);
    EXPECT_EQ(std::get<sim::ShowStatus>(scenario.onUpload[0]).state, 4);
    EXPECT_EQ(std::get<sim::Wait>(scenario.onUpload[1]).time, 1500ms);
}

TEST(SimScenarioStep, EachKindIsRead) {
    EXPECT_EQ(onlyStep<sim::Wait>("wait 20ms").time, 20ms);
    EXPECT_EQ(onlyStep<sim::Wait>("WAIT 20Ms").time, 20ms);
    EXPECT_EQ(onlyStep<sim::Normal>("normal").until, (Moment{6, {}}));
    EXPECT_EQ(onlyStep<sim::Normal>("normal until 40%").until, (Moment{5, 40}));
    EXPECT_EQ(onlyStep<sim::Normal>("normal until preparing").until, (Moment{2, {}}));
    EXPECT_EQ(onlyStep<sim::Normal>("normal until searching").until, (Moment{3, {}}));
    EXPECT_EQ(onlyStep<sim::Normal>("normal until erasing").until, (Moment{4, {}}));
    EXPECT_EQ(onlyStep<sim::Normal>("normal until programming").until, (Moment{5, {}}));
    EXPECT_EQ(onlyStep<sim::Normal>("normal until done").until, (Moment{6, {}}));
    EXPECT_EQ(simtest::hex(onlyStep<sim::SendBytes>("send 00 ff 0102").bytes), "00 ff 01 02");
    EXPECT_EQ(onlyStep<sim::SendPacket>("packet 4711").command, 4711);
    EXPECT_EQ(simtest::hex(onlyStep<sim::SendPacket>("packet 0x1267 01 aB").payload), "01 ab");
    EXPECT_EQ(onlyStep<sim::SendHalf>("half 15").byteCount, 15U);
    EXPECT_EQ(onlyStep<sim::Exit>("exit").status, 0);
    EXPECT_EQ(onlyStep<sim::Exit>("exit 3").status, 3);
    onlyStep<sim::Report>("report");
    onlyStep<sim::Greet>("greet");
    onlyStep<sim::Silence>("silence");
    onlyStep<sim::Speak>("speak");
    onlyStep<sim::Close>("close");
    onlyStep<sim::Reset>("reset");
    onlyStep<sim::Die>("die");
}

TEST(SimScenarioStep, AtAMomentFollowsTheUndisturbedUploadUntilThen) {
    for (const char* text : {"close at 40%", "CLOSE AT 40%", "normal until 40%; close"}) {
        const sim::Scenario scenario = parsed(text);
        ASSERT_EQ(scenario.onUpload.size(), 2U) << text;
        EXPECT_EQ(std::get<sim::Normal>(scenario.onUpload[0]).until, (Moment{5, 40}));
        EXPECT_TRUE(std::holds_alternative<sim::Close>(scenario.onUpload[1]));
    }
}

TEST(SimScenarioStep, EveryKindMayHaveItsMoment) {
    for (const char* step : {"state Idle for 1s", "wait 1s", "normal", "report", "greet", "send 00", "packet 1",
                             "packet 1 02", "half 3", "silence", "speak", "close", "reset", "die", "exit", "exit 1"}) {
        const sim::Scenario scenario = parsed(std::string(step) + " at searching");
        ASSERT_GE(scenario.onUpload.size(), 2U) << step;
        EXPECT_EQ(std::get<sim::Normal>(scenario.onUpload[0]).until, (Moment{3, {}})) << step;
    }
}

TEST(SimScenarioSection, HoldsItsOwnSteps) {
    const sim::Scenario scenario = parsed("speed 2\non connect\n wait 1s\n greet\non upload\n close\n");
    EXPECT_EQ(scenario.onConnect.size(), 2U);
    ASSERT_EQ(scenario.onUpload.size(), 1U);
    EXPECT_TRUE(std::holds_alternative<sim::Close>(scenario.onUpload[0]));
}

TEST(SimScenarioSection, MayBeEmpty) {
    const sim::Scenario scenario = parsed("on connect\non upload\n");
    EXPECT_TRUE(scenario.onConnect.empty());
    EXPECT_TRUE(scenario.onUpload.empty());
}

TEST(SimScenarioSection, ThatIsAbsentKeepsItsDefault) {
    EXPECT_EQ(parsed("on connect\nsilence").onUpload.size(), 1U);
    EXPECT_EQ(parsed("close").onConnect.size(), 1U);
}

TEST(SimScenarioLoop, RepeatsItsSteps) {
    EXPECT_EQ(parsed("repeat 3\nreport\nwait 1ms\nend\n").onUpload.size(), 6U);
    EXPECT_EQ(parsed("report\nrepeat 2\nrepeat 3\nreport\nend\nclose\nend\n").onUpload.size(), 1U + 2 * 4);
    EXPECT_EQ(parsed("repeat 1; report; end").onUpload.size(), 1U);
    EXPECT_EQ(parsed("repeat 100000; report; end").onUpload.size(), 100'000U);
    EXPECT_EQ(parsed("repeat 5; end").onUpload.size(), 0U);
}

const std::string kSettingNames =
    "bitrate, block, bytes, write-time, prepare-time, search-time, erase-time, verify-time, speed, range, idle, "
    "listen-delay, refuse, ignore, payload-offset, split, coalesce, process-id, application, version, version-label, "
    "journal, log";
const std::string kStepNames =
    "normal, state, wait, report, greet, send, packet, half, silence, speak, close, reset, die, exit";

struct BadScenario {
    const char* why;
    std::string text;
    std::uint32_t line, column;
    std::string expected;
    const char* got;
};
class SimBadScenario : public testing::TestWithParam<BadScenario> {};
TEST_P(SimBadScenario, NamesLineColumnAndWhatWasExpected) {
    const auto result = sim::parseScenario(GetParam().text);
    const auto* problem = std::get_if<sim::ScenarioProblem>(&result);
    ASSERT_NE(problem, nullptr);
    EXPECT_EQ(problem->line, GetParam().line);
    EXPECT_EQ(problem->column, GetParam().column);
    EXPECT_EQ(problem->expected, GetParam().expected);
    EXPECT_EQ(problem->got, GetParam().got);
}
const char* const kEnd = "the end of the line";
const char* const kTime = "a time of at most 3600s with its unit, such as 250ms or 2s";
const char* const kMoment = "preparing, searching, erasing, programming, done or a percentage from 0% to 100%";
const char* const kHex = "bytes as pairs of hex digits";
const char* const kMany = "at most 100000 steps in a sequence";
INSTANTIATE_TEST_SUITE_P(
    Directives, SimBadScenario,
    testing::Values(
        BadScenario{"unknownWord", "# one\n\n  frobnicate 3\n", 3, 3,
                    "a setting (" + kSettingNames + "), 'on', 'repeat', 'end' or a step (" + kStepNames + ")",
                    "'frobnicate'"},
        BadScenario{"settingBehindAStep", "close\nspeed 2\n", 2, 1,
                    "'on', 'repeat', 'end' or a step (" + kStepNames + "); settings stand before the first of them",
                    "'speed'"},
        BadScenario{"settingInASection", "on upload\nidle 3s\n", 2, 1,
                    "'on', 'repeat', 'end' or a step (" + kStepNames + "); settings stand before the first of them",
                    "'idle'"},
        BadScenario{"quotedDirective", "\"close\"", 1, 1,
                    "a setting (" + kSettingNames + "), 'on', 'repeat', 'end' or a step (" + kStepNames + ")",
                    "'close'"},
        BadScenario{"wordBehindAStep", "close now", 1, 7, kEnd, "'now'"},
        BadScenario{"wordBehindASetting", "speed 2 3", 1, 9, kEnd, "'3'"},
        BadScenario{"settingTwice", "speed 2\nidle 3s; SPEED 4\n", 2, 10, "each setting once", "'SPEED'"},
        BadScenario{"quoteWithoutAnEnd", "version \"1.2\nspeed 2\"", 1, 9, "a closing '\"' on the same line", "none"},
        BadScenario{"secondDirectiveOfALine", "speed 2; bitrat 3", 1, 10,
                    "a setting (" + kSettingNames + "), 'on', 'repeat', 'end' or a step (" + kStepNames + ")",
                    "'bitrat'"},
        BadScenario{"longWordIsCut", std::string(100, 'x'), 1, 1,
                    "a setting (" + kSettingNames + "), 'on', 'repeat', 'end' or a step (" + kStepNames + ")",
                    "'xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx'"},
        BadScenario{"sectionWithoutAName", "on", 1, 3, "'connect' or 'upload'", kEnd},
        BadScenario{"sectionOfAnotherName", "on start", 1, 4, "'connect' or 'upload'", "'start'"},
        BadScenario{"sectionTwice", "on upload\non connect\non upload", 3, 4, "each section once", "'upload'"},
        BadScenario{"sectionBehindItsLooseSteps", "close\non upload", 2, 4, "each section once", "'upload'"},
        BadScenario{"sectionWithMoreWords", "on upload now", 1, 11, kEnd, "'now'"},
        BadScenario{"sectionInALoop", "repeat 2\non upload\nend", 2, 1, "an 'end' for the 'repeat' of line 1", "'on'"},
        BadScenario{"loopWithoutAnEnd", "report\n  repeat 2\nreport", 2, 3, "an 'end' for this 'repeat'", "none"},
        BadScenario{"endWithoutALoop", "end", 1, 1, "a 'repeat' before this 'end'", "'end'"},
        BadScenario{"loopWithoutACount", "repeat\nend", 1, 7, "a number of repetitions from 1 to 100000", kEnd},
        BadScenario{"loopOfZero", "repeat 0\nend", 1, 8, "a number of repetitions from 1 to 100000", "'0'"},
        BadScenario{"loopTooLong", "repeat 50001; report; report; end", 1, 31, kMany, "'end'"},
        BadScenario{"loopsTooLong", "repeat 100000; repeat 100000; report; end; end", 1, 44, kMany, "'end'"},
        BadScenario{"stepBehindALoopTooMany", "repeat 100000; report; end; close", 1, 34, kMany, kEnd}),
    [](const auto& row) { return std::string(row.param.why); });

INSTANTIATE_TEST_SUITE_P(
    Settings, SimBadScenario,
    testing::Values(
        BadScenario{"noNumber", "bitrate", 1, 8, "bits per second from 1000 to 100000000", kEnd},
        BadScenario{"numberTooSmall", "bitrate 999", 1, 9, "bits per second from 1000 to 100000000", "'999'"},
        BadScenario{"numberTooLarge", "bitrate 100000001", 1, 9, "bits per second from 1000 to 100000000",
                    "'100000001'"},
        BadScenario{"numberBeyond32Bits", "block 4294967297", 1, 7, "bytes from 1 to 65536", "'4294967297'"},
        BadScenario{"negativeNumber", "block -1", 1, 7, "bytes from 1 to 65536", "'-1'"},
        BadScenario{"rubbishBehindANumber", "block 12x", 1, 7, "bytes from 1 to 65536", "'12x'"},
        BadScenario{"hexWithoutDigits", "block 0x", 1, 7, "bytes from 1 to 65536", "'0x'"},
        BadScenario{"quotedNumber", "block \"12\"", 1, 7, "bytes from 1 to 65536", "'12'"},
        BadScenario{"noUploadAtAll", "bytes 0", 1, 7, "bytes from 1 to 16777216", "'0'"},
        BadScenario{"timeWithoutItsUnit", "erase-time 300", 1, 12, kTime, "'300'"},
        BadScenario{"timeWithAnotherUnit", "erase-time 3m", 1, 12, kTime, "'3m'"},
        BadScenario{"timeWithAPoint", "erase-time 1.5s", 1, 12, kTime, "'1.5s'"},
        BadScenario{"timeTooLong", "erase-time 3601s", 1, 12, kTime, "'3601s'"},
        BadScenario{"noTime", "erase-time", 1, 11, kTime, kEnd},
        BadScenario{"writeTimeTooLong", "write-time 11s", 1, 12,
                    "a time of at most 10s with its unit, such as 250ms or 2s", "'11s'"},
        BadScenario{"idleTooLong", "idle 86401s", 1, 6, "a time of at most 86400s with its unit, such as 250ms or 2s",
                    "'86401s'"},
        BadScenario{"speedOfZero", "speed 0", 1, 7, "a factor from 1 to 1000", "'0'"},
        BadScenario{"rangeThatFalls", "range 5 4", 1, 9, "a last address from 5 to 4294967295", "'4'"},
        BadScenario{"refuseAnythingElse", "refuse all", 1, 8, "'connections' or 'start'", "'all'"},
        BadScenario{"refuseStartWithSuccess", "refuse start 0", 1, 14, "an exit status from 1 to 255", "'0'"},
        BadScenario{"ignoreNothing", "ignore", 1, 7,
                    "ping, status-request, status-reset, byte, upload or a command id from 0 to 65535", kEnd},
        BadScenario{"ignoreAnotherName", "ignore ping pong", 1, 13,
                    "ping, status-request, status-reset, byte, upload or a command id from 0 to 65535", "'pong'"},
        BadScenario{"offsetInsideTheHeader", "payload-offset 7", 1, 16, "an offset from 8 to 1024", "'7'"},
        BadScenario{"splitNowhere", "split", 1, 6, "a rising byte offset from 1 to 65535", kEnd},
        BadScenario{"splitAtZero", "split 0", 1, 7, "a rising byte offset from 1 to 65535", "'0'"},
        BadScenario{"splitThatFalls", "split 4 4", 1, 9, "a rising byte offset from 5 to 65535", "'4'"},
        BadScenario{"coalesceNothing", "coalesce 0", 1, 10, "a number of packets from 1 to 1000", "'0'"},
        BadScenario{"splitAndCoalesce", "split 4\ncoalesce 2", 2, 11, "only one of split and coalesce", kEnd},
        BadScenario{"emptyText", "version \"\"", 1, 9, "a text of 1 to 255 bytes", "''"},
        BadScenario{"textTooLong", "version " + std::string(256, 'v'), 1, 9, "a text of 1 to 255 bytes",
                    "'vvvvvvvvvvvvvvvvvvvvvvvvvvvvvvvvvvvvvvvv'"}),
    [](const auto& row) { return std::string(row.param.why); });

INSTANTIATE_TEST_SUITE_P(
    Steps, SimBadScenario,
    testing::Values(
        BadScenario{"noState", "state", 1, 6, "a state's name, or a number from 0 to 255", kEnd},
        BadScenario{"anotherState", "state Busy", 1, 7, "a state's name, or a number from 0 to 255", "'Busy'"},
        BadScenario{"stateTooLarge", "state 256", 1, 7, "a state's name, or a number from 0 to 255", "'256'"},
        BadScenario{"anotherField", "state Idle colour 3", 1, 12, kEnd, "'colour'"},
        BadScenario{"fieldWithoutItsValue", "state Idle progress", 1, 20, "a number from 0 to 255", kEnd},
        BadScenario{"serialTooLarge", "state Idle serial 4294967296", 1, 19,
                    "none, or a serial number from 0 to 4294967295", "'4294967296'"},
        BadScenario{"forWithoutATime", "state Idle for", 1, 15, kTime, kEnd},
        BadScenario{"waitForPercent", "wait 40%", 1, 6, kTime, "'40%'"},
        BadScenario{"untilNowhere", "normal until", 1, 13, kMoment, kEnd},
        BadScenario{"untilIdle", "normal until idle", 1, 14, kMoment, "'idle'"},
        BadScenario{"percentTooLarge", "normal until 101%", 1, 14, "a percentage from 0% to 100%", "'101%'"},
        BadScenario{"percentWithoutItsSign", "close at 40", 1, 10, kMoment, "'40'"},
        BadScenario{"oddHexDigits", "send 00 1", 1, 9, kHex, "'1'"},
        BadScenario{"noHexDigits", "send 0g", 1, 6, kHex, "'0g'"},
        BadScenario{"nothingToSend", "send", 1, 5, kHex, kEnd},
        BadScenario{"nothingToSendAtAMoment", "send at 40%", 1, 6, kHex, "'at'"},
        BadScenario{"commandTooLarge", "packet 65536", 1, 8, "a command id from 0 to 65535", "'65536'"},
        BadScenario{"halfOfNothing", "half 0", 1, 6, "a number of bytes from 1 to 15", "'0'"},
        BadScenario{"halfThatIsWhole", "half 16", 1, 6, "a number of bytes from 1 to 15", "'16'"},
        BadScenario{"exitStatusTooLarge", "exit 256", 1, 6, "an exit status from 0 to 255", "'256'"},
        BadScenario{"uploadWithoutOne", "on connect\nnormal", 2, 1, "a step that needs no upload", "'normal'"},
        BadScenario{"momentWithoutAnUpload", "on connect\nclose at 40%", 2, 7, "no moment of an upload", "'at'"}),
    [](const auto& row) { return std::string(row.param.why); });

TEST(SimScenario, SurvivesDamageAtAnyPlace) {
    const std::string good =
        "bitrate 250000; split 1 3 pause 5ms # words\nversion \"a b\"\non connect\ngreet\non upload\nrepeat 3\n"
        "state Erasing progress 4 serial none for 2s at 40%\nend\npacket 4711 01 02 at searching\nhalf 3\nexit 2\n";
    std::mt19937 random(11);
    for (int round = 0; round < 5000; ++round) {
        std::string text = good;
        for (int hits = 0; hits < 4; ++hits) text[random() % text.size()] = good[random() % good.size()];
        text[random() % text.size()] = static_cast<char>(random());
        const auto result = sim::parseScenario(text);
        if (const auto* problem = std::get_if<sim::ScenarioProblem>(&result)) {
            ASSERT_FALSE(problem->expected.empty());
            ASSERT_GE(problem->line, 1U);
            ASSERT_GE(problem->column, 1U);
        }
    }
}

TEST(SimSettingsText, ChangesWhatItNamesAndNothingElse) {
    sim::Settings target = settings("speed 7\nblock 64\nignore ping");
    EXPECT_FALSE(sim::parseSettings(" idle 2s; block 128 ; ignore byte", target));
    EXPECT_EQ(target.speed, 7U);
    EXPECT_EQ(target.pace.blockBytes, 128U);
    EXPECT_EQ(target.idle, sim::Duration(2s));
    EXPECT_EQ(target.ignored, (std::vector<std::uint16_t>{1003}));
}

TEST(SimSettingsText, HoldsNoSteps) {
    sim::Settings target;
    const auto problem = sim::parseSettings("speed 2; close", target);
    ASSERT_TRUE(problem);
    EXPECT_EQ(problem->column, 10U);
    EXPECT_EQ(problem->expected, "a setting (" + kSettingNames + ")");
    EXPECT_EQ(problem->got, "'close'");
    EXPECT_EQ(sim::parseSettings("speed 2 3", target)->expected, kEnd);
    EXPECT_EQ(sim::parseSettings("speed \"2", target)->column, 7U);
}

}  // namespace
