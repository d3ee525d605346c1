#pragma once
/// What a scenario file says, after it was read: settings, and what to play when a client comes or asks for an upload.

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "sim/Clock.h"
#include "sim/HexReader.h"
#include "sim/Outbox.h"
#include "sim/Pace.h"
#include "sim/Wire.h"

namespace sim {

/// Where an undisturbed upload pauses: behind a state, or where the progress has been reached.
struct Moment {
    std::uint8_t state = kDone;
    std::optional<std::uint8_t> percent;  // only with kProgramming

    bool operator==(const Moment&) const = default;
};

// The steps of a sequence. Those that concern one client concern the one that began the sequence.

/// Changes the status, fields that have no value stay, and reports to all clients when it differs.
struct ShowStatus {
    std::optional<std::uint8_t> state, mode, progress, address;
    std::optional<std::uint32_t> serial;
};
/// Lets time go by.
struct Wait {
    Duration time{};
};
/// Goes on with the undisturbed upload up to `until`. The first one of a sequence reads the hex file.
struct Normal {
    Moment until;
};
/// Reports the status to all clients, changed or not.
struct Report {};
/// Tells the client who the server is.
struct Greet {};
/// Sends bytes as they are.
struct SendBytes {
    Bytes bytes;
};
/// Sends a whole packet with any command id.
struct SendPacket {
    std::uint16_t command = 0;
    Bytes payload;
};
/// Sends the first bytes of a status report and is silent from then on.
struct SendHalf {
    std::uint32_t byteCount = 0;
};
/// Sends the client nothing any more.
struct Silence {};
/// Ends silence.
struct Speak {};
/// Closes the client's connection in the orderly way.
struct Close {};
/// Breaks the client's connection with a reset.
struct Reset {};
/// The server kills itself without a word.
struct Die {};
/// The server ends in the orderly way.
struct Exit {
    std::uint8_t status = 0;
};

using Step = std::variant<ShowStatus, Wait, Normal, Report, Greet, SendBytes, SendPacket, SendHalf, Silence, Speak,
                          Close, Reset, Die, Exit>;
using Sequence = std::vector<Step>;

/// Everything that is not a step.
struct Settings {
    Pace pace;
    std::uint32_t speed = 1;                  // all play is so many times faster
    std::optional<std::uint32_t> bytes;       // size of each upload; none: the size of its hex file
    AddressRange addresses;                   // what a hex file may fill
    std::optional<Duration> idle;             // ends after so long without a client; none: never
    Duration listenDelay{};                   // from the start to the first accepted connection
    bool refuseConnections = false;           // runs, but does not listen
    std::optional<std::uint8_t> refuseStart;  // ends at once with this status
    std::vector<std::uint16_t> ignored;       // commands that are neither obeyed nor answered
    std::uint16_t payloadOffset = kHeaderBytes;
    Delivery delivery;
    Identity identity;    // its process id is filled by the running server
    std::string journal;  // path, empty: none
    std::string log;      // path, empty: none
};

/// One scenario. The default is a server that does everything right.
struct Scenario {
    Settings settings;
    Sequence onConnect{Greet{}};
    Sequence onUpload{Normal{}};
};

}  // namespace sim
