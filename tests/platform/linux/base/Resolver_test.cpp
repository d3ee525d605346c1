#include "platform/linux/base/Resolver.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>

#include <cstring>
#include <thread>

#include "tests/platform/linux/base/ReplacedCalls.h"
#include "tests/support/Process.h"

using namespace sockettest;

namespace {

TEST(Resolver, AddressIsItsOwnName) {
    const Resolution resolution = resolveHost("127.0.0.1", 41265);
    EXPECT_EQ(resolution.error, 0);
    ASSERT_NE(resolution.addresses, nullptr);
    ASSERT_EQ(resolution.addresses->ai_family, AF_INET);
    sockaddr_in address{};
    std::memcpy(&address, resolution.addresses->ai_addr, sizeof address);
    EXPECT_EQ(ntohs(address.sin_port), 41265);
    EXPECT_EQ(ntohl(address.sin_addr.s_addr), 0x7F000001U);
    EXPECT_EQ(resolution.addresses->ai_next, nullptr) << "streams only";
}

struct Asked {
    std::string node, service;
    addrinfo hints;
    std::thread::id thread;
};

/// Answers every question with `error` and notes it.
void answer(ReplacedCalls& calls, Asked& asked, int error) {
    calls.getaddrinfo = [&asked, error](const char* node, const char* service, const addrinfo* hints, addrinfo**) {
        asked = {node, service, *hints, std::this_thread::get_id()};
        return error;
    };
}

struct PortRow {
    const char* why;
    int port;
    const char* service;
};

class ResolverPort : public testing::TestWithParam<PortRow> {};

TEST_P(ResolverPort, IsDecimalText) {
    ReplacedCalls calls;
    Asked asked;
    answer(calls, asked, EAI_NONAME);
    resolveHost("somewhere", GetParam().port);
    EXPECT_EQ(asked.node, "somewhere");
    EXPECT_EQ(asked.service, GetParam().service);
}

INSTANTIATE_TEST_SUITE_P(Rows, ResolverPort,
                         testing::Values(PortRow{"usual", 41265, "41265"}, PortRow{"zero", 0, "0"},
                                         PortRow{"negative", -1, "-1"}, PortRow{"tooLarge", 65536, "65536"}),
                         [](const auto& row) { return std::string(row.param.why); });

TEST(Resolver, AsksForStreamsOfAnyFamily) {
    ReplacedCalls calls;
    Asked asked;
    answer(calls, asked, EAI_NONAME);
    resolveHost("somewhere", 1);
    EXPECT_EQ(asked.hints.ai_family, AF_UNSPEC);
    EXPECT_EQ(asked.hints.ai_socktype, SOCK_STREAM);
    EXPECT_EQ(asked.hints.ai_protocol, 0);
    EXPECT_EQ(asked.hints.ai_flags, 0);
}

TEST(Resolver, HandsTheErrorOn) {
    ReplacedCalls calls;
    Asked asked;
    answer(calls, asked, EAI_AGAIN);
    const Resolution resolution = resolveHost("somewhere", 1);
    EXPECT_EQ(resolution.error, EAI_AGAIN);
    EXPECT_EQ(resolution.addresses, nullptr);
}

// A failing look-up overflowed the 16384 bytes of the thread that asked.
TEST(Resolver, RunsOnAThreadOfItsOwnWithALargeStack) {
    ReplacedCalls calls;
    Asked asked;
    answer(calls, asked, EAI_NONAME);
    std::vector<ThreadRequest> threads;
    calls.mayCreate = [&threads](const ThreadRequest& request) {
        threads.push_back(request);
        return true;
    };
    const std::size_t before = testsupport::runningThreads();
    resolveHost("somewhere", 1);
    ASSERT_EQ(threads.size(), 1U);
    EXPECT_GE(threads[0].stackSize, 65536U);
    EXPECT_NE(asked.thread, std::this_thread::get_id());
    EXPECT_TRUE(testsupport::waitFor([before] { return testsupport::runningThreads() <= before; })) << "joined";
}

TEST(Resolver, WithoutAThreadThereIsNoAnswer) {
    ReplacedCalls calls;
    calls.mayCreate = [](const ThreadRequest&) { return false; };
    calls.getaddrinfo = [](const char*, const char*, const addrinfo*, addrinfo**) { return ADD_FAILURE(), 0; };
    const Resolution resolution = resolveHost("127.0.0.1", 1);
    EXPECT_EQ(resolution.error, 0);
    EXPECT_EQ(resolution.addresses, nullptr);
}

}  // namespace
