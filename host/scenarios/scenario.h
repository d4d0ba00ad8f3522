// A scenario: something that goes wrong with a camera, written down so that it happens again.
#pragma once

#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace camhost {

/// What is recorded while it happens.
struct ScenarioRun {
    std::string signal;  ///< combination; empty: the plug-in's own
    double seconds = 2;  ///< of each recording
    int takes = 1;       ///< recordings, one after the other
    bool nv12 = false;
    std::vector<std::string> changes;  ///< PROPERTY=VALUE@TIME
};

/// The options of `camhost record` that make such a recording.
std::vector<std::string> record_options(const ScenarioRun& run);

// NOLINTNEXTLINE(bugprone-exception-escape): JSON's move, which its makers declare noexcept
struct Scenario {
    std::string name;    ///< of its file, without the extension
    std::string title;   ///< one line
    std::string world;   ///< what happens in the real world
    std::string plugin;  ///< what the plug-in does about it
    std::string host;    ///< what a host of the plug-in sees
    ScenarioRun run;
    nlohmann::json configuration;  ///< of the virtual bus, the rules with the scenario's seed
    nlohmann::json expect;         ///< see judgement.h
    /// Checks of `camhost check` that find it, each with words in which it does.
    std::map<std::string, std::string> fails;

    /// Throws Failure (kUsage) with the file's name when it is malformed.
    static Scenario read(const std::filesystem::path& file);
};

/// All of a folder, by name. Throws Failure (kUsage) when there are none.
std::vector<Scenario> read_scenarios(const std::filesystem::path& folder);

/// The scenario of that name. Throws Failure (kUsage), with the nearest name, when there is none.
const Scenario& find_scenario(const std::vector<Scenario>& all, const std::string& name);

}  // namespace camhost
