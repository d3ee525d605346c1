// Whichever bit of a server's packet arrives wrong, and wherever its bytes end: the client shows what the bytes that
// came say, nothing else, and stays within them.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "tests/Hardware/HandServer.h"
#include "tests/Hardware/RecordingClient.h"
#include "tests/support/CapturedOutput.h"

using testsupport::Bytes;
using testsupport::bytes;
using testsupport::HandServer;
using testsupport::RecordingClient;

namespace {

/// All that can be seen of a client from outside.
struct Shown {
    std::vector<std::string> hooks;
    std::string version, versionLabel;
    std::string printed;  // P for addresses, T for times
    std::string complaints;

    bool operator==(const Shown&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Shown& shown) {
    for (const std::string& hook : shown.hooks) out << hook << "; ";
    return out << shown.version << "; " << shown.versionLabel << "; " << shown.printed << shown.complaints;
}

std::uint32_t big(const Bytes& from, std::size_t at, std::size_t count) {
    std::uint32_t value = 0;
    for (std::size_t i = at; i < at + count; ++i) value = value * 256 + from[i];
    return value;
}

/// Reads a whole stream by the rules of docs/protocol.md.
class Oracle {
public:
    explicit Oracle(const Bytes& stream) {
        for (std::size_t at = 0; stream.size() - at >= 4;) {
            const std::uint32_t length = big(stream, at, 4);
            if (length < 8 || length > stream.size() - at) break;
            readPacket(part(stream, at, at + length));
            at += length;
        }
    }
    const Shown& shown() const { return expected; }

private:
    static Bytes part(const Bytes& from, std::size_t begin, std::size_t end) {
        return begin > end ? Bytes()
                           : Bytes(from.begin() + static_cast<std::ptrdiff_t>(begin),
                                   from.begin() + static_cast<std::ptrdiff_t>(end));
    }

    void readPacket(const Bytes& packet) {
        const Bytes payload = part(packet, big(packet, 6, 2), packet.size());
        const std::uint32_t command = big(packet, 4, 2);
        if (command == 1) {
            expected.printed += "T ProprietarySocketClient CmdPing received out of sync\n";
        } else if (command == 2) {
            readInfo(payload);
        } else if (command == 1000) {
            readStatus(payload);
        } else {
            expected.printed +=
                "CANFlasherClient::handleRxPacket( P ) Unexpected command: " + std::to_string(command) + "\n";
        }
    }

    void readInfo(const Bytes& payload) {
        if (payload.size() < 4) return;
        std::size_t at = 4;
        for (std::string* text : {&name, &expected.version, &expected.versionLabel}) {
            const std::size_t begin = at + 1;
            const std::size_t end = at < payload.size() ? begin + payload[at] : begin;
            const bool whole = end <= payload.size();
            *text = whole ? std::string(payload.begin() + static_cast<std::ptrdiff_t>(begin),
                                        payload.begin() + static_cast<std::ptrdiff_t>(end))
                          : "";
            at = whole ? end : payload.size();
        }
    }

    void readStatus(const Bytes& p) {
        if (p.size() < 8) return;
        const bool nowBusy = p[1] >= 2 && p[1] <= 5;
        if (nowBusy != busy) expected.hooks.emplace_back(nowBusy ? "busy 1" : "busy 0");
        busy = nowBusy;
        std::string hook = "status";
        for (int i = 0; i < 4; ++i) hook += " " + std::to_string(p[static_cast<std::size_t>(i)]);
        hook += " " + std::to_string(p[4] + 256U * p[5] + 65536U * p[6] + 16777216U * p[7]);
        if (hook != status) expected.hooks.push_back(hook);
        status = hook;
    }

