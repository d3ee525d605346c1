#include "sim/ScenarioSteps.h"

#include <algorithm>
#include <array>

#include "sim/ScenarioSettings.h"

namespace sim {

namespace {

constexpr Duration kLongestPlayTime = std::chrono::hours(1);
constexpr std::uint32_t kStatusPacketBytes = 16;

std::optional<std::uint8_t> readState(Words& words) {
    for (const StateName& row : kStateNames)
        if (words.accept(row.name)) return row.number;
    const auto number = words.number(0, 255, "a state's name, or a number");
    if (!number) return std::nullopt;
    return static_cast<std::uint8_t>(*number);
}

std::optional<std::uint8_t> readByte(Words& words) {
    const auto number = words.number(0, 255);
    if (!number) return std::nullopt;
    return static_cast<std::uint8_t>(*number);
}

std::optional<std::uint32_t> readSerial(Words& words) {
    if (words.accept("none")) return 0xFFFFFFFF;
    return words.number(0, 0xFFFFFFFF, "none, or a serial number");
}

/// Reads one field with its value; false when the next word names none.
bool readField(Words& words, ShowStatus& show) {
    if (words.accept("progress")) {
        show.progress = readByte(words);
    } else if (words.accept("address")) {
        show.address = readByte(words);
    } else if (words.accept("mode")) {
        show.mode = readByte(words);
    } else if (words.accept("serial")) {
        show.serial = readSerial(words);
    } else {
        return false;
    }
    return true;
}

void appendWait(Words& words, Sequence& sequence) {
    if (const auto time = words.time(kLongestPlayTime)) sequence.push_back(Wait{*time});
}

void readShow(Words& words, Sequence& sequence) {
    ShowStatus show;
    show.state = readState(words);
    while (!words.problem() && readField(words, show)) {
    }
    if (words.problem()) return;
    sequence.push_back(show);
    if (words.accept("for")) appendWait(words, sequence);
}

void readNormal(Words& words, Sequence& sequence) {
    Normal normal;
    if (words.accept("until")) normal.until = readMoment(words).value_or(Moment{});
    sequence.push_back(normal);
}

void readSend(Words& words, Sequence& sequence) {
    if (auto bytes = words.hexBytes(1)) sequence.push_back(SendBytes{std::move(*bytes)});
}

void readPacket(Words& words, Sequence& sequence) {
    const auto command = words.number(0, 65535, "a command id");
    if (!command) return;
    if (auto payload = words.hexBytes(0))
        sequence.push_back(SendPacket{static_cast<std::uint16_t>(*command), std::move(*payload)});
}

void readHalf(Words& words, Sequence& sequence) {
    const auto count = words.number(1, kStatusPacketBytes - 1, "a number of bytes");
    if (count) sequence.push_back(SendHalf{*count});
}

void readExit(Words& words, Sequence& sequence) {
    Exit step;
    if (!words.atEnd() && !words.startsWith("at")) {
        const auto status = words.number(0, 255, "an exit status");
        step.status = static_cast<std::uint8_t>(status.value_or(0));
    }
    sequence.push_back(step);
}

template <typename Plain>
void readPlain(Words& /*words*/, Sequence& sequence) {
    sequence.push_back(Plain{});
}

constexpr std::array kSteps{
    StepRow{"normal", readNormal, true},
    StepRow{"state", readShow, false},
    StepRow{"wait", appendWait, false},
    StepRow{"report", readPlain<Report>, false},
    StepRow{"greet", readPlain<Greet>, false},
    StepRow{"send", readSend, false},
    StepRow{"packet", readPacket, false},
    StepRow{"half", readHalf, false},
    StepRow{"silence", readPlain<Silence>, false},
    StepRow{"speak", readPlain<Speak>, false},
    StepRow{"close", readPlain<Close>, false},
    StepRow{"reset", readPlain<Reset>, false},
    StepRow{"die", readPlain<Die>, false},
    StepRow{"exit", readExit, false},
};

struct MomentWord {
    std::string_view name;
    std::uint8_t state;
};
constexpr std::array kMomentWords{
    MomentWord{"preparing", kPreparing},     MomentWord{"searching", kSearching}, MomentWord{"erasing", kErasing},
    MomentWord{"programming", kProgramming}, MomentWord{"done", kDone},
};

}  // namespace

const StepRow* findStep(std::string_view name) {
    const auto row =
        std::find_if(kSteps.begin(), kSteps.end(), [&](const StepRow& step) { return sameWord(step.name, name); });
    return row == kSteps.end() ? nullptr : &*row;
}

std::string stepNames() {
    std::string names;
    for (const StepRow& row : kSteps) names.append(names.empty() ? "" : ", ").append(row.name);
    return names;
}

std::optional<Moment> readMoment(Words& words) {
    for (const MomentWord& row : kMomentWords)
        if (words.accept(row.name)) return Moment{row.state, std::nullopt};
    const bool percentNext = !words.atEnd() && words.peek().text.ends_with('%');
    const auto percent = percentNext ? words.percent() : std::nullopt;
    if (!percent) return words.fail("preparing, searching, erasing, programming, done or a percentage from 0% to 100%");
    return Moment{kProgramming, percent};
}

}  // namespace sim
