#include "host/scenarios/scenario.h"

#include <algorithm>
#include <fstream>
#include <initializer_list>
#include <stdexcept>
#include <string_view>

#include "host/base/exit_code.h"
#include "host/base/nearest_name.h"
#include "host/base/text.h"

namespace camhost {

namespace {

using nlohmann::json;

void require_members(const json& object, const char* what,
                     std::initializer_list<std::string_view> known) {
    if (!object.is_object()) {
        throw std::invalid_argument(std::string(what) + " must be an object");
    }
    for (const auto& item : object.items()) {
        if (std::find(known.begin(), known.end(), item.key()) == known.end()) {
            throw std::invalid_argument("unknown member \"" + item.key() + "\" in " + what);
        }
    }
}

std::string text_of(const json& object, const char* name) {
    if (!object.contains(name) || object[name].get<std::string>().empty()) {
        throw std::invalid_argument(std::string("\"") + name + "\" is missing");
    }
    return object[name].get<std::string>();
}

ScenarioRun run_of(const json& object) {
    require_members(object, "\"run\"", {"signal", "seconds", "takes", "nv12", "set"});
    ScenarioRun run;
    run.signal = object.value("signal", run.signal);
    run.seconds = object.value("seconds", run.seconds);
    run.takes = object.value("takes", run.takes);
    run.nv12 = object.value("nv12", run.nv12);
    run.changes = object.value("set", run.changes);
    if (run.seconds <= 0 || run.seconds > 60 || run.takes < 1 || run.takes > 10) {
        throw std::invalid_argument("\"run\": 1 to 10 takes of up to 60 seconds");
    }
    return run;
}

/// The rules, each with the scenario's seed unless it has one.
json seeded(json rules, uint64_t seed) {
    for (json& rule : rules) {
        if (rule.contains("chance") && !rule.contains("seed")) {
            rule["seed"] = seed;
        }
    }
    return rules;
}

Scenario scenario_of(const json& file) {
    require_members(file, "the scenario",
                    {"title", "world", "plugin", "host", "seed", "run", "camera", "bus", "faults",
                     "expect", "fails"});
    Scenario scenario;
    scenario.title = text_of(file, "title");
    scenario.world = text_of(file, "world");
    scenario.plugin = text_of(file, "plugin");
    scenario.host = text_of(file, "host");
    scenario.run = run_of(file.value("run", json::object()));
    const auto seed = file.value("seed", uint64_t{1});
    json camera = file.value("camera", json::object());
    camera.emplace("identity", "run-time");
    camera.emplace("seed", seed);
    scenario.configuration = {{"camera", camera},
                              {"bus", file.value("bus", json::object())},
                              {"faults", seeded(file.value("faults", json::array()), seed)}};
    scenario.expect = file.value("expect", json::object());
    require_members(scenario.expect, "\"expect\"",
                    {"exit", "takes", "log", "camera", "complaints", "strikes"});
    scenario.fails = file.value("fails", scenario.fails);
    return scenario;
}

}  // namespace

std::vector<std::string> record_options(const ScenarioRun& run) {
    std::vector<std::string> words{"--duration", format("%gs", run.seconds), "--takes",
                                   std::to_string(run.takes)};
    if (!run.signal.empty()) {
        words.insert(words.end(), {"--signal", run.signal});
    }
    for (const std::string& change : run.changes) {
        words.insert(words.end(), {"--set", change});
    }
    if (run.nv12) {
        words.emplace_back("--nv12");
    }
    return words;
}

Scenario Scenario::read(const std::filesystem::path& file) {
    try {
        std::ifstream stream(file);
        Scenario scenario = scenario_of(json::parse(stream));
        scenario.name = file.stem();
        return scenario;
    } catch (const std::exception& error) {
        throw Failure(ExitCode::kUsage, file.string() + ": " + error.what());
    }
}

std::vector<Scenario> read_scenarios(const std::filesystem::path& folder) {
    std::vector<Scenario> all;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
        if (entry.path().extension() == ".json") {
            all.push_back(Scenario::read(entry.path()));
        }
    }
    if (all.empty()) {
        throw Failure(ExitCode::kUsage, "there are no scenarios in " + folder.string());
    }
    std::sort(all.begin(), all.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    return all;
}

const Scenario& find_scenario(const std::vector<Scenario>& all, const std::string& name) {
    const auto found = std::find_if(all.begin(), all.end(),
                                    [&](const Scenario& each) { return each.name == name; });
    if (found == all.end()) {
        std::vector<std::string> names;
        names.reserve(all.size());
        for (const Scenario& each : all) {
            names.push_back(each.name);
        }
        throw Failure(ExitCode::kUsage,
                      "there is no scenario '" + name + "'" + suggestion(name, names));
    }
    return *found;
}

}  // namespace camhost