    Shown expected;
    std::string name;
    std::string status = "status 0 1 0 254 4294967295";
    bool busy = false;
};

/// The line with P for the address in it and T for the time before it.
std::string withoutFigures(std::string line) {
    const std::string before = "( 0x";
    if (const std::size_t address = line.find(before); address != std::string::npos) {
        const std::size_t end = line.find_first_not_of("0123456789abcdef", address + before.size());
        line.replace(address + 2, end - address - 2, "P");
    }
    const std::size_t begin = std::min(line.find_first_not_of(' '), line.size());
    const std::size_t end = std::min(line.find_first_not_of("0123456789.", begin), line.size());
    if (end < begin + 5 || line.find('.', begin) != end - 4) return line;
    return "T" + line.substr(end);
}

/// What a new client shows when a server sends these bytes and closes.
Shown shownFor(HandServer& server, const Bytes& stream) {
    const testsupport::CapturedOutput output(STDOUT_FILENO), errors(STDERR_FILENO);
    Shown shown;
    {
        RecordingClient client(server.port());
        client.keepConnection = true;
        EXPECT_TRUE(client.connectToServer());
        EXPECT_TRUE(server.accept().write(stream));
        LinkStatus link;
        EXPECT_TRUE(testsupport::waitFor([&] { return client.getLinkStatus(&link, false), !link.connected; }));
        shown = {client.hooks(), client.getServerVersion(), client.getServerVersionLabel(), "", ""};
    }
    const std::string printed = output.text();
    EXPECT_TRUE(printed.empty() || printed.back() == '\n') << printed;
    std::istringstream lines(printed);
    for (std::string line; std::getline(lines, line);) shown.printed += withoutFigures(line) + '\n';
    shown.complaints = errors.text();
    return shown;
}

struct PacketRow {
    const char* why;
    Bytes packet;
};

class HostileServer : public testing::TestWithParam<PacketRow> {
protected:
    /// The bytes, alone or with a good packet behind them, which then is or is not found.
    void expectWhatTheBytesSay(const Bytes& stream, const std::string& which) {
        EXPECT_EQ(shownFor(server, stream), Oracle(stream).shown()) << which;
        ++streams;
    }

    void TearDown() override { RecordProperty("streams", streams); }

    const Bytes good = bytes({0, 0, 0, 16, 0x03, 0xE8, 0, 8, 3, 4, 99, 7, 1, 2, 3, 4});
    HandServer server;

private:
    int streams = 0;  // for scripts/figures
};

TEST_P(HostileServer, EveryFlippedBit) {
    for (std::size_t bit = 0; bit < GetParam().packet.size() * 8; ++bit) {
        Bytes stream = GetParam().packet;
        stream[bit / 8] = static_cast<std::uint8_t>(stream[bit / 8] ^ (1U << (bit % 8)));
        stream.insert(stream.end(), good.begin(), good.end());
        expectWhatTheBytesSay(stream, "bit " + std::to_string(bit));
    }
}

TEST_P(HostileServer, EveryTruncation) {
    for (std::size_t kept = 0; kept <= GetParam().packet.size(); ++kept) {
        Bytes stream(GetParam().packet.begin(), GetParam().packet.begin() + static_cast<std::ptrdiff_t>(kept));
        expectWhatTheBytesSay(stream, std::to_string(kept) + " bytes");
        stream.insert(stream.end(), good.begin(), good.end());
        expectWhatTheBytesSay(stream, std::to_string(kept) + " bytes and a good packet");
    }
}

INSTANTIATE_TEST_SUITE_P(
    OfAPacket, HostileServer,
    testing::Values(PacketRow{"pingAnswer", bytes({0, 0, 0, 9, 0, 1, 0, 8, 0})},
                    PacketRow{"connectionInfo",
                              bytes({0,   0,   0,   28,  0,   2, 0,   8,   0x39, 0x30, 0,   0,   6,   'o',
                                     's', 't', 'r', 'e', 'l', 3, '1', '.', '2',  4,    'B', 'e', 't', 'a'})},
                    PacketRow{"status", bytes({0, 0, 0, 16, 0x03, 0xE8, 0, 8, 0, 5, 42, 0x2A, 0x78, 0x56, 0x34, 0x12})},
                    PacketRow{"statusBehindMoreHeader",
                              bytes({0, 0, 0, 20, 0x03, 0xE8, 0, 12, 9, 9, 9, 9, 1, 6, 100, 0x2A, 1, 0, 0, 0})},
                    PacketRow{"requestOfAClient", bytes({0, 0, 0, 8, 0x03, 0xE9, 0, 8})}),
    [](const auto& row) { return std::string(row.param.why); });

}  // namespace
