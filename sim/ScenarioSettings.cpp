#include "sim/ScenarioSettings.h"

#include <algorithm>
#include <array>

namespace sim {

namespace {

using std::chrono::hours;
using std::chrono::seconds;

constexpr Duration kLongestPlayTime = hours(1), kLongestIdleTime = hours(24), kLongestWriteTime = seconds(10);
constexpr std::uint32_t kMostUploadBytes = 16 * 1024 * 1024;
constexpr std::size_t kLongestPathBytes = 4095, kLongestIdentityBytes = 255;

template <typename Target, typename Value>
void store(Target& target, const std::optional<Value>& value) {
    if (value) target = static_cast<Target>(*value);
}

template <typename Target, typename Value>
void store(std::optional<Target>& target, const std::optional<Value>& value) {
    if (value) target = static_cast<Target>(*value);
}

void readRange(Words& words, Settings& settings) {
    const auto first = words.number(0, 0xFFFFFFFF, "a first address");
    if (!first) return;
    store(settings.addresses.first, first);
    store(settings.addresses.last, words.number(*first, 0xFFFFFFFF, "a last address"));
}

void readIdle(Words& words, Settings& settings) {
    if (words.accept("never")) {
        settings.idle.reset();
    } else {
        store(settings.idle, words.time(kLongestIdleTime));
    }
}

void readRefuse(Words& words, Settings& settings) {
    if (words.accept("connections")) {
        settings.refuseConnections = true;
    } else if (words.accept("start")) {
        settings.refuseStart = std::uint8_t{1};
        if (!words.atEnd()) store(settings.refuseStart, words.number(1, 255, "an exit status"));
    } else {
        words.fail("'connections' or 'start'");
    }
}

void readIgnore(Words& words, Settings& settings) {
    settings.ignored.clear();
    do {
        const auto command = readCommand(words);
        if (!command) return;
        settings.ignored.push_back(*command);
    } while (!words.atEnd());
}

void readSplit(Words& words, Settings& settings) {
    auto& cuts = settings.delivery.cuts;
    cuts.clear();
    do {
        const std::uint32_t lowest = cuts.empty() ? 1 : cuts.back() + 1;
        const auto cut = words.number(lowest, 65535, "a rising byte offset");
        if (!cut) return;
        cuts.push_back(*cut);
    } while (!words.atEnd() && !words.startsWith("pause"));
    if (words.accept("pause")) store(settings.delivery.cutPause, words.time(kLongestPlayTime));
}

void readCoalesce(Words& words, Settings& settings) {
    store(settings.delivery.gather, words.number(1, 1000, "a number of packets"));
    if (words.accept("within")) store(settings.delivery.gatherWithin, words.time(kLongestPlayTime));
}

// Rows of one value each are plain enough to stand in the table.
constexpr std::array kSettings{
    SettingRow{
        "bitrate",
        [](Words& w, Settings& s) { store(s.pace.bitsPerSecond, w.number(1000, 100'000'000, "bits per second")); }},
    SettingRow{"block", [](Words& w, Settings& s) { store(s.pace.blockBytes, w.number(1, 65536, "bytes")); }},
    SettingRow{"bytes", [](Words& w, Settings& s) { store(s.bytes, w.number(1, kMostUploadBytes, "bytes")); }},
    SettingRow{"write-time", [](Words& w, Settings& s) { store(s.pace.writeTime, w.time(kLongestWriteTime)); }},
    SettingRow{"prepare-time", [](Words& w, Settings& s) { store(s.pace.prepareTime, w.time(kLongestPlayTime)); }},
    SettingRow{"search-time", [](Words& w, Settings& s) { store(s.pace.searchTime, w.time(kLongestPlayTime)); }},
    SettingRow{"erase-time", [](Words& w, Settings& s) { store(s.pace.eraseTime, w.time(kLongestPlayTime)); }},
    SettingRow{"verify-time", [](Words& w, Settings& s) { store(s.pace.verifyTime, w.time(kLongestPlayTime)); }},
    SettingRow{"speed", [](Words& w, Settings& s) { store(s.speed, w.number(1, 1000, "a factor")); }},
    SettingRow{"range", readRange},
    SettingRow{"idle", readIdle},
    SettingRow{"listen-delay", [](Words& w, Settings& s) { store(s.listenDelay, w.time(kLongestPlayTime)); }},
    SettingRow{"refuse", readRefuse},
    SettingRow{"ignore", readIgnore},
    SettingRow{"payload-offset", [](Words& w, Settings& s) { store(s.payloadOffset, w.number(8, 1024, "an offset")); }},
    SettingRow{"split", readSplit},
    SettingRow{"coalesce", readCoalesce},
    SettingRow{"process-id",
               [](Words& w, Settings& s) { store(s.identity.processId, w.number(1, 0xFFFFFFFF, "a process id")); }},
    SettingRow{"application",
               [](Words& w, Settings& s) { store(s.identity.application, w.text(kLongestIdentityBytes)); }},
    SettingRow{"version", [](Words& w, Settings& s) { store(s.identity.version, w.text(kLongestIdentityBytes)); }},
    SettingRow{"version-label",
               [](Words& w, Settings& s) { store(s.identity.versionLabel, w.text(kLongestIdentityBytes)); }},
    SettingRow{"journal", [](Words& w, Settings& s) { store(s.journal, w.text(kLongestPathBytes)); }},
    SettingRow{"log", [](Words& w, Settings& s) { store(s.log, w.text(kLongestPathBytes)); }},
};

struct CommandWord {
    std::string_view name;
    std::uint16_t command;
};
constexpr std::array kCommandWords{
    CommandWord{"ping", CmdPing},
    CommandWord{"status-request", CmdStatusRequest},
    CommandWord{"status-reset", CmdStatusReset},
    CommandWord{"byte", CmdByte},
    CommandWord{"upload", CmdUpload},
};

}  // namespace

const SettingRow* findSetting(std::string_view name) {
    const auto row = std::find_if(kSettings.begin(), kSettings.end(),
                                  [&](const SettingRow& setting) { return sameWord(setting.name, name); });
    return row == kSettings.end() ? nullptr : &*row;
}

std::string settingNames() {
    std::string names;
    for (const SettingRow& row : kSettings) names.append(names.empty() ? "" : ", ").append(row.name);
    return names;
}

std::optional<std::uint16_t> readCommand(Words& words) {
    for (const CommandWord& row : kCommandWords)
        if (words.accept(row.name)) return row.command;
    const auto number = words.number(0, 65535, "ping, status-request, status-reset, byte, upload or a command id");
    if (!number) return std::nullopt;
    return static_cast<std::uint16_t>(*number);
}

}  // namespace sim
