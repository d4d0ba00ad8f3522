#include "host/scenarios/judgement.h"

#include <algorithm>
#include <array>

#include "host/base/text.h"

namespace camhost {

namespace {

using nlohmann::json;

struct Ending {
    const char* name;
    ExitCode code;
};

constexpr std::array<Ending, 6> kEndings{{{"done", ExitCode::kOk},
                                          {"failed", ExitCode::kFailed},
                                          {"no-camera", ExitCode::kNoCamera},
                                          {"camera-lost", ExitCode::kCameraLost},
                                          {"no-frames", ExitCode::kNoFrames},
                                          {"refused", ExitCode::kRefused}}};

std::string ending_name(int code) {
    for (const Ending& each : kEndings) {
        if (static_cast<int>(each.code) == code) {
            return each.name;
        }
    }
    return "exit code " + std::to_string(code);
}

/// Null when the path leads nowhere.
json at_path(const json& object, const std::string& path) {
    const json* here = &object;
    for (const std::string& name : split(path, '.')) {
        if (!here->is_object() || !here->contains(name)) {
            return nullptr;
        }
        here = &(*here)[name];
    }
    return *here;
}

/// True when `value` is what is wanted: equal, or a number within [least, most].
bool fits(const json& value, const json& wanted) {
    if (!wanted.is_array() || wanted.size() != 2 || value.is_array()) {
        return value == wanted;
    }
    return value.is_number() && (wanted[0].is_null() || value >= wanted[0]) &&
           (wanted[1].is_null() || value <= wanted[1]);
}

class Judge {
  public:
    Judge(const Scenario& scenario, const Evidence& evidence)
        : expect_(scenario.expect), rules_(scenario.configuration["faults"]), evidence_(evidence) {}

    std::vector<std::string> run() {
        judge_exit();
        judge_takes();
        judge_log();
        const json camera = expect_.value("camera", json::object());
        for (const auto& [path, wanted] : camera.items()) {
            compare("the camera's " + path, at_path(evidence_.status["camera"], path), wanted);
        }
        judge_bus();
        return std::move(found_);
    }

  private:
    void compare(const std::string& what, const json& value, const json& wanted) {
        if (!fits(value, wanted)) {
            found_.push_back(what + " is " + value.dump() + ", not " + wanted.dump());
        }
    }

    void judge_exit() {
        const json wanted = expect_.value("exit", json("done"));
        const json name = ending_name(evidence_.exit_code);
        const bool right = wanted.is_array()
                               ? std::find(wanted.begin(), wanted.end(), name) != wanted.end()
                               : name == wanted;
        if (!right) {
            found_.push_back("it ended with " + name.dump() + ", not " + wanted.dump());
        }
    }

    void judge_takes() {
        const json wanted = expect_.value("takes", json::array());
        const json takes = evidence_.report.is_object()
                               ? evidence_.report.value("recordings", json::array())
                               : json::array();
        if (takes.size() < wanted.size()) {
            found_.push_back(format("%zu recordings, not %zu", takes.size(), wanted.size()));
            return;
        }
        for (size_t i = 0; i < wanted.size(); ++i) {
            judge_take(i + 1, takes[i], wanted[i]);
        }
    }

    void judge_take(size_t number, const json& take, const json& wanted) {
        const std::string where = format("recording %zu: ", number);
        for (const auto& [stream, figures] : wanted.items()) {
            if (stream == "end") {
                compare(where + "end", take["end"], figures);
                continue;
            }
            for (const auto& [path, value] : figures.items()) {
                compare(format("%s%s %s", where.c_str(), stream.c_str(), path.c_str()),
                        at_path(take.value("streams", json::object()),
                                format("%s.%s", stream.c_str(), path.c_str())),
                        value);
            }
        }
    }

    void judge_log() {
        for (const std::string text : expect_.value("log", json::array())) {
            if (evidence_.log.find(text) == std::string::npos) {
                found_.push_back("the plug-in's log lacks \"" + text + "\"");
            }
        }
    }

    void judge_bus() {
        if (!evidence_.status.is_object()) {
            found_.emplace_back("the virtual bus has left no status");
            return;
        }
        const json& bus = evidence_.status["bus"];
        const json allowed = expect_.value("complaints", json::array());
        for (const json& complaint : bus["complaints"]) {
            const bool known =
                complaint["expected"].get<bool>() ||
                std::find(allowed.begin(), allowed.end(), complaint["code"]) != allowed.end();
            if (!known) {
                found_.push_back("complaint of the bus: " + complaint["text"].get<std::string>());
            }
        }
        const json wanted = expect_.value("strikes", json::array());
        for (size_t i = 0; i < rules_.size(); ++i) {
            const json least = i < wanted.size() ? wanted[i] : json::array({1, nullptr});
            compare(format("the number of strikes of rule %zu", i + 1), bus["strikes"].at(i),
                    least);
        }
    }

    const json& expect_;
    const json& rules_;
    const Evidence& evidence_;
    std::vector<std::string> found_;
};

}  // namespace

std::vector<std::string> judge(const Scenario& scenario, const Evidence& evidence) {
    try {
        return Judge(scenario, evidence).run();
    } catch (const json::exception& error) {
        throw Failure(ExitCode::kUsage, scenario.name + ": \"expect\": " + error.what());
    }
}

}  // namespace camhost
