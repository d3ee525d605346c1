#include "app/OptionParser.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <type_traits>
#include <vector>

#include "AgApp/SuiteVersions.h"
#include "tests/app/ParsedOptions.h"
#include "tests/support/CapturedOutput.h"

using namespace CANFlasher;
using testsupport::ParsedOptions;

namespace {

using Arguments = std::vector<std::string>;

TEST(OptionParser, WithoutOptionsLeavesTheDefaults) {
    const ParsedOptions parsed({});
    EXPECT_EQ(parsed.status, std::nullopt);
    EXPECT_FALSE(parsed.options.quitRequested);
    EXPECT_EQ(parsed.options.hexFile, nullptr);
    EXPECT_EQ(parsed.options.mode, ISOStyle);
    EXPECT_EQ(parsed.options.serialNumber, 0U);
    EXPECT_EQ(parsed.options.interfaceIndex, 0);
    EXPECT_EQ(parsed.options.address, 254);
    EXPECT_EQ(parsed.options.port, 41265);
    EXPECT_STREQ(parsed.options.hostName, "localhost");
    EXPECT_EQ(parsed.out.str() + parsed.err.str(), "");
}

TEST(OptionParser, TheRecordCanBeCopiedAndReset) {
    FlasherOptions options;
    options.quitRequested = true;
    options.hexFile = "a.hex";
    options.port = 5000;
    const FlasherOptions copy = options;
    options = FlasherOptions{};
    EXPECT_TRUE(copy.quitRequested);
    EXPECT_STREQ(copy.hexFile, "a.hex");
    EXPECT_EQ(copy.port, 5000);
    EXPECT_FALSE(options.quitRequested);
    EXPECT_EQ(options.hexFile, nullptr);
    EXPECT_EQ(options.port, 41265);
    static_assert(std::is_same_v<decltype(options.quitRequested), bool>);
}

TEST(OptionParser, FillsEveryField) {
    const ParsedOptions parsed(
        {"-u", "a b.hex", "-m", "Global", "-a", "0x2A", "-n", "12345", "-p", "5000", "-s", "box", "-i", "2"});
    EXPECT_EQ(parsed.status, std::nullopt);
    EXPECT_STREQ(parsed.options.hexFile, "a b.hex");
    EXPECT_EQ(parsed.options.mode, Global);
    EXPECT_EQ(parsed.options.address, 42);
    EXPECT_EQ(parsed.options.serialNumber, 12345U);
    EXPECT_EQ(parsed.options.port, 5000);
    EXPECT_STREQ(parsed.options.hostName, "box");
    EXPECT_EQ(parsed.options.interfaceIndex, 2);
    EXPECT_FALSE(parsed.options.quitRequested);
    EXPECT_EQ(parsed.out.str() + parsed.err.str(), "");
}

TEST(OptionParser, TakesAnArgumentInTheSameWord) {
    const ParsedOptions parsed({"-ufile.hex", "-mMTCAN", "-a31", "-n7", "-p2001", "-shost", "-i-1"});
    EXPECT_STREQ(parsed.options.hexFile, "file.hex");
    EXPECT_EQ(parsed.options.mode, MTCAN);
    EXPECT_EQ(parsed.options.address, 31);
    EXPECT_EQ(parsed.options.serialNumber, 7U);
    EXPECT_EQ(parsed.options.port, 2001);
    EXPECT_STREQ(parsed.options.hostName, "host");
    EXPECT_EQ(parsed.options.interfaceIndex, -1);
}

TEST(OptionParser, LaterOptionOverridesEarlierOne) {
    const ParsedOptions parsed({"-u", "one", "-m", "Global", "-a", "1",   "-n", "1",       "-p", "2000",
                                "-s", "one", "-i", "1",      "-u", "two", "-m", "nothing", "-a", "2",
                                "-n", "2",   "-p", "3000",   "-s", "two", "-i", "2"});
    EXPECT_STREQ(parsed.options.hexFile, "two");
    EXPECT_EQ(parsed.options.mode, ISOStyle);
    EXPECT_EQ(parsed.options.address, 2);
    EXPECT_EQ(parsed.options.serialNumber, 2U);
    EXPECT_EQ(parsed.options.port, 3000);
    EXPECT_STREQ(parsed.options.hostName, "two");
    EXPECT_EQ(parsed.options.interfaceIndex, 2);
}

TEST(OptionParser, OperandsAreIgnoredWhereverTheyStand) {
    const ParsedOptions parsed({"first", "-a", "1", "second", "-n", "2", "--", "-a", "9"});
    EXPECT_EQ(parsed.status, std::nullopt);
    EXPECT_EQ(parsed.options.address, 1);
    EXPECT_EQ(parsed.options.serialNumber, 2U);
}

TEST(OptionParser, WithoutAnyArgumentVectorGoesOn) {
    FlasherOptions options;
    std::ostringstream out;
    char* nothing[] = {nullptr};
    EXPECT_EQ(parseOptions(0, nothing, options, out, out), std::nullopt);
    EXPECT_EQ(out.str(), "");
}

struct AddressRow {
    const char* why;
    const char* text;
    std::int32_t address;
};
class OptionAddress : public testing::TestWithParam<AddressRow> {};

TEST_P(OptionAddress, IsRead) { EXPECT_EQ(ParsedOptions({"-a", GetParam().text}).options.address, GetParam().address); }

INSTANTIATE_TEST_SUITE_P(
    Rows, OptionAddress,
    testing::Values(AddressRow{"decimal", "31", 31}, AddressRow{"hexadecimal", "0x1F", 31},
                    AddressRow{"hexadecimalInSmallLetters", "0x1f", 31}, AddressRow{"capitalXIsDecimalZero", "0X1F", 0},
                    AddressRow{"capitalXWithDigits", "0X10", 0}, AddressRow{"noOctal", "010", 10},
                    AddressRow{"blankBeforeThePrefixIsDecimalZero", " 0x1F", 0}, AddressRow{"onlyThePrefix", "0x", 0},
                    AddressRow{"prefixTwice", "0x0x1F", 31}, AddressRow{"negative", "-1", -1},
                    AddressRow{"negativeHexadecimal", "0x-1", -1}, AddressRow{"plusSign", "+5", 5},
                    AddressRow{"leadingBlanks", "  5", 5}, AddressRow{"garbageBehind", "12abc", 12},
                    AddressRow{"garbageBehindHexadecimal", "0x12xyz", 18}, AddressRow{"noDigits", "abc", 0},
                    AddressRow{"empty", "", 0}, AddressRow{"notCheckedHere", "999", 999},
                    AddressRow{"largest", "2147483647", 2147483647},
                    AddressRow{"oneBeyondTheLargestStaysThere", "2147483648", 2147483647},
                    AddressRow{"neverAnotherModulesAddress", "4294967297", 2147483647},
                    AddressRow{"beyondSixtyFourBits", "99999999999999999999", 2147483647},
                    AddressRow{"smallest", "-2147483648", -2147483647 - 1},
                    AddressRow{"oneBelowTheSmallestStaysThere", "-2147483649", -2147483647 - 1},
                    AddressRow{"farBelow", "-99999999999999999999", -2147483647 - 1},
                    AddressRow{"hexadecimalLargestSigned", "0x7FFFFFFF", 2147483647},
                    AddressRow{"hexadecimalSignBit", "0x80000000", -2147483647 - 1},
                    AddressRow{"hexadecimalAllOnes", "0xFFFFFFFF", -1},
                    AddressRow{"hexadecimalTooLargeIsAllOnes", "0x100000001", -1},
                    AddressRow{"hexadecimalNearSixtyFourBitsIsAllOnes", "0xFFFFFFFFFFFFFFFB", -1},
                    AddressRow{"hexadecimalBeyondSixtyFourBitsIsAllOnes", "0x10000000000000000", -1},
                    AddressRow{"negativeHexadecimalWraps", "0x-5", -5},
                    AddressRow{"negativeHexadecimalAfterBlanks", "0x \t-5", -5},
                    AddressRow{"negativeHexadecimalTooLargeIsAllOnes", "0x-100000005", -1}),
    [](const auto& row) { return std::string(row.param.why); });

struct SerialRow {
    const char* why;
    const char* text;
    std::uint32_t serial;
};
class OptionSerial : public testing::TestWithParam<SerialRow> {};

TEST_P(OptionSerial, IsRead) {
    EXPECT_EQ(ParsedOptions({"-n", GetParam().text}).options.serialNumber, GetParam().serial);
}

INSTANTIATE_TEST_SUITE_P(Rows, OptionSerial,
                         testing::Values(SerialRow{"ordinary", "12345", 12345}, SerialRow{"zero", "0", 0},
                                         SerialRow{"noDigits", "x", 0}, SerialRow{"empty", "", 0},
                                         SerialRow{"noHexadecimal", "0x1F", 0}, SerialRow{"garbage", "12 34", 12},
                                         SerialRow{"largestSigned", "2147483647", 2147483647U},
                                         SerialRow{"wholeUnsignedRange", "2147483648", 2147483648U},
                                         SerialRow{"largest", "4294967295", 4294967295U},
                                         SerialRow{"neverAnotherModulesSerial", "4294967301", 4294967295U},
                                         SerialRow{"beyondSixtyFourBits", "99999999999999999999", 4294967295U},
                                         SerialRow{"minusOneIsAllOnes", "-1", 4294967295U},
                                         SerialRow{"farBelow", "-99999999999999999999", 2147483648U}),
                         [](const auto& row) { return std::string(row.param.why); });

struct InterfaceRow {
    const char* why;
    const char* text;
    std::int32_t interfaceIndex;
};
class OptionInterface : public testing::TestWithParam<InterfaceRow> {};

TEST_P(OptionInterface, IsRead) {
    EXPECT_EQ(ParsedOptions({"-i", GetParam().text}).options.interfaceIndex, GetParam().interfaceIndex);
}

INSTANTIATE_TEST_SUITE_P(Rows, OptionInterface,
                         testing::Values(InterfaceRow{"first", "0", 0}, InterfaceRow{"second", "1", 1},
                                         InterfaceRow{"negative", "-1", -1}, InterfaceRow{"noHexadecimal", "0x3", 0},
                                         InterfaceRow{"garbage", "2x", 2},
                                         InterfaceRow{"tooLarge", "4294967296", 2147483647}),
                         [](const auto& row) { return std::string(row.param.why); });

struct PortRow {
    const char* why;
    const char* text;
    std::int32_t port;
};
class OptionPort : public testing::TestWithParam<PortRow> {};

TEST_P(OptionPort, IsAccepted) {
    const ParsedOptions parsed({"-p", GetParam().text});
    EXPECT_EQ(parsed.status, std::nullopt);
    EXPECT_EQ(parsed.options.port, GetParam().port);
    EXPECT_EQ(parsed.err.str(), "");
}

INSTANTIATE_TEST_SUITE_P(Rows, OptionPort,
                         testing::Values(PortRow{"lowest", "2000", 2000}, PortRow{"highest", "65535", 65535},
                                         PortRow{"garbageBehind", "2000abc", 2000}, PortRow{"blanks", " 3000", 3000}),
                         [](const auto& row) { return std::string(row.param.why); });

struct BadPortRow {
    const char* why;
    const char* text;
    const char* message;
};
class OptionBadPort : public testing::TestWithParam<BadPortRow> {};

TEST_P(OptionBadPort, EndsWithTheArgumentShownTwice) {
    const ParsedOptions parsed({"-p", GetParam().text, "-v", "-a", "7"});
    EXPECT_EQ(parsed.status, 1);
    EXPECT_EQ(parsed.err.str(), GetParam().message);
    EXPECT_EQ(parsed.out.str(), "") << "later options are not looked at";
    EXPECT_EQ(parsed.options.address, 254);
    EXPECT_EQ(parsed.options.port, 41265);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, OptionBadPort,
    testing::Values(
        BadPortRow{"farBelow", "80", "Invalid port number: 80\nValid range        : [2000..65535]80\n"},
        BadPortRow{"oneBelow", "1999", "Invalid port number: 1999\nValid range        : [2000..65535]1999\n"},
        BadPortRow{"oneBeyond", "65536", "Invalid port number: 65536\nValid range        : [2000..65535]65536\n"},
        BadPortRow{"negative", "-2000", "Invalid port number: -2000\nValid range        : [2000..65535]-2000\n"},
        BadPortRow{"noNumber", "http", "Invalid port number: http\nValid range        : [2000..65535]http\n"},
        BadPortRow{"empty", "", "Invalid port number: \nValid range        : [2000..65535]\n"},
        BadPortRow{"hexadecimal", "0x1000", "Invalid port number: 0x1000\nValid range        : [2000..65535]0x1000\n"},
        BadPortRow{"notTakenModuloThirtyTwoBits", "4294969296",
                   "Invalid port number: 4294969296\nValid range        : [2000..65535]4294969296\n"}),
    [](const auto& row) { return std::string(row.param.why); });

struct EndRow {
    const char* why;
    Arguments arguments;
    int status;
};
class OptionEnd : public testing::TestWithParam<EndRow> {};

TEST_P(OptionEnd, PrintsTheUsageAndNothingElse) {
    const testsupport::CapturedOutput standardError(STDERR_FILENO);
    const ParsedOptions parsed(GetParam().arguments);
    EXPECT_EQ(parsed.status, GetParam().status);
    EXPECT_EQ(parsed.err.str().find("Usage: dunmallow [<option>]*\n  Available options:\n"), 0U);
    EXPECT_EQ(parsed.out.str(), "");
    EXPECT_EQ(standardError.text(), "") << "getopt prints nothing by itself";
}

INSTANTIATE_TEST_SUITE_P(
    Rows, OptionEnd,
    testing::Values(EndRow{"help", {"-h"}, 0}, EndRow{"questionMark", {"-?"}, 1}, EndRow{"unknownOption", {"-x"}, 1},
                    EndRow{"longOption", {"--help"}, 1}, EndRow{"missingFile", {"-u"}, 1},
                    EndRow{"missingMode", {"-m"}, 1}, EndRow{"missingAddress", {"-a"}, 1},
                    EndRow{"missingSerial", {"-n"}, 1}, EndRow{"missingPort", {"-p"}, 1},
                    EndRow{"missingHost", {"-s"}, 1}, EndRow{"missingInterface", {"-i"}, 1},
                    EndRow{"helpFirstWins", {"-h", "-x"}, 0}, EndRow{"unknownFirstWins", {"-x", "-h"}, 1},
                    EndRow{"helpBeforeABadPort", {"-h", "-p", "80"}, 0}, EndRow{"helpInAGroup", {"-hx"}, 0}),
    [](const auto& row) { return std::string(row.param.why); });

TEST(OptionEnd, LaterOptionsAreNotLookedAt) {
    const ParsedOptions parsed({"-h", "-a", "7"});
    EXPECT_EQ(parsed.options.address, 254);
}

TEST(OptionVersion, IsPrintedAndParsingGoesOn) {
    const ParsedOptions parsed({"-v", "-a", "7"});
    EXPECT_EQ(parsed.status, std::nullopt);
    EXPECT_EQ(parsed.out.str(), AgApp::getVersionLabel() + "\n");
    EXPECT_EQ(parsed.err.str(), "");
    EXPECT_EQ(parsed.options.address, 7);
}

TEST(OptionVersion, IsPrintedOncePerOption) {
    EXPECT_EQ(ParsedOptions({"-vv"}).out.str(), AgApp::getVersionLabel() + "\n" + AgApp::getVersionLabel() + "\n");
}

TEST(OptionVersion, ThenHelpPrintsBoth) {
    const ParsedOptions parsed({"-v", "-h"});
    EXPECT_EQ(parsed.status, 0);
    EXPECT_EQ(parsed.out.str(), AgApp::getVersionLabel() + "\n");
    EXPECT_EQ(parsed.err.str().find("Usage: "), 0U);
}

TEST(OptionParser, UsageShowsTheSettingsAsTheyStand) {
    EXPECT_NE(ParsedOptions({"-n", "5", "-h"}).err.str().find("\n   serialnum       5\n"), std::string::npos);
    EXPECT_NE(ParsedOptions({"-h", "-n", "5"}).err.str().find("\n   serialnum       0\n"), std::string::npos);
}

TEST(OptionParser, StartsAnewAfterACallThatStoppedInsideAGroup) {
    EXPECT_EQ(ParsedOptions({"-hv"}).status, 0);
    const ParsedOptions parsed({"-a", "7"});
    EXPECT_EQ(parsed.options.address, 7);
    EXPECT_EQ(parsed.out.str(), "");
}

}  // namespace
