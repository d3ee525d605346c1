#include "sim/ScenarioParser.h"

#include <algorithm>

#include "sim/ScenarioSettings.h"
#include "sim/ScenarioSteps.h"

namespace sim {

namespace {

/// Reads settings, each at most once.
class SettingsReader {
public:
    explicit SettingsReader(Settings& target) : settings(target) {}

    /// Reads the setting whose name is next; false when the next word is none.
    bool read(Words& words) {
        const SettingRow* row = words.peek().quoted ? nullptr : findSetting(words.peek().text);
        if (row == nullptr) return false;
        if (std::find(seen.begin(), seen.end(), row) != seen.end()) {
            words.fail("each setting once");
            return true;
        }
        seen.push_back(row);
        words.take();
        row->read(words, settings);
        checkDelivery(words);
        return true;
    }

private:
    void checkDelivery(Words& words) const {
        if (!settings.delivery.cuts.empty() && settings.delivery.gather > 1)
            words.fail("only one of split and coalesce");
    }

    Settings& settings;
    std::vector<const SettingRow*> seen;
};

void expectEnd(Words& words) {
    if (!words.atEnd()) words.fail("the end of the line");
}

class Parser {
public:
    std::variant<Scenario, ScenarioProblem> run(const std::vector<Directive>& directives) {
        for (const Directive& directive : directives) {
            Words words(directive);
            readDirective(directive, words);
            if (!words.problem()) expectEnd(words);
            if (words.problem()) return *words.problem();
        }
        if (!loops.empty())
            return ScenarioProblem{loops.back().line, loops.back().column, "an 'end' for this 'repeat'", "none"};
        return std::move(scenario);
    }

private:
    struct Loop {
        std::size_t begin;
        std::uint32_t count;
        std::uint32_t line, column;
    };

    void readDirective(const Directive& directive, Words& words) {
        if (words.startsWith("on")) return readSection(words);
        if (words.startsWith("repeat")) return beginLoop(directive, words);
        if (words.startsWith("end")) return endLoop(words);
        const StepRow* row = words.peek().quoted ? nullptr : findStep(words.peek().text);
        if (row != nullptr) return readStep(*row, words);
        if (sequence == nullptr && settings.read(words)) return;
        if (sequence == nullptr) {
            words.fail("a setting (" + settingNames() + "), 'on', 'repeat', 'end' or a step (" + stepNames() + ")");
        } else {
            words.fail("'on', 'repeat', 'end' or a step (" + stepNames() +
                       "); settings stand before the first of them");
        }
    }

    void readSection(Words& words) {
        if (!loops.empty()) {
            words.fail("an 'end' for the 'repeat' of line " + std::to_string(loops.back().line));
            return;
        }
        words.take();
        if (words.startsWith("connect")) return beginSection(words, scenario.onConnect, connectSeen);
        if (words.startsWith("upload")) return beginSection(words, scenario.onUpload, uploadSeen);
        words.fail("'connect' or 'upload'");
    }

    void beginSection(Words& words, Sequence& section, bool& seen) {
        if (seen) {
            words.fail("each section once");
            return;
        }
        words.take();
        seen = true;
        sequence = &section;
        sequence->clear();
    }

    // A scenario that is only about the upload needs no section line.
    Sequence& currentSequence() {
        if (sequence == nullptr) {
            uploadSeen = true;
            sequence = &scenario.onUpload;
            sequence->clear();
        }
        return *sequence;
    }

    void beginLoop(const Directive& directive, Words& words) {
        const std::uint32_t column = words.take().column;
        const auto count = words.number(1, static_cast<std::uint32_t>(kMostSteps), "a number of repetitions");
        loops.push_back({currentSequence().size(), count.value_or(1), directive.line, column});
    }

    void endLoop(Words& words) {
        if (loops.empty()) {
            words.fail("a 'repeat' before this 'end'");
            return;
        }
        const Loop loop = loops.back();
        const Sequence body(sequence->begin() + static_cast<std::ptrdiff_t>(loop.begin), sequence->end());
        if (std::uint64_t{body.size()} * loop.count + loop.begin > kMostSteps) {
            words.fail("at most " + std::to_string(kMostSteps) + " steps in a sequence");
            return;
        }
        words.take();
        loops.pop_back();
        for (std::uint32_t round = 1; round < loop.count; ++round)
            sequence->insert(sequence->end(), body.begin(), body.end());
    }

    void readStep(const StepRow& row, Words& words) {
        Sequence& target = currentSequence();
        if (row.uploadOnly && playsOnConnect()) {
            words.fail("a step that needs no upload");
            return;
        }
        words.take();
        Sequence steps;
        row.read(words, steps);
        if (words.startsWith("at")) {
            if (playsOnConnect()) {
                words.fail("no moment of an upload");
                return;
            }
            words.take();
            if (const auto moment = readMoment(words)) target.push_back(Normal{*moment});
        }
        target.insert(target.end(), steps.begin(), steps.end());
        if (target.size() > kMostSteps) words.fail("at most " + std::to_string(kMostSteps) + " steps in a sequence");
    }

    bool playsOnConnect() const { return sequence == &scenario.onConnect; }

    Scenario scenario;
    SettingsReader settings{scenario.settings};
    Sequence* sequence = nullptr;  // null while settings may come
    bool connectSeen = false;
    bool uploadSeen = false;
    std::vector<Loop> loops;
};

}  // namespace

std::variant<Scenario, ScenarioProblem> parseScenario(std::string_view text) {
    auto split = splitDirectives(text);
    if (const auto* problem = std::get_if<ScenarioProblem>(&split)) return *problem;
    return Parser().run(std::get<std::vector<Directive>>(split));
}

std::optional<ScenarioProblem> parseSettings(std::string_view text, Settings& settings) {
    auto split = splitDirectives(text);
    if (const auto* problem = std::get_if<ScenarioProblem>(&split)) return *problem;
    SettingsReader reader(settings);
    for (const Directive& directive : std::get<std::vector<Directive>>(split)) {
        Words words(directive);
        if (!reader.read(words)) words.fail("a setting (" + settingNames() + ")");
        if (!words.problem()) expectEnd(words);
        if (words.problem()) return words.problem();
    }
    return std::nullopt;
}

}  // namespace sim
