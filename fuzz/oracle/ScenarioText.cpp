#include "fuzz/oracle/ScenarioText.h"

#include <algorithm>
#include <array>

namespace fuzz {

namespace {

std::string number(std::string_view name, std::uint64_t value) {
    return std::string(name) + " " + std::to_string(value);
}

std::string time(std::string_view name, sim::Duration length) {
    const std::int64_t us = length.count();
    const std::string text = us % 1'000'000 == 0 ? std::to_string(us / 1'000'000) + "s"
                             : us % 1000 == 0    ? std::to_string(us / 1000) + "ms"
                                                 : std::to_string(us) + "us";
    return std::string(name) + " " + text;
}

/// A text with a quotation mark inside was a plain word, and has no blank.
std::string text(std::string_view name, const std::string& value) {
    const std::string mark = value.find('"') == std::string::npos ? "\"" : "";
    return std::string(name) + " " + mark + value + mark;
}

std::string hex(const sim::Bytes& bytes) {
    std::string digits;
    for (const std::uint8_t byte : bytes) {
        digits += " ";
        digits += "0123456789ABCDEF"[byte / 16];
        digits += "0123456789ABCDEF"[byte % 16];
    }
    return digits;
}

std::string moment(const sim::Moment& at) {
    constexpr std::array kWords{"preparing", "searching", "erasing", "programming", "done"};
    if (at.percent) return std::to_string(*at.percent) + "%";
    return kWords.at(at.state - 2U);
}

struct StepWriter {
    std::string operator()(const sim::ShowStatus& show) const {
        std::string line = number("state", show.state.value());
        if (show.mode) line += number(" mode", *show.mode);
        if (show.progress) line += number(" progress", *show.progress);
        if (show.address) line += number(" address", *show.address);
        if (show.serial) line += number(" serial", *show.serial);
        return line;
    }
    std::string operator()(const sim::Wait& wait) const { return time("wait", wait.time); }
    std::string operator()(const sim::Normal& normal) const { return "normal until " + moment(normal.until); }
    std::string operator()(const sim::Report&) const { return "report"; }
    std::string operator()(const sim::Greet&) const { return "greet"; }
    std::string operator()(const sim::SendBytes& send) const { return "send" + hex(send.bytes); }
    std::string operator()(const sim::SendPacket& packet) const {
        return number("packet", packet.command) + hex(packet.payload);
    }
    std::string operator()(const sim::SendHalf& half) const { return number("half", half.byteCount); }
    std::string operator()(const sim::Silence&) const { return "silence"; }
    std::string operator()(const sim::Speak&) const { return "speak"; }
    std::string operator()(const sim::Close&) const { return "close"; }
    std::string operator()(const sim::Reset&) const { return "reset"; }
    std::string operator()(const sim::Die&) const { return "die"; }
    std::string operator()(const sim::Exit& exit) const { return number("exit", exit.status); }
};

std::string written(const sim::Sequence& steps) {
    std::string lines;
    for (const sim::Step& step : steps) lines += std::visit(StepWriter{}, step) + "\n";
    return lines;
}

template <typename Number, typename Bound>
bool between(Number value, Bound lowest, Bound highest) {
    return value >= lowest && value <= highest;
}

bool isTime(sim::Duration length, std::int64_t longestSeconds) {
    return between(length.count(), std::int64_t{0}, longestSeconds * 1'000'000);
}

bool isWithinBounds(const sim::Step& step) {
    if (const auto* wait = std::get_if<sim::Wait>(&step)) return isTime(wait->time, 3600);
    if (const auto* normal = std::get_if<sim::Normal>(&step)) return normal->until.percent.value_or(0) <= 100;
    if (const auto* send = std::get_if<sim::SendBytes>(&step)) return !send->bytes.empty();
    if (const auto* half = std::get_if<sim::SendHalf>(&step)) return between(half->byteCount, 1U, 15U);
    return true;
}

bool isWithinBounds(const sim::Sequence& steps) {
    return steps.size() <= 100'000 &&
           std::all_of(steps.begin(), steps.end(), [](const sim::Step& step) { return isWithinBounds(step); });
}

bool isWithinBounds(const sim::Pace& pace) {
    return between(pace.bitsPerSecond, 1000U, 100'000'000U) && between(pace.blockBytes, 1U, 65536U) &&
           isTime(pace.writeTime, 10) && isTime(pace.prepareTime, 3600) && isTime(pace.searchTime, 3600) &&
           isTime(pace.eraseTime, 3600) && isTime(pace.verifyTime, 3600);
}

bool isWithinBounds(const sim::Delivery& delivery) {
    const auto& cuts = delivery.cuts;
    return std::adjacent_find(cuts.begin(), cuts.end(), std::greater_equal<>()) == cuts.end() &&
           (cuts.empty() || (cuts.front() >= 1 && cuts.back() <= 65535)) && between(delivery.gather, 1U, 1000U) &&
           (cuts.empty() || delivery.gather == 1) && isTime(delivery.cutPause, 3600) &&
           isTime(delivery.gatherWithin, 3600);
}

}  // namespace

std::string written(const sim::Settings& s) {
    std::string lines;
    const auto add = [&lines](const std::string& line) { lines += line + "\n"; };
    add(number("bitrate", s.pace.bitsPerSecond));
    add(number("block", s.pace.blockBytes));
    add(time("write-time", s.pace.writeTime));
    add(time("prepare-time", s.pace.prepareTime));
    add(time("search-time", s.pace.searchTime));
    add(time("erase-time", s.pace.eraseTime));
    add(time("verify-time", s.pace.verifyTime));
    add(number("speed", s.speed));
    if (s.bytes) add(number("bytes", *s.bytes));
    add(number("range", s.addresses.first) + number("", s.addresses.last));
    add(s.idle ? time("idle", *s.idle) : "idle never");
    add(time("listen-delay", s.listenDelay));
    if (s.refuseConnections) add("refuse connections");
    if (s.refuseStart) add(number("refuse start", *s.refuseStart));
    std::string ignored;
    for (const std::uint16_t command : s.ignored) ignored += number("", command);
    if (!ignored.empty()) add("ignore" + ignored);
    add(number("payload-offset", s.payloadOffset));
    std::string cuts;
    for (const std::uint32_t cut : s.delivery.cuts) cuts += number("", cut);
    if (!cuts.empty()) add("split" + cuts + time(" pause", s.delivery.cutPause));
    add(number("coalesce", s.delivery.gather) + time(" within", s.delivery.gatherWithin));
    if (s.identity.processId != 0) add(number("process-id", s.identity.processId));
    add(text("application", s.identity.application));
    add(text("version", s.identity.version));
    add(text("version-label", s.identity.versionLabel));
    if (!s.journal.empty()) add(text("journal", s.journal));
    if (!s.log.empty()) add(text("log", s.log));
    return lines;
}

std::string written(const sim::Scenario& scenario) {
    return written(scenario.settings) + "on connect\n" + written(scenario.onConnect) + "on upload\n" +
           written(scenario.onUpload);
}

bool isWithinBounds(const sim::Scenario& scenario) {
    const sim::Settings& s = scenario.settings;
    return isWithinBounds(s.pace) && isWithinBounds(s.delivery) && between(s.speed, 1U, 1000U) &&
           (!s.bytes || between(*s.bytes, 1U, 16777216U)) && s.addresses.first <= s.addresses.last &&
           isTime(s.idle.value_or(sim::Duration{}), 86400) && isTime(s.listenDelay, 3600) && s.refuseStart != 0 &&
           between(s.payloadOffset, 8U, 1024U) && s.identity.application.size() <= 255 &&
           s.identity.version.size() <= 255 && s.identity.versionLabel.size() <= 255 && s.journal.size() <= 4095 &&
           s.log.size() <= 4095 && isWithinBounds(scenario.onConnect) && isWithinBounds(scenario.onUpload);
}

}  // namespace fuzz
