#pragma once
/// The words of scenario text, and taking them one after the other. Pure.

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "sim/Clock.h"

namespace sim {

/// The first thing that is wrong with scenario text. Lines and columns count from 1.
struct ScenarioProblem {
    std::uint32_t line = 1;
    std::uint32_t column = 1;
    std::string expected;
    std::string got;
};

struct Word {
    std::string text;
    std::uint32_t column;
    bool quoted = false;
};

/// The words between two line ends or semicolons; never without words.
struct Directive {
    std::uint32_t line;
    std::vector<Word> words;
    std::uint32_t endColumn;  // right behind the last word
};

/// Cuts text into directives; comments and empty lines are gone.
std::variant<std::vector<Directive>, ScenarioProblem> splitDirectives(std::string_view text);

/// Equal but for the case of ASCII letters.
bool sameWord(std::string_view a, std::string_view b);

/// Takes the words of one directive. After the first failure every taking member answers with nothing.
class Words {
public:
    /// Borrows `source`.
    explicit Words(const Directive& source) : directive(source) {}

    bool atEnd() const { return taken == directive.words.size(); }
    /// The next word in any case of letters; false at the end, for quoted words, or when it is another.
    bool accept(std::string_view word);
    /// True when `accept(word)` would be.
    bool startsWith(std::string_view word) const;
    /// Steps over the next word; only when there is one.
    const Word& take() { return directive.words[taken++]; }
    /// The next word; only when there is one.
    const Word& peek() const { return directive.words[taken]; }

    /// A decimal or 0x number; `what` names it in the message.
    std::optional<std::uint32_t> number(std::uint32_t lowest, std::uint32_t highest,
                                        std::string_view what = "a number");
    /// A number with its unit: us, ms or s.
    std::optional<Duration> time(Duration longest);
    /// A number with a percent sign.
    std::optional<std::uint8_t> percent();
    /// A word or quoted text of 1 to `longest` bytes.
    std::optional<std::string> text(std::size_t longest);
    /// Bytes in hexadecimal up to the end or to the word "at"; at least `fewest`.
    std::optional<Bytes> hexBytes(std::size_t fewest);

    /// Notes that something else was expected here; the first note stays. Always none, for the caller to return.
    std::nullopt_t fail(std::string expected);
    const std::optional<ScenarioProblem>& problem() const { return problem_; }

private:
    std::optional<std::uint32_t> plainNumber(std::string_view text) const;

    const Directive& directive;
    std::size_t taken = 0;
    std::optional<ScenarioProblem> problem_;
};

}  // namespace sim
