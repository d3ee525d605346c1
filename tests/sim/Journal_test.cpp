#include "sim/Journal.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "sim/Log.h"
#include "tests/sim/HexText.h"
#include "tests/sim/ServerThread.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/TempFolder.h"

namespace {

using simtest::appendTo;
using simtest::bytes;

constexpr sim::Instant kAt{std::chrono::microseconds(12'345'678)};

TEST(SimJournalLine, OfAPacketHasStampClientMarkCommandAndAllBytes) {
    EXPECT_EQ(sim::journalPacketLine(kAt, 1, sim::Mark::received, bytes("00 00 00 09 00 01 00 08 00")),
              "12.345678 1 < 1 CmdPing 9 000000090001000800\n");
    EXPECT_EQ(sim::journalPacketLine(kAt, 12, sim::Mark::sent, bytes("00 00 00 08 12 67 00 08")),
              "12.345678 12 > 4711 unknown 8 0000000812670008\n");
}

TEST(SimJournalLine, OfBytesThatAreNoPacketSaysRaw) {
    EXPECT_EQ(sim::journalRawLine(kAt, 1, sim::Mark::sent, bytes("00 ff")), "12.345678 1 > - raw 2 00ff\n");
}

TEST(SimJournalLine, OfAnEventStaysOneLine) {
    EXPECT_EQ(sim::journalEventLine(kAt, 3, sim::Mark::connected, "connected"), "12.345678 3 + connected\n");
    EXPECT_EQ(sim::journalEventLine(kAt, 3, sim::Mark::ended, "a\nb"), "12.345678 3 - a\\x0Ab\n");
    EXPECT_EQ(sim::journalEventLine(kAt, 3, sim::Mark::refused, "x"), "12.345678 3 ! x\n");
}

TEST(SimStamp, HasSixDecimals) {
    EXPECT_EQ(sim::stampText(0), "0.000000");
    EXPECT_EQ(sim::stampText(1'000'001), "1.000001");
    EXPECT_EQ(sim::stampText(123'456'789'012'345), "123456789.012345");
}

TEST(SimPrintableText, ShowsWhatIsNoPrintableCharacter) {
    EXPECT_EQ(sim::printableText("a b~"), "a b~");
    EXPECT_EQ(sim::printableText(std::string("\n\x7F\xC3\0", 4)), "\\x0A\\x7F\\xC3\\x00");
}

TEST(SimJournal, AppendsWholeLines) {
    const testsupport::TempFolder folder;
    const std::string path = folder.write("journal", "before\n");
    {
        sim::Journal journal(appendTo(path));
        sim::Journal other(appendTo(path));
        for (int round = 0; round < 3; ++round) {
            journal.packet(1, sim::Mark::received, bytes("00 00 00 08 03 e9 00 08"));
            other.raw(2, sim::Mark::sent, bytes("01"));
            journal.event(1, sim::Mark::ended, "gone");
        }
    }
    const std::string text = testsupport::readFile(path);
    EXPECT_EQ(text.substr(0, 7), "before\n");
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 10);
    EXPECT_NE(text.find(" 1 < 1001 CmdStatusRequest 8 0000000803e90008\n"), std::string::npos);
}

TEST(SimJournal, WithoutAFileDoesNothing) {
    sim::Journal journal;
    journal.packet(1, sim::Mark::received, bytes("00 00 00 08 03 e9 00 08"));
    journal.event(1, sim::Mark::ended, "gone");
}

TEST(SimJournal, OnAFullDiskFallsSilent) {
    if (access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no /dev/full here";
    sim::Journal journal{sim::Descriptor(open("/dev/full", O_WRONLY | O_CLOEXEC))};
    journal.event(1, sim::Mark::ended, "one");
    journal.event(1, sim::Mark::ended, "two");
}

TEST(SimLog, GoesToStandardErrorAndToItsFile) {
    const testsupport::TempFolder folder;
    const std::string path = folder / "log";
    const testsupport::CapturedOutput shown(STDERR_FILENO);
    sim::Log(true, appendTo(path)).line("one\ttwo");
    const std::string line = testsupport::readFile(path);
    EXPECT_EQ(line.substr(line.find(' ')), " corvane: one\\x09two\n");
    EXPECT_EQ(shown.text(), line);
}

TEST(SimLog, MayGoNowhere) {
    const testsupport::CapturedOutput shown(STDERR_FILENO);
    sim::Log().line("unseen");
    EXPECT_EQ(shown.text(), "");
}

}  // namespace
