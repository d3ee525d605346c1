#include "platform/linux/base/ServerConnectionList.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>
#include <thread>

#include "platform/linux/base/ProprietarySocketClient.h"
#include "sw_drv/RTkernel/linux/ProcessInfo.h"
#include "tests/support/CapturedOutput.h"

namespace {

using Entry = ServerConnectionEntry;
using Entries = std::vector<Entry>;

constexpr const char* kHeader =
    "  Process Id | Application Name | Application Alias        | Local Alias              | Version | Version Label\n";

std::string tableOf(const Entries& entries) {
    std::ostringstream out;
    writeServerConnectionTable(out, "dunmallow", 4711, entries);
    return out.str();
}

TEST(ServerConnectionTable, EmptyListHasTitleAndHeaderOnly) {
    EXPECT_EQ(tableOf({}), std::string("Server connection list for 'dunmallow' process id 4711:\n") + kHeader);
}

TEST(ServerConnectionTable, RowOfAFileServerWithoutVersion) {
    EXPECT_EQ(
        tableOf({Entry{812, "ostrel", "(FS) File Server", "", "", ""}}),
        std::string("Server connection list for 'dunmallow' process id 4711:\n") + kHeader +
            "       812   |           ostrel |         (FS) File Server |         (FS) File Server |         | \n");
}

struct LineRow {
    const char* why;
    Entry entry;
    const char* line;
};

class ServerConnectionRow : public testing::TestWithParam<LineRow> {};

TEST_P(ServerConnectionRow, IsOneLine) {
    const std::string table = tableOf({GetParam().entry});
    EXPECT_EQ(table.substr(table.find(kHeader) + std::string(kHeader).size()), std::string(GetParam().line) + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ServerConnectionRow,
    testing::Values(
        LineRow{
            "allFields", Entry{1, "ostrel", "(FS) File Server", "Cellar", "1.2.3", "Beta"},
            "         1   |           ostrel |         (FS) File Server |                   Cellar |   1.2.3 | Beta"},
        LineRow{"unknownName", Entry{99999999, "foo", "", "", "1", ""},
                "  99999999   |              foo |                      foo |                      foo |       1 | "},
        LineRow{
            "longerValuesAreNotCut",
            Entry{-2147483647, "seventeen-letters", "twenty-five letters in all", "", "12345678", "a label"},
            "  -2147483647   | seventeen-letters | twenty-five letters in all | twenty-five letters in all | 12345678 "
            "| a label"},
        LineRow{"nothing", Entry{},
                "         0   |                  |                          |                          |         | "}),
    [](const auto& row) { return std::string(row.param.why); });

TEST(ServerConnectionTable, RowsKeepTheirOrder) {
    const std::string table = tableOf({Entry{3, "c", "", "", "", ""}, Entry{1, "a", "", "", "", ""}});
    EXPECT_LT(table.find("         3   |"), table.find("         1   |"));
}

// The list belongs to the process and only grows: each test uses process ids of its own.

Entries known(std::int32_t first, std::int32_t last) {
    Entries entries{Entry{1, "stale", "", "", "", ""}};
    getServerConnectionList(entries);
    std::erase_if(entries, [first, last](const Entry& e) { return e.processId < first || e.processId > last; });
    return entries;
}

TEST(ServerConnectionList, KeepsTheOrderOfFirstArrival) {
    recordServerConnection(Entry{2002, "b", "", "", "", ""});
    recordServerConnection(Entry{2001, "a", "", "", "", ""});
    recordServerConnection(Entry{2003, "c", "", "", "", ""});
    EXPECT_EQ(known(2001, 2003), (Entries{Entry{2002, "b", "", "", "", ""}, Entry{2001, "a", "", "", "", ""},
                                          Entry{2003, "c", "", "", "", ""}}));
}

TEST(ServerConnectionList, SameProcessIdReplacesAllFieldsInPlace) {
    recordServerConnection(Entry{2101, "a", "x", "Cellar", "1", "L"});
    recordServerConnection(Entry{2102, "b", "", "", "", ""});
    recordServerConnection(Entry{2101, "c", "", "", "", ""});
    EXPECT_EQ(known(2101, 2102), (Entries{Entry{2101, "c", "", "", "", ""}, Entry{2102, "b", "", "", "", ""}}));
}

TEST(ServerConnectionList, CopyReplacesWhatWasThere) {
    Entries entries(3, Entry{1, "stale", "", "", "", ""});
    getServerConnectionList(entries);
    for (const Entry& entry : entries) EXPECT_NE(entry.applicationName, "stale");
    Entries same;
    ProprietarySocketClient::getServerConnectionList(same);
    EXPECT_EQ(same, entries);
}

TEST(ServerConnectionList, PrintsTheWholeListUnderThisProcess) {
    recordServerConnection(Entry{2201, "quenbury", "(UT) Universal Terminal", "", "3", "T"});
    Entries entries;
    getServerConnectionList(entries);
    std::ostringstream expected;
    writeServerConnectionTable(expected, threadfunc::processName(), getpid(), entries);
    const testsupport::CapturedOutput output(STDOUT_FILENO);
    printServerConnectionList();
    const std::string first = output.written();
    ProprietarySocketClient::printServerConnectionList();
    EXPECT_EQ(first, expected.str());
    EXPECT_EQ(output.text(), first + first);
    EXPECT_NE(first.find("      2201   |         quenbury |  (UT) Universal Terminal |"), std::string::npos);
}

TEST(ServerConnectionList, ManyThreadsAtOnce) {
    std::vector<std::thread> threads;
    for (std::int32_t t = 0; t < 4; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < 200; ++i) {
                recordServerConnection(Entry{2300 + (i + t) % 5, "n", "", "", "", ""});
                Entries entries;
                getServerConnectionList(entries);
            }
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(known(2300, 2304).size(), 5U);
}

}  // namespace
