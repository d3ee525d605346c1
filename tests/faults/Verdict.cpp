#include "tests/faults/Verdict.h"

#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string_view>

namespace faults {

namespace {

/// A crash that is reported ends with status 1, as a refusal does: by our own report or by a sanitizer's.
constexpr std::array<std::string_view, 4> kCrashes{"segmentation fault", "Sanitizer",
                                                   "runtime error:", "terminate called"};

bool has(const std::string& text, std::string_view part) { return text.find(part) != std::string::npos; }

/// Of a run whose calls all did what they are there for, however late and in however many steps.
std::string ofUndisturbed(const Plan& plan, int status, const Ending& ending) {
    if (status != EXIT_SUCCESS) return "ends with 1 although no call failed";
    // An interrupted call that is not tried again is told.
    const bool mayTell = plan.kind == Kind::interrupted;
    return ending.said.empty() || mayTell ? "" : "complains although no call failed";
}

std::string ofFailure(const Scenario& scenario, const Tally& tally, const Ending& ending) {
    // The line that tells of no memory may have been struck as well.
    if (tally.outOfMemory && tally.struck > 1) return "";
    if (ending.said.empty()) return "ends with 1 and says nothing";
    const auto isSaid = [&](std::string_view reason) { return has(ending.said, reason); };
    const bool any = scenario.says.empty() || std::any_of(scenario.says.begin(), scenario.says.end(), isSaid);
    return any ? "" : "ends with 1 and does not say why";
}

std::string ofSuccess(const Scenario& scenario, const Ending& ending) {
    if (ending.terminated || scenario.shows == nullptr || has(ending.shown, scenario.shows)) return "";
    return std::string("ends with 0 and does not show '") + scenario.shows + "'";
}

}  // namespace

std::string verdict(const Scenario& scenario, const Plan& plan, const Tally& tally, const Ending& ending) {
    if (ending.status < 0) return "hangs";
    if (!WIFEXITED(ending.status)) return "dies of signal " + std::to_string(WTERMSIG(ending.status));
    const int status = WEXITSTATUS(ending.status);
    if (status != EXIT_SUCCESS && status != EXIT_FAILURE) return "ends with " + std::to_string(status);
    const auto isSaid = [&](std::string_view crash) { return has(ending.said, crash); };
    if (std::any_of(kCrashes.begin(), kCrashes.end(), isSaid)) return "crashes";
    std::string judged = tally.failed ? "" : ofUndisturbed(plan, status, ending);
    if (!judged.empty()) return judged;
    return status == EXIT_SUCCESS ? ofSuccess(scenario, ending) : ofFailure(scenario, tally, ending);
}

}  // namespace faults
