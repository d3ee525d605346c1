#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <deque>
#include <numeric>
#include <thread>

#include "platform/linux/base/ProprietarySocketCommon.h"
#include "tests/platform/linux/base/CountedPacket.h"
#include "tests/platform/linux/base/LoopbackServer.h"
#include "tests/platform/linux/base/ReplacedCalls.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Process.h"

using namespace sockettest;
using testsupport::CapturedOutput;

namespace {

constexpr std::size_t kMebibyte = 1U << 20U;

Bytes counting(std::size_t count) {
    Bytes bytes(count);
    std::iota(bytes.begin(), bytes.end(), std::uint8_t{0});
    return bytes;
}

Bytes contentOf(const TPacket& packet) { return {packet.data, packet.data + packet.size}; }

bool receive(TPacket& packet, const Peer& peer) {
    return ProprietarySocketCommon::receiveChunk(packet, peer.descriptor());
}

void expectEmptied(const TPacket& packet) {
    EXPECT_EQ(packet.data, nullptr);
    EXPECT_EQ(packet.size, 0U);
    EXPECT_EQ(packet.command, 0);
    EXPECT_EQ(packet.getPayloadSize(), 0U);
}

/// A connection over TCP, which unlike a stream pair can be reset.
struct TcpPair {
    LoopbackServer server;
    Peer near{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    Peer far{-1};
    TcpPair() {
        sockaddr_storage address{};
        socklen_t length = sizeof address;
        getsockname(server.descriptor(), reinterpret_cast<sockaddr*>(&address), &length);
        EXPECT_EQ(::connect(near.descriptor(), reinterpret_cast<sockaddr*>(&address), length), 0);
        far = server.accept();
    }
};

TEST(ReceiveChunk, ReadsAWholePacket) {
    StreamPair stream;
    stream.far.write(hex("0000000B 03E8 0008 AABBCC"));
    TPacket packet;
    ASSERT_TRUE(receive(packet, stream.near));
    EXPECT_EQ(contentOf(packet), hex("0000000B 03E8 0008 AABBCC"));
    EXPECT_EQ(packet.size, 11U);
    EXPECT_EQ(packet.command, 1000);
    EXPECT_EQ(packet.payloadOffset, 8);
}

TEST(ReceiveChunk, LeavesTheNextPacketInTheStream) {
    StreamPair stream;
    stream.far.write(hex("00000008 0001 0008") + hex("00000009 0002 0008 55"));
    TPacket first, second;
    ASSERT_TRUE(receive(first, stream.near));
    ASSERT_TRUE(receive(second, stream.near));
    EXPECT_EQ(first.command, 1);
    EXPECT_EQ(contentOf(second), hex("00000009 0002 0008 55"));
}

TEST(ReceiveChunk, HeaderAloneIsAPacket) {
    StreamPair stream;
    stream.far.write(hex("00000008 FFFE 0008"));
    TPacket packet;
    ASSERT_TRUE(receive(packet, stream.near));
    EXPECT_EQ(packet.command, 0xFFFE);
    EXPECT_EQ(packet.getPayloadSize(), 0U);
}

TEST(ReceiveChunk, PayloadOffsetTwelveStartsThePayloadAtByteTwelve) {
    StreamPair stream;
    stream.far.write(hex("00000010 0007 000C 01020304 05060708"));
    TPacket packet;
    ASSERT_TRUE(receive(packet, stream.near));
    EXPECT_EQ(packet.payloadOffset, 12);
    EXPECT_EQ(packet.getPayload(), packet.data + 12);
    EXPECT_EQ(packet.getPayloadSize(), 4U);
}

TEST(ReceiveChunk, PayloadOffsetIsTakenUnchecked) {
    StreamPair stream;
    stream.far.write(hex("00000009 0007 FFFF 01"));
    TPacket packet;
    ASSERT_TRUE(receive(packet, stream.near));
    EXPECT_EQ(packet.payloadOffset, 0xFFFF);
    EXPECT_EQ(packet.getPayload(), nullptr);
}

// Writes each piece only when all before it has been read, so that each comes by a recv of its own.
void feed(ReplacedCalls& calls, const StreamPair& stream, std::deque<Bytes>& pieces) {
    calls.recv = [&stream, &pieces](int fd, void* buffer, std::size_t count, int flags) {
        if (!stream.near.hasBytes() && !pieces.empty()) {
            stream.far.write(pieces.front());
            pieces.pop_front();
        }
        return __real_recv(fd, buffer, count, flags);
    };
}

TEST(ReceiveChunk, PutsPiecesTogether) {
    const Bytes whole = hex("0000012C 03EC 0008") + counting(292);
    std::deque<Bytes> pieces{Bytes(whole.begin(), whole.begin() + 2), Bytes(whole.begin() + 2, whole.begin() + 152),
                             Bytes(whole.begin() + 152, whole.end())};
    ASSERT_EQ(pieces[2].size(), 148U);
    StreamPair stream;
    ReplacedCalls calls;
    feed(calls, stream, pieces);
    TPacket packet;
    ASSERT_TRUE(receive(packet, stream.near));
    EXPECT_TRUE(pieces.empty());
    EXPECT_EQ(contentOf(packet), whole);
}

TEST(ReceiveChunk, PutsSingleBytesTogether) {
    const Bytes whole = hex("0000000C 03EC 0008 01020304");
    std::deque<Bytes> pieces;
    for (const std::uint8_t byte : whole) pieces.push_back({byte});
    StreamPair stream;
    ReplacedCalls calls;
    feed(calls, stream, pieces);
    TPacket packet;
    ASSERT_TRUE(receive(packet, stream.near));
    EXPECT_EQ(contentOf(packet), whole);
}

TEST(ReceiveChunk, NeverAsksForMoreThanThePacket) {
    StreamPair stream;
    stream.far.write(hex("0000000C 0007 0008 01020304") + hex("00000008 0001 0008"));
    ReplacedCalls calls;
    std::vector<std::size_t> asked;
    calls.recv = [&asked](int fd, void* buffer, std::size_t count, int flags) {
        asked.push_back(count);
        EXPECT_EQ(flags, 0);
        return __real_recv(fd, buffer, count, flags);
    };
    TPacket packet;
    ASSERT_TRUE(receive(packet, stream.near));
    EXPECT_EQ(asked, (std::vector<std::size_t>{4, 8}));
}

TEST(ReceiveChunk, GoesOnAfterInterruptedCalls) {
    StreamPair stream;
    stream.far.write(hex("0000000C 0007 0008 01020304"));
    ReplacedCalls calls;
    int interruptions = 0;
    calls.recv = [&interruptions, interrupt = false](int fd, void* buffer, std::size_t, int flags) mutable -> ssize_t {
        interrupt = !interrupt;
        if (!interrupt) return __real_recv(fd, buffer, 1, flags);
        ++interruptions;
        errno = EINTR;
        return -1;
    };
    const CapturedOutput output(STDOUT_FILENO);
    TPacket packet;
    ASSERT_TRUE(receive(packet, stream.near));
    EXPECT_EQ(contentOf(packet), hex("0000000C 0007 0008 01020304"));
    EXPECT_EQ(interruptions, 12);
    EXPECT_EQ(output.text(), "");
}

TEST(ReceiveChunk, SignalDoesNotEndTheRead) {
    const testsupport::InterruptingSignal signal;
    StreamPair stream;
    TPacket packet;
    std::atomic<bool> received{false};
    std::thread reader([&] { received = receive(packet, stream.near); });
    for (const Bytes& piece : {hex("0000"), hex("0009 0007"), hex("0008 55")}) {
        const int before = signal.seen();
        EXPECT_TRUE(testsupport::signalUntil(reader.native_handle(), SIGUSR1, [&] { return signal.seen() > before; }));
        stream.far.write(piece);
    }
    reader.join();
    EXPECT_TRUE(received);
    EXPECT_EQ(contentOf(packet), hex("00000009 0007 0008 55"));
}

class CutPacket : public testing::TestWithParam<int> {};

TEST_P(CutPacket, FailsWithoutALineWhenThePeerCloses) {
    const Bytes whole = hex("0000000C 0007 0008 01020304");
    StreamPair stream;
    stream.far.write(Bytes(whole.begin(), whole.begin() + GetParam()));
    stream.far.close();
    const CapturedOutput output(STDOUT_FILENO), errors(STDERR_FILENO);
    TPacket packet;
    EXPECT_FALSE(receive(packet, stream.near));
    expectEmptied(packet);
    EXPECT_EQ(output.text() + errors.text(), "");
}

TEST_P(CutPacket, FailsWithoutALineWhenThePeerResets) {
    const Bytes whole = hex("0000000C 0007 0008 01020304");
    TcpPair stream;
    ReplacedCalls calls;
    calls.recv = [&stream, left = GetParam()](int fd, void* buffer, std::size_t count, int flags) mutable {
        if (left == 0) stream.far.reset();
        const ssize_t got = __real_recv(fd, buffer, left == 0 ? count : 1, flags);
        --left;
        return got;
    };
    stream.far.write(Bytes(whole.begin(), whole.begin() + GetParam()));
    const CapturedOutput output(STDOUT_FILENO), errors(STDERR_FILENO);
    TPacket packet;
    EXPECT_FALSE(receive(packet, stream.near));
    expectEmptied(packet);
    EXPECT_EQ(output.text() + errors.text(), "");
}

INSTANTIATE_TEST_SUITE_P(AfterBytes, CutPacket, testing::Range(0, 12));

struct ErrorRow {
    const char* why;
    int bytesBefore;
    int error;
    const char* line;  // behind "reports error: ", for descriptor 77
};

class ReceiveError : public testing::TestWithParam<ErrorRow> {};

// The bytes before the error come one by one; then recv fails.
void failAfter(ReplacedCalls& calls, const Bytes& bytes, int error) {
    calls.recv = [bytes, error, next = std::size_t{0}](int, void* buffer, std::size_t, int) mutable -> ssize_t {
        if (next == bytes.size()) {
            errno = error;
            return -1;
        }
        *static_cast<std::uint8_t*>(buffer) = bytes[next++];
        return 1;
    };
}

TEST_P(ReceiveError, PrintsOneLineAndFails) {
    const Bytes whole = hex("0000000C 0007 0008 01020304");
    ReplacedCalls calls;
    failAfter(calls, Bytes(whole.begin(), whole.begin() + GetParam().bytesBefore), GetParam().error);
    const CapturedOutput output(STDOUT_FILENO), errors(STDERR_FILENO);
    TPacket packet;
    EXPECT_FALSE(ProprietarySocketCommon::receiveChunk(packet, 77));
    expectEmptied(packet);
    const std::string line = GetParam().line;
    EXPECT_EQ(output.written(),
              line.empty() ? "" : "ProprietarySocketCommon::receiveChunk() reports error: " + line + "\n");
    EXPECT_EQ(errors.text(), "");
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ReceiveError,
    testing::Values(ErrorRow{"inFrontOfTheLength", 0, EBADF, "-1 - 9 (Bad file descriptor)- fd: 77, Size: 4, nRead: 0"},
                    ErrorRow{"insideTheLength", 3, EIO, "-1 - 5 (Input/output error)- fd: 77, Size: 4, nRead: 3"},
                    ErrorRow{"behindTheLength", 4, EIO, "-1 - 5 (Input/output error)- fd: 77, Size: 8, nRead: 0"},
                    ErrorRow{"insideThePayload", 11, EAGAIN,
                             "-1 - 11 (Resource temporarily unavailable)- fd: 77, Size: 8, nRead: 7"},
                    ErrorRow{"resetInTheLengthIsSilent", 2, ECONNRESET, ""},
                    ErrorRow{"resetInThePayloadIsSilent", 9, ECONNRESET, ""}),
    [](const auto& row) { return std::string(row.param.why); });

TEST(ReceiveChunk, BadDescriptorIsReported) {
    const CapturedOutput output(STDOUT_FILENO);
    TPacket packet;
    EXPECT_FALSE(ProprietarySocketCommon::receiveChunk(packet, -1));
    EXPECT_EQ(output.text(),
              "ProprietarySocketCommon::receiveChunk() reports error: -1 - 9 (Bad file descriptor)- fd: -1, "
              "Size: 4, nRead: 0\n");
}

class ShortLength : public testing::TestWithParam<int> {};

// A length that does not even cover the header: 4 bytes less would be a very long rest.
TEST_P(ShortLength, EndsTheStreamLikeAFailedRead) {
    StreamPair stream;
    stream.far.write(Bytes{0, 0, 0, static_cast<std::uint8_t>(GetParam())} + hex("0007 0008 01020304"));
    const CapturedOutput output(STDOUT_FILENO), errors(STDERR_FILENO);
    TPacket packet(100, 5);
    EXPECT_FALSE(receive(packet, stream.near));
    expectEmptied(packet);
    EXPECT_EQ(output.text() + errors.text(), "");
    EXPECT_EQ(stream.near.read(2), hex("0007")) << "nothing behind the length is read";
}

INSTANTIATE_TEST_SUITE_P(BelowTheHeader, ShortLength, testing::Range(0, 8));

/// Notes what is allocated, and lets it be.
void note(ReplacedCalls& calls, std::vector<std::size_t>& sizes) {
    calls.mayAllocate = [&sizes](std::size_t size) {
        sizes.push_back(size);
        return true;
    };
}

TEST(ReceiveChunk, AllocatesExactlyThePacketAndUsesItsBufferAgain) {
    StreamPair stream;
    stream.far.write(hex("0000000A 0007 0008 0102") + hex("0000000A 0009 0008 0304") +
                     hex("0000000B 0007 0008 050607"));
    ReplacedCalls calls;
    std::vector<std::size_t> sizes;
    note(calls, sizes);
    TPacket packet;
    ASSERT_TRUE(receive(packet, stream.near));
    const unsigned char* const buffer = packet.data;
    ASSERT_TRUE(receive(packet, stream.near));
    EXPECT_EQ(packet.data, buffer);
    EXPECT_EQ(contentOf(packet), hex("0000000A 0009 0008 0304"));
    EXPECT_EQ(packet.command, 9);
    EXPECT_EQ(sizes, std::vector<std::size_t>{10});
    ASSERT_TRUE(receive(packet, stream.near));
    EXPECT_EQ(contentOf(packet), hex("0000000B 0007 0008 050607"));
    EXPECT_EQ(sizes, (std::vector<std::size_t>{10, 11}));
}

TEST(ReceiveChunk, AllocatesAMebibyteAtOnce) {
    StreamPair stream;
    ReplacedCalls calls;
    std::vector<std::size_t> sizes;
    note(calls, sizes);
    std::thread writer([&] { stream.far.write(hex("00100000 0007 0008") + Bytes(kMebibyte - 8)); });
    TPacket packet;
    EXPECT_TRUE(receive(packet, stream.near));
    writer.join();
    EXPECT_EQ(sizes, std::vector<std::size_t>{kMebibyte});
}

TEST(ReceiveChunk, WithoutMemoryAllIsZero) {
    StreamPair stream;
    stream.far.write(hex("0000000A 0007 0008 0102"));
    ReplacedCalls calls;
    TPacket packet(1, 5);
    calls.mayAllocate = [](std::size_t) { return false; };
    const CapturedOutput output(STDOUT_FILENO), errors(STDERR_FILENO);
    EXPECT_FALSE(receive(packet, stream.near));
    expectEmptied(packet);
    EXPECT_EQ(packet.payloadOffset, 0);
    EXPECT_EQ(output.text() + errors.text(), "");
}

TEST(ReceiveChunk, FailureInTheLengthLeavesThePacketAlone) {
    StreamPair stream;
    stream.far.write(hex("0000"));
    stream.far.close();
    TPacket packet(1, 5);
    packet.getPayload()[0] = 0x77;
    EXPECT_FALSE(receive(packet, stream.near));
    EXPECT_EQ(contentOf(packet), hex("00000009 0005 0008 77"));
    EXPECT_EQ(packet.command, 5);
}

TEST(ReceiveChunk, FailureInThePayloadEmptiesAReusedBuffer) {
    StreamPair stream;
    stream.far.write(hex("00000009 0007"));
    stream.far.close();
    TPacket packet(1, 5);
    EXPECT_FALSE(receive(packet, stream.near));
    expectEmptied(packet);
}

struct LyingRow {
    const char* why;
    const char* length;
};

class LyingLength : public testing::TestWithParam<LyingRow> {};

// A peer that announced 4 GB and sent nothing took all memory of the terminal.
TEST_P(LyingLength, TakesNoMemoryBeforeBytesArrive) {
    StreamPair stream;
    stream.far.write(hex(GetParam().length) + hex("0007 0008 01020304"));
    stream.far.close();
    ReplacedCalls calls;
    std::vector<std::size_t> sizes;
    note(calls, sizes);
    const CapturedOutput output(STDOUT_FILENO), errors(STDERR_FILENO);
    TPacket packet;
    EXPECT_FALSE(receive(packet, stream.near));
    expectEmptied(packet);
    EXPECT_EQ(sizes, std::vector<std::size_t>{kMebibyte});
    EXPECT_EQ(output.text() + errors.text(), "");
}

INSTANTIATE_TEST_SUITE_P(Rows, LyingLength,
                         testing::Values(LyingRow{"largest", "FFFFFFFF"}, LyingRow{"highBitAlone", "80000000"},
                                         LyingRow{"largestPositive", "7FFFFFFF"},
                                         LyingRow{"justAboveAMebibyte", "00100001"}),
                         [](const auto& row) { return std::string(row.param.why); });

// 5 MiB and 3 bytes.
const Bytes& longPacket() {
    static const Bytes& packet = *new Bytes(hex("00500003 0007 0008") + counting(5 * kMebibyte + 3 - 8));
    return packet;
}

TEST(ReceiveChunk, LongPacketArrivesWholeInABufferOfItsSize) {
    StreamPair stream;
    ReplacedCalls calls;
    std::vector<std::size_t> sizes;
    note(calls, sizes);
    std::thread writer([&] { stream.far.write(longPacket()); });
    TPacket packet;
    EXPECT_TRUE(receive(packet, stream.near));
    writer.join();
    EXPECT_TRUE(contentOf(packet) == longPacket());
    EXPECT_EQ(packet.command, 7);
    EXPECT_EQ(sizes, (std::vector<std::size_t>{kMebibyte, 2 * kMebibyte, 4 * kMebibyte, 5 * kMebibyte + 3}));
}

struct GrowthRow {
    const char* why;
    const char* length;
    std::vector<std::size_t> buffers;
};

class BufferGrowth : public testing::TestWithParam<GrowthRow> {};

TEST_P(BufferGrowth, DoublesWhileTheHalfIsStillMore) {
    ReplacedCalls calls;
    std::vector<std::size_t> sizes;
    note(calls, sizes);
    calls.recv = [first = true](int, void* buffer, std::size_t count, int) mutable {
        const Bytes length = hex(GetParam().length);
        std::fill_n(static_cast<std::uint8_t*>(buffer), count, std::uint8_t{0});
        if (std::exchange(first, false)) std::copy(length.begin(), length.end(), static_cast<std::uint8_t*>(buffer));
        return static_cast<ssize_t>(count);
    };
    TPacket packet;
    EXPECT_TRUE(ProprietarySocketCommon::receiveChunk(packet, 77));
    EXPECT_EQ(sizes, GetParam().buffers);
}

INSTANTIATE_TEST_SUITE_P(Rows, BufferGrowth,
                         testing::Values(GrowthRow{"oneMore", "00100001", {kMebibyte, kMebibyte + 1}},
                                         GrowthRow{"twice", "00200000", {kMebibyte, 2 * kMebibyte}},
                                         GrowthRow{"twiceAndOne", "00200001", {kMebibyte, 2 * kMebibyte + 1}},
                                         GrowthRow{
                                             "twiceAndTwo", "00200002", {kMebibyte, 2 * kMebibyte, 2 * kMebibyte + 2}}),
                         [](const auto& row) { return std::string(row.param.why); });

TEST(ReceiveChunk, LongPacketUsesItsBufferAgain) {
    StreamPair stream;
    std::thread writer([&] { stream.far.write(longPacket() + longPacket()); });
    TPacket packet;
    EXPECT_TRUE(receive(packet, stream.near));
    const unsigned char* const buffer = packet.data;
    EXPECT_TRUE(receive(packet, stream.near));
    writer.join();
    EXPECT_EQ(packet.data, buffer);
    EXPECT_TRUE(contentOf(packet) == longPacket());
}

TEST(ReceiveChunk, LongPacketIsEmptiedWhenTheMemoryEndsOnTheWay) {
    StreamPair stream;
    ReplacedCalls calls;
    calls.mayAllocate = [](std::size_t size) { return size < 4 * kMebibyte; };
    std::thread writer([&] { stream.far.write(longPacket()); });
    TPacket packet;
    EXPECT_FALSE(receive(packet, stream.near));
    stream.near.close();
    writer.join();
    expectEmptied(packet);
    EXPECT_EQ(packet.payloadOffset, 0);
}

TEST(ReceiveChunk, ErrorInALongPacketCountsItsWholeRest) {
    ReplacedCalls calls;
    calls.recv = [first = true](int, void* buffer, std::size_t count, int) mutable -> ssize_t {
        if (std::exchange(first, false)) {
            const Bytes length = hex("00500003");
            std::copy(length.begin(), length.end(), static_cast<std::uint8_t*>(buffer));
            return 4;
        }
        if (count < kMebibyte) {  // all of the first MiB at once, then nothing more
            std::fill_n(static_cast<std::uint8_t*>(buffer), count, std::uint8_t{0});
            return static_cast<ssize_t>(count);
        }
        errno = EIO;
        return -1;
    };
    const CapturedOutput output(STDOUT_FILENO);
    TPacket packet;
    EXPECT_FALSE(ProprietarySocketCommon::receiveChunk(packet, 77));
    EXPECT_EQ(output.text(),
              "ProprietarySocketCommon::receiveChunk() reports error: -1 - 5 (Input/output error)- fd: 77, "
              "Size: 5242879, nRead: 1048572\n");
}

TEST(ReceiveChunkRaw, ReadsExactlyTheCount) {
    StreamPair stream;
    stream.far.write(hex("01020304 0506"));
    Bytes buffer(6, 0xEE);
    EXPECT_EQ(ProprietarySocketCommon::receiveChunk(stream.near.descriptor(), buffer.data(), 5), 5U);
    EXPECT_EQ(buffer, hex("0102030405 EE"));
    EXPECT_EQ(stream.near.read(1), hex("06"));
}

TEST(ReceiveChunkRaw, NothingToReadIsDoneAtOnce) {
    ReplacedCalls calls;
    calls.recv = [](int, void*, std::size_t, int) -> ssize_t { return ADD_FAILURE(), -1; };
    EXPECT_EQ(ProprietarySocketCommon::receiveChunk(-1, nullptr, 0), 0U);
}

TEST(ReceiveChunkRaw, PutsPiecesTogether) {
    StreamPair stream;
    ReplacedCalls calls;
    std::deque<Bytes> pieces{hex("01"), hex("0203"), hex("04")};
    feed(calls, stream, pieces);
    Bytes buffer(4);
    EXPECT_EQ(ProprietarySocketCommon::receiveChunk(stream.near.descriptor(), buffer.data(), 4), 4U);
    EXPECT_EQ(buffer, hex("01020304"));
}

TEST(ReceiveChunkRaw, FailsWithoutALineWhenThePeerCloses) {
    StreamPair stream;
    stream.far.write(hex("0102"));
    stream.far.close();
    const CapturedOutput output(STDOUT_FILENO);
    Bytes buffer(4);
    EXPECT_EQ(ProprietarySocketCommon::receiveChunk(stream.near.descriptor(), buffer.data(), 4), 0U);
    EXPECT_EQ(output.text(), "");
}

TEST(ReceiveChunkRaw, ErrorLineShowsTheCount) {
    ReplacedCalls calls;
    failAfter(calls, hex("010203"), EIO);
    const CapturedOutput output(STDOUT_FILENO);
    Bytes buffer(100);
    EXPECT_EQ(ProprietarySocketCommon::receiveChunk(77, buffer.data(), 100), 0U);
    EXPECT_EQ(output.text(),
              "ProprietarySocketCommon::receiveChunk() reports error: -1 - 5 (Input/output error)- fd: 77, "
              "Size: 100, nRead: 3\n");
}

TEST(ReceiveChunkRaw, ResetIsSilentAndInterruptionsAreRepeated) {
    ReplacedCalls calls;
    int asked = 0;
    calls.recv = [&asked](int, void*, std::size_t, int) -> ssize_t {
        errno = ++asked < 3 ? EINTR : ECONNRESET;
        return -1;
    };
    const CapturedOutput output(STDOUT_FILENO);
    Bytes buffer(4);
    EXPECT_EQ(ProprietarySocketCommon::receiveChunk(77, buffer.data(), 4), 0U);
    EXPECT_EQ(asked, 3);
    EXPECT_EQ(output.text(), "");
}

TEST(SendChunk, WritesThePacketAsItIs) {
    StreamPair stream;
    TPacket packet(2, 1000);
    packet.getPayload()[0] = 0xAB;
    packet.getPayload()[1] = 0xCD;
    EXPECT_TRUE(ProprietarySocketCommon::sendChunk(packet, stream.near.descriptor()));
    EXPECT_EQ(stream.far.read(10), hex("0000000A 03E8 0008 ABCD"));
}

struct SendRow {
    const char* why;
    std::vector<std::pair<ssize_t, int>> results;  // of the calls, with errno
    bool sent;
};

class SendOutcome : public testing::TestWithParam<SendRow> {};

TEST_P(SendOutcome, IsThatOfOneCallOfSend) {
    ReplacedCalls calls;
    std::size_t call = 0;
    TPacket packet(2, 1000);
    calls.send = [&](int fd, const void* data, std::size_t size, int flags) -> ssize_t {
        EXPECT_EQ(fd, 77);
        EXPECT_EQ(data, packet.data);
        EXPECT_EQ(size, 10U);
        EXPECT_EQ(flags, MSG_NOSIGNAL) << "a closed peer must not raise SIGPIPE in the caller's thread";
        errno = GetParam().results.at(call).second;
        return GetParam().results.at(call++).first;
    };
    const CapturedOutput output(STDOUT_FILENO), errors(STDERR_FILENO);
    EXPECT_EQ(ProprietarySocketCommon::sendChunk(packet, 77), GetParam().sent);
    EXPECT_EQ(call, GetParam().results.size());
    EXPECT_EQ(output.text() + errors.text(), "");
}

INSTANTIATE_TEST_SUITE_P(Rows, SendOutcome,
                         testing::Values(SendRow{"whole", {{10, 0}}, true},
                                         SendRow{"interruptedIsRepeated", {{-1, EINTR}, {-1, EINTR}, {10, 0}}, true},
                                         SendRow{"shortIsNotContinued", {{9, 0}}, false},
                                         SendRow{"nothingIsNotContinued", {{0, 0}}, false},
                                         SendRow{"shortAfterInterruption", {{-1, EINTR}, {3, 0}}, false},
                                         SendRow{"brokenPipe", {{-1, EPIPE}}, false},
                                         SendRow{"wouldBlock", {{-1, EAGAIN}}, false},
                                         SendRow{"shortLeavesErrnoAlone", {{5, EINTR}}, false}),
                         [](const auto& row) { return std::string(row.param.why); });

TEST(SendChunk, ShortWriteFails) {
    StreamPair stream;
    fcntl(stream.near.descriptor(), F_SETFL, O_NONBLOCK);
    TPacket packet(16U << 20U, 7);
    std::fill_n(packet.getPayload(), packet.getPayloadSize(), std::uint8_t{0});
    EXPECT_FALSE(ProprietarySocketCommon::sendChunk(packet, stream.near.descriptor()));
    EXPECT_TRUE(stream.far.hasBytes()) << "a part of it went out";
}

TEST(SendChunk, ClosedPeerIsAFailureAndNoSignal) {
    StreamPair stream;
    stream.far.close();
    TPacket packet(2, 7);
    EXPECT_FALSE(ProprietarySocketCommon::sendChunk(packet, stream.near.descriptor()));
}

TEST(SendChunk, WaitsForRoomInTheSocket) {
    StreamPair stream;
    TPacket packet(4U << 20U, 7);
    std::fill_n(packet.getPayload(), packet.getPayloadSize(), std::uint8_t{0x5A});
    bool sent = false;
    std::thread writer([&] { sent = ProprietarySocketCommon::sendChunk(packet, stream.near.descriptor()); });
    EXPECT_EQ(stream.far.read(packet.size).size(), packet.size);
    writer.join();
    EXPECT_TRUE(sent);
}

TEST(StreamOperations, ServeAnyObjectAndNone) {
    StreamPair stream;
    ProprietarySocketCommon common;
    TPacket out(1, 7), in;
    out.getPayload()[0] = 0x31;
    EXPECT_TRUE(common.sendChunk(out, stream.near.descriptor()));
    EXPECT_TRUE(common.receiveChunk(in, stream.far.descriptor()));
    EXPECT_EQ(contentOf(in), hex("00000009 0007 0008 31"));
}

}  // namespace
