#pragma once
/// How a connection is and how its pings went, at one moment.

#include <cstdint>

/// One snapshot.
struct LinkStatus {
    bool connected = false;           ///< The link is up.
    bool closing = false;             ///< The link is being closed, or was closed for good.
    bool dispatchRunning = false;     ///< The dispatch thread takes packets.
    bool pingRunning = false;         ///< The ping supervision runs.
    double maxRoundTrip = 0;          ///< Longest round trip of a ping, in seconds.
    double totalRoundTrip = 0;        ///< Sum of all round trips, in seconds.
    std::uint32_t responseCount = 0;  ///< Number of answers; counts on from 0 after 4294967295.
};

/// The figures of the time between two snapshots, `b` the earlier: all flags false, each number that of `a` less that
/// of `b`.
LinkStatus operator-(const LinkStatus& a, const LinkStatus& b);
