#pragma once
/// The steps of scenario text, one table row each. Pure.

#include <string>
#include <string_view>

#include "sim/Scenario.h"
#include "sim/ScenarioWords.h"

namespace sim {

/// One kind of step: its name and how its words are read onto the end of a sequence.
struct StepRow {
    std::string_view name;
    void (*read)(Words&, Sequence&);
    bool uploadOnly;  // makes sense in the sequence of an upload alone
};

/// The step with that name in any case of letters, null when there is none.
const StepRow* findStep(std::string_view name);

/// All names with a comma between them, for messages.
std::string stepNames();

/// A moment of the undisturbed upload; notes a problem otherwise.
std::optional<Moment> readMoment(Words& words);

}  // namespace sim
