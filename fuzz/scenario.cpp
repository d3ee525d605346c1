// The simulated server's scenario reader: what it took, written down again and read again, is the same; what it took is
// within the bounds of the grammar; what it refused it refuses at a place that the text has.
// Input: the text.
#include "fuzz/oracle/HexText.h"
#include "fuzz/oracle/ScenarioText.h"
#include "sim/ScenarioParser.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(data, data + size);
    const auto read = sim::parseScenario(text);
    sim::Settings settings;
    const bool settingsAlone = !sim::parseSettings(text, settings);
    if (const auto* problem = std::get_if<sim::ScenarioProblem>(&read)) {
        fuzz::check(fuzz::isPlace(text, problem->line, problem->column));
        fuzz::check(!problem->expected.empty() && !problem->got.empty() && !settingsAlone);
        return 0;
    }
    const auto& scenario = std::get<sim::Scenario>(read);
    if (settingsAlone) fuzz::check(fuzz::written(settings) == fuzz::written(scenario.settings));
    fuzz::check(fuzz::isWithinBounds(scenario));
    if (scenario.onConnect.size() + scenario.onUpload.size() > 500) return 0;  // nothing new, and slow
    const std::string written = fuzz::written(scenario);
    const auto again = sim::parseScenario(written);
    fuzz::check(std::holds_alternative<sim::Scenario>(again));
    fuzz::check(fuzz::written(std::get<sim::Scenario>(again)) == written);
    return 0;
}
