// The two threads of one connection, without a client: ProprietarySocketCommon::startLink and stopLink.
#include <fcntl.h>
#include <gtest/gtest.h>

#include "platform/linux/base/PacketQueue.h"
#include "tests/platform/linux/base/ClientFixture.h"
#include "tests/platform/linux/base/CountedPacket.h"
#include "tests/platform/linux/base/ReplacedCalls.h"

using namespace sockettest;

namespace {

class Link : public ProprietarySocketCommon {
public:
    using ProprietarySocketCommon::LinkRecord;
    using ProprietarySocketCommon::startLink;
    using ProprietarySocketCommon::stopLink;
};

bool isEmpty(const Link::LinkRecord& record) {
    return record.receiveThread == 0 && record.transmitThread == 0 && record.linkFd == -1;
}

class LinkThreads : public LeavesNothing {
protected:
    LinkThreads() {
        rxQueue.open();
        txQueue.open();
    }
    ~LinkThreads() override { Link::stopLink(record); }

    /// The near end becomes the link's.
    bool start() {
        const int descriptor = dup(stream.near.descriptor());
        stream.near.close();
        record = Link::startLink(&common, descriptor, txQueue, rxQueue);
        return record.linkFd == descriptor;
    }

    StreamPair stream;
    Link common;
    PacketQueue rxQueue{3}, txQueue{3};
    Link::LinkRecord record;
};

TEST_F(LinkThreads, NewRecordHasNone) { EXPECT_TRUE(isEmpty(record)); }

TEST_F(LinkThreads, MovePacketsBothWays) {
    ASSERT_TRUE(start());
    EXPECT_TRUE(record.receiveThread != 0 && record.transmitThread != 0);
    PacketPtr out = counted(7);
    EXPECT_TRUE(txQueue.put(out));
    EXPECT_EQ(stream.far.read(8), hex("00000008 0007 0008"));
    stream.far.write(hex("00000009 0009 0008 55"));
    const PacketPtr in = rxQueue.take();
    ASSERT_NE(in, nullptr);
    EXPECT_EQ(Bytes(in->data, in->data + in->size), hex("00000009 0009 0008 55"));
    EXPECT_TRUE(waitFor([] { return CountedPacket::living() == 0; })) << "deleted when it is out";
}

TEST_F(LinkThreads, StoppingEndsThemClosesTheSocketAndEmptiesTheRecord) {
    ASSERT_TRUE(start());
    Link::stopLink(record);
    EXPECT_TRUE(isEmpty(record));
    EXPECT_TRUE(stream.far.atEnd());
    EXPECT_EQ(rxQueue.take(), nullptr) << "the end mark of the receive thread";
    EXPECT_EQ(txQueue.size(), 0) << "its end mark was taken by the transmit thread";
    Link::stopLink(record);
    EXPECT_TRUE(isEmpty(record)) << "once more does nothing";
}

TEST_F(LinkThreads, ReceiveThreadWaitsForRoomAndKeepsTheOrder) {
    ASSERT_TRUE(start());
    for (int i = 3; i < 13; ++i)
        stream.far.write(hex("00000008 00") + Bytes{static_cast<std::uint8_t>(i)} + hex("0008"));
    for (int i = 3; i < 13; ++i) EXPECT_EQ(rxQueue.take()->getCommand(), i);
}

TEST_F(LinkThreads, PeerThatClosesEndsThemWithOneMarkEach) {
    ASSERT_TRUE(start());
    stream.far.write(hex("00000008 0007 0008"));
    stream.far.close();
    EXPECT_EQ(rxQueue.take()->getCommand(), 7);
    EXPECT_EQ(rxQueue.take(), nullptr);
    Link::stopLink(record);
    EXPECT_EQ(rxQueue.size() + txQueue.size(), 0);
}

class MissingLinkThread : public LinkThreads, public testing::WithParamInterface<int> {};

TEST_P(MissingLinkThread, LeavesTheSocketToTheCallerAndNoThread) {
    const std::size_t threads = testsupport::runningThreads();
    {
        ReplacedCalls calls;
        calls.mayCreate = [](const ThreadRequest& request) { return request.originLine != GetParam(); };
        const Link::LinkRecord none = Link::startLink(&common, stream.near.descriptor(), txQueue, rxQueue);
        EXPECT_TRUE(isEmpty(none));
    }
    EXPECT_TRUE(waitFor([threads] { return testsupport::runningThreads() <= threads; }));
    EXPECT_NE(fcntl(stream.near.descriptor(), F_GETFD), -1) << "still open";
}

INSTANTIATE_TEST_SUITE_P(ByOrigin, MissingLinkThread, testing::Values(71, 72), testing::PrintToStringParamName());

TEST_F(LinkThreads, MissingMemoryForTheStartRecordIsAFailure) {
    ReplacedCalls calls;
    calls.mayAllocate = [](std::size_t) { return false; };
    calls.mayCreate = [](const ThreadRequest&) { return ADD_FAILURE(), false; };
    EXPECT_TRUE(isEmpty(Link::startLink(&common, stream.near.descriptor(), txQueue, rxQueue)));
}

}  // namespace
