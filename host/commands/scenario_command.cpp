// camhost scenario: things that go wrong with a camera, made to happen and judged.
#include <fstream>
#include <iterator>

#include "host/base/console.h"
#include "host/base/process.h"
#include "host/base/program_path.h"
#include "host/base/temporary_folder.h"
#include "host/base/text.h"
#include "host/commands/commands.h"
#include "host/commands/virtual_camera.h"
#include "host/scenarios/judgement.h"
#include "host/scenarios/scenario.h"

namespace camhost {

namespace {

constexpr int kStandardOutput = 1;

std::filesystem::path scenario_folder(const ScenarioOptions& options) {
    if (!options.folder.empty()) {
        return options.folder;
    }
    const auto found =
        find_near_program({"../../../virtcam/scenarios", "../share/aitorixcamera/scenarios"});
    if (!found) {
        throw Failure(ExitCode::kUsage,
                      "there are no scenarios near this program; name their folder with "
                      "--scenarios");
    }
    return *found;
}

std::string text_of(const std::filesystem::path& file) {
    std::ifstream stream(file);
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// Null when there is no such file, or it is no JSON.
nlohmann::json json_of(const std::filesystem::path& file) {
    std::ifstream stream(file);
    nlohmann::json value = nlohmann::json::parse(stream, nullptr, false);
    return value.is_discarded() ? nlohmann::json() : value;
}

void print_paragraph(Console& console, const char* heading, const std::string& text) {
    constexpr size_t kWidth = 76;
    console.line();
    console.line(heading);
    std::string line;
    for (const std::string& word : words_of(text)) {
        if (!line.empty() && line.size() + 1 + word.size() > kWidth) {
            console.line("    " + line);
            line.clear();
        }
        line += (line.empty() ? "" : " ") + word;
    }
    console.line("    " + line);
}

/// The line in which a check fails; empty when it does not.
std::string failure_of(const std::string& check, const std::string& output) {
    for (const std::string& line : split(output, '\n')) {
        if (line.starts_with("FAIL  " + check + " ")) {
            return line;
        }
    }
    return {};
}

/// Runs one scenario: camhost records with its camera, in a process of its own, since the loader
/// gives each process one bus.
class ScenarioRunner {
  public:
    ScenarioRunner(const Options& options, const Scenario& scenario, std::filesystem::path folder)
        : common_(options.common), scenario_(scenario), folder_(std::move(folder)) {}

    /// What differs from what is expected.
    std::vector<std::string> run() {
        std::filesystem::create_directories(folder_);
        std::ofstream(folder_ / "virtual-bus.json") << scenario_.configuration.dump(2) << '\n';
        Evidence evidence;
        evidence.exit_code = run_program(command(), folder_ / "camhost.txt");
        evidence.report = json_of(folder_ / "report.json");
        evidence.status = json_of(folder_ / "camera-status.json");
        evidence.log = text_of(folder_ / "plugin.log");
        if (evidence.exit_code == static_cast<int>(ExitCode::kInterrupted)) {
            throw Failure(ExitCode::kInterrupted, "interrupted");
        }
        return judge(scenario_, evidence);
    }

    /// Checks of camhost check that should name the fault and do not.
    std::vector<std::string> run_checks() {
        std::vector<std::string> words{std::filesystem::read_symlink("/proc/self/exe"), "check",
                                       "--virtual=" + (folder_ / "virtual-bus.json").string()};
        add_common(words);
        for (const auto& [name, finding] : scenario_.fails) {
            words.insert(words.end(), {"--only", name});
        }
        const auto output = folder_ / "check.txt";
        run_program(words, output);
        std::vector<std::string> blind;
        for (const auto& [name, finding] : scenario_.fails) {
            if (failure_of(name, text_of(output)).find(finding) == std::string::npos) {
                blind.push_back(format("camhost check: %s does not tell \"%s\"", name.c_str(),
                                       finding.c_str()));
            }
        }
        return blind;
    }

  private:
    std::vector<std::string> command() const {
        std::vector<std::string> words{std::filesystem::read_symlink("/proc/self/exe"),
                                       "record",
                                       "--virtual=" + (folder_ / "virtual-bus.json").string(),
                                       "--output",
                                       folder_,
                                       "--json",
                                       folder_ / "report.json"};
        add_common(words);
        const std::vector<std::string> options = record_options(scenario_.run);
        words.insert(words.end(), options.begin(), options.end());
        return words;
    }

    void add_common(std::vector<std::string>& words) const {
        if (!common_.plugin.empty()) {
            words.insert(words.end(), {"--plugin", common_.plugin});
        }
        if (!common_.virtual_bus.empty()) {
            words.insert(words.end(), {"--virtual-bus", common_.virtual_bus});
        }
    }

    const CommonOptions& common_;
    const Scenario& scenario_;
    const std::filesystem::path folder_;
};

void list(Console& console, const std::vector<Scenario>& all) {
    for (const Scenario& each : all) {
        console.line(format("%-28s %s", each.name.c_str(), each.title.c_str()));
    }
}

void show(Console& console, const Scenario& scenario) {
    console.line(scenario.name + ": " + scenario.title);
    print_paragraph(console, "In the real world", scenario.world);
    print_paragraph(console, "The plug-in", scenario.plugin);
    print_paragraph(console, "A host", scenario.host);
    console.line();
    console.line("The virtual bus's configuration");
    console.line(scenario.configuration.dump(2));
}

ExitCode run_all(Console& console, const Options& options, const std::vector<Scenario>& all) {
    std::vector<Scenario> chosen;
    for (const std::string& name : options.scenario.names) {
        chosen.push_back(find_scenario(all, name));
    }
    if (chosen.empty()) {
        chosen = all;
    }
    const TemporaryFolder temporary;
    const auto base =
        options.scenario.keep.empty() ? temporary.path() : absolute(options.scenario.keep);
    nlohmann::json report = nlohmann::json::array();
    size_t failed = 0;
    for (const Scenario& each : chosen) {
        ScenarioRunner runner(options, each, base / each.name);
        auto differences = runner.run();
        if (options.scenario.check && !each.fails.empty()) {
            const auto blind = runner.run_checks();
            differences.insert(differences.end(), blind.begin(), blind.end());
        }
        console.line((differences.empty() ? "PASS  " : "FAIL  ") + each.name);
        for (const std::string& difference : differences) {
            console.line("      " + difference);
        }
        failed += differences.empty() ? 0 : 1;
        report.push_back({{"name", each.name}, {"differences", differences}});
    }
    console.line(format("%zu passed, %zu failed", chosen.size() - failed, failed));
    if (!options.scenario.json.empty()) {
        std::ofstream(options.scenario.json) << report.dump(2) << '\n';
    }
    return failed == 0 ? ExitCode::kOk : ExitCode::kCheckFailed;
}

}  // namespace

ExitCode run_scenario(const Options& options) {
    Console console(kStandardOutput);
    const std::vector<Scenario> all = read_scenarios(scenario_folder(options.scenario));
    switch (options.scenario.action) {
        case ScenarioOptions::Action::kList:
            list(console, all);
            break;
        case ScenarioOptions::Action::kShow:
            for (const std::string& name : options.scenario.names) {
                show(console, find_scenario(all, name));
            }
            break;
        case ScenarioOptions::Action::kRun:
            return run_all(console, options, all);
    }
    return ExitCode::kOk;
}

}  // namespace camhost
