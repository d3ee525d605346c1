#include "sim/ScenarioWords.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>

namespace sim {

namespace {

constexpr std::size_t kShownBytes = 40;

char lower(char letter) { return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter; }

bool isBlank(char letter) { return letter == ' ' || letter == '\t' || letter == '\r'; }

/// Cuts one text into directives.
class Splitter {
public:
    explicit Splitter(std::string_view content) : text(content) {}

    std::variant<std::vector<Directive>, ScenarioProblem> run() {
        while (position < text.size() && !problem) step();
        finishDirective();
        if (problem) return *problem;
        return std::move(directives);
    }

private:
    void step() {
        const char next = text[position];
        if (next == '\n') return endLine();
        if (next == '#') return skipComment();
        if (next == '"') return quoted();
        if (next == ';') finishDirective();
        if (next == ';' || isBlank(next)) {
            ++position;
            return;
        }
        plain();
    }

    std::uint32_t column() const { return static_cast<std::uint32_t>(position - lineStart) + 1; }

    void endLine() {
        finishDirective();
        lineStart = ++position;
        ++line;
    }

    void skipComment() { position = std::min(text.find('\n', position), text.size()); }

    void plain() {
        const std::size_t begin = position;
        const std::uint32_t beginColumn = column();
        while (position < text.size() && !isBlank(text[position]) && text[position] != '\n' && text[position] != ';')
            ++position;
        add({std::string(text.substr(begin, position - begin)), beginColumn, false});
    }

    void quoted() {
        const std::uint32_t beginColumn = column();
        const std::size_t end = text.find_first_of("\"\n", position + 1);
        if (end == std::string_view::npos || text[end] == '\n') {
            problem = ScenarioProblem{line, beginColumn, "a closing '\"' on the same line", "none"};
            return;
        }
        const std::string_view content = text.substr(position + 1, end - position - 1);
        position = end + 1;
        add({std::string(content), beginColumn, true});
    }

    void add(Word word) {
        current.words.push_back(std::move(word));
        current.endColumn = column();
    }

    void finishDirective() {
        current.line = line;
        if (!current.words.empty()) directives.push_back(std::move(current));
        current = {};
    }

    std::string_view text;
    std::size_t position = 0;
    std::size_t lineStart = 0;
    std::uint32_t line = 1;
    Directive current{};
    std::vector<Directive> directives;
    std::optional<ScenarioProblem> problem;
};

struct Unit {
    std::string_view name;
    std::int64_t microseconds;
};
constexpr std::array kUnits{Unit{"us", 1}, Unit{"ms", 1000}, Unit{"s", 1'000'000}};

std::optional<std::uint8_t> hexValue(char digit) {
    constexpr std::string_view digits = "0123456789abcdef";
    const std::size_t value = digits.find(lower(digit));
    if (value == std::string_view::npos) return std::nullopt;
    return static_cast<std::uint8_t>(value);
}

/// Appends the bytes that `digits` stand for; false when they are no pairs of hex digits.
bool appendHex(std::string_view digits, Bytes& bytes) {
    if (digits.size() % 2 != 0) return false;
    for (std::size_t index = 0; index < digits.size(); index += 2) {
        const auto high = hexValue(digits[index]), low = hexValue(digits[index + 1]);
        if (!high || !low) return false;
        bytes.push_back(static_cast<std::uint8_t>(*high << 4 | *low));
    }
    return true;
}

}  // namespace

std::variant<std::vector<Directive>, ScenarioProblem> splitDirectives(std::string_view text) {
    return Splitter(text).run();
}

bool sameWord(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) { return lower(x) == lower(y); });
}

bool Words::startsWith(std::string_view word) const {
    return !atEnd() && !peek().quoted && sameWord(peek().text, word);
}

bool Words::accept(std::string_view word) {
    if (!startsWith(word)) return false;
    ++taken;
    return true;
}

std::nullopt_t Words::fail(std::string expected) {
    if (problem_) return std::nullopt;
    const std::string shown = atEnd() ? "" : peek().text.substr(0, kShownBytes);
    problem_ = ScenarioProblem{directive.line, atEnd() ? directive.endColumn : peek().column, std::move(expected),
                               atEnd() ? "the end of the line" : "'" + shown + "'"};
    return std::nullopt;
}

std::optional<std::uint32_t> Words::plainNumber(std::string_view digits) const {
    const bool hex = digits.starts_with("0x") || digits.starts_with("0X");
    if (hex) digits.remove_prefix(2);
    std::uint32_t value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value, hex ? 16 : 10);
    if (error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
    return value;
}

std::optional<std::uint32_t> Words::number(std::uint32_t lowest, std::uint32_t highest, std::string_view what) {
    const auto value = atEnd() || peek().quoted ? std::nullopt : plainNumber(peek().text);
    if (problem_ || !value || *value < lowest || *value > highest)
        return fail(std::string(what) + " from " + std::to_string(lowest) + " to " + std::to_string(highest));
    ++taken;
    return value;
}

std::optional<Duration> Words::time(Duration longest) {
    const std::string_view word = atEnd() || peek().quoted ? std::string_view() : std::string_view(peek().text);
    const std::size_t unitAt = std::min(word.find_first_not_of("0123456789"), word.size());
    const auto count = plainNumber(word.substr(0, unitAt));
    const auto unit = std::find_if(kUnits.begin(), kUnits.end(),
                                   [&](const Unit& row) { return sameWord(row.name, word.substr(unitAt)); });
    if (!problem_ && count && unit != kUnits.end()) {
        const Duration time(std::int64_t{*count} * unit->microseconds);
        ++taken;
        if (time <= longest) return time;
        --taken;
    }
    return fail("a time of at most " + std::to_string(longest / std::chrono::seconds(1)) +
                "s with its unit, such as 250ms or 2s");
}

std::optional<std::uint8_t> Words::percent() {
    const std::string_view word = atEnd() ? std::string_view() : std::string_view(peek().text);
    const auto value = word.ends_with('%') ? plainNumber(word.substr(0, word.size() - 1)) : std::nullopt;
    if (problem_ || !value || *value > 100) return fail("a percentage from 0% to 100%");
    ++taken;
    return static_cast<std::uint8_t>(*value);
}

std::optional<std::string> Words::text(std::size_t longest) {
    if (problem_ || atEnd() || peek().text.empty() || peek().text.size() > longest)
        return fail("a text of 1 to " + std::to_string(longest) + " bytes");
    return take().text;
}

std::optional<Bytes> Words::hexBytes(std::size_t fewest) {
    Bytes bytes;
    while (!atEnd() && !startsWith("at")) {
        if (problem_ || peek().quoted || !appendHex(peek().text, bytes)) return fail("bytes as pairs of hex digits");
        ++taken;
    }
    if (bytes.size() < fewest) return fail("bytes as pairs of hex digits");
    return bytes;
}

}  // namespace sim
