#pragma once
/// The settings of scenario text, one table row each. Pure.

#include <string>
#include <string_view>

#include "sim/Scenario.h"
#include "sim/ScenarioWords.h"

namespace sim {

/// One setting: its name and how its values are read.
struct SettingRow {
    std::string_view name;
    void (*read)(Words&, Settings&);
};

/// The setting with that name in any case of letters, null when there is none.
const SettingRow* findSetting(std::string_view name);

/// All names with a comma between them, for messages.
std::string settingNames();

/// A command of a client by name ("upload") or number; notes a problem otherwise.
std::optional<std::uint16_t> readCommand(Words& words);

}  // namespace sim
