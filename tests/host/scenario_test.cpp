// Every scenario of virtcam/scenarios/, as `camhost scenario run` judges it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "host/base/exit_code.h"
#include "host/scenarios/judgement.h"
#include "host/scenarios/scenario.h"
#include "tests/host/subprocess.h"
#include "tests/host/temporary_folder.h"

namespace camhost::test {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

std::vector<std::string> scenario_names() {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(SCENARIOS)) {
        names.push_back(entry.path().stem());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string from_environment(const char* name) {
    const char* value = getenv(name);
    return value == nullptr ? "" : value;
}

ProcessResult run_camhost(std::vector<std::string> words, bool short_waits) {
    words.insert(words.begin(), getenv("CAMHOST"));
    std::vector<std::string> environment{"TSAN_OPTIONS=" + from_environment("TSAN_OPTIONS") +
                                         ":print_suppressions=0:suppressions=" DELIBERATE_RACES};
    if (short_waits) {
        // Behind it what a sandbox may have put there.
        environment.push_back("LD_PRELOAD=" + from_environment("PRELOAD") + ":" +
                              from_environment("LD_PRELOAD"));
    }
    return run_process(words, environment);
}

/// Whether a scenario expects at most so many pictures.
bool limits_pictures(const json& scenario) {
    const json takes = scenario.value("expect", json::object()).value("takes", json::array());
    return std::any_of(takes.begin(), takes.end(), [](const json& take) {
        const json records = take.value("main", json::object()).value("records", json());
        return records.is_array() && records.back().is_number();
    });
}

class EveryScenario : public testing::TestWithParam<std::string> {
  protected:
    /// The folder to take the scenario from. An emulated camera encodes a quarter of the pictures at
    /// best, so there the copy in `folder` records longer, where nothing speaks against it.
    static std::string scenarios(const TemporaryFolder& folder) {
        json file = json::parse(std::ifstream(std::string(SCENARIOS "/") + GetParam() + ".json"));
        if (getenv("AITCAM_EMULATOR") == nullptr || limits_pictures(file)) {
            return SCENARIOS;
        }
        constexpr double kUsualSeconds = 2, kLonger = 4;
        file["run"]["seconds"] = kLonger * file["run"].value("seconds", kUsualSeconds);
        std::ofstream(folder.path() / (GetParam() + ".json")) << file.dump();
        return folder.path();
    }
};

TEST_P(EveryScenario, EndsAsItsFileSays) {
    const TemporaryFolder folder, copy;
    const ProcessResult result = run_camhost(
        {"scenario", "--scenarios", scenarios(copy), "run", GetParam(), "--plugin",
         getenv("PLUGIN"), "--virtual-bus", getenv("VIRTUAL_BUS"), "--keep", folder.path()},
        true);
    const std::string told = result.out + result.err + folder.text_of(GetParam() + "/camhost.txt");
    if (from_environment("SANITIZE") == "thread") {
        // Pictures are too few to be counted; what is looked for is a report, status 66.
        EXPECT_THAT(told, Not(HasSubstr("exit code 66")));
        EXPECT_THAT(told, Not(HasSubstr("ThreadSanitizer")));
        return;
    }
    EXPECT_EQ(result.code, 0) << told;
}

INSTANTIATE_TEST_SUITE_P(All, EveryScenario, testing::ValuesIn(scenario_names()),
                         [](const auto& scenario) {
                             std::string name = scenario.param;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

TEST(Scenarios, AreListedAndShown) {
    const ProcessResult list = run_camhost({"scenario", "list"}, false);
    EXPECT_EQ(list.code, 0) << list.err;
    for (const std::string& name : scenario_names()) {
        EXPECT_THAT(list.out, HasSubstr(name));
    }
    const ProcessResult show = run_camhost({"scenario", "show", "payload-lost"}, false);
    EXPECT_THAT(show.out, HasSubstr("In the real world"));
    EXPECT_THAT(show.out, HasSubstr("\"lose\""));
    const ProcessResult wrong = run_camhost({"scenario", "run", "payload-list"}, false);
    EXPECT_EQ(wrong.code, 2);
    EXPECT_THAT(wrong.err, HasSubstr("did you mean 'payload-lost'?"));
}

/// Runs a copy of a scenario, its checks too, that wants these words of them.
ProcessResult run_with_words(const TemporaryFolder& folder, const std::string& name,
                             const std::string& check, const std::string& words) {
    json file = json::parse(std::ifstream(std::string(SCENARIOS "/") + name + ".json"));
    file["fails"] = {{check, words}};
    std::ofstream(folder.path() / (name + ".json")) << file.dump();
    return run_camhost({"scenario", "--scenarios", folder.path(), "run", name, "--check",
                        "--plugin", getenv("PLUGIN"), "--virtual-bus", getenv("VIRTUAL_BUS")},
                       true);
}

TEST(Scenarios, ChecksAreJudgedByTheirWords) {
    if (from_environment("SANITIZE") == "thread") {
        return;  // as above
    }
    const TemporaryFolder folder;
    const ProcessResult right =
        run_with_words(folder, "unplug-before-start", "found", "no camera is on the bus");
    EXPECT_EQ(right.code, 0) << right.out << right.err;
    const ProcessResult wrong =
        run_with_words(folder, "unplug-before-start", "found", "the lens is dirty");
    EXPECT_EQ(wrong.code, 7);
    EXPECT_THAT(wrong.out, HasSubstr("camhost check: found does not tell \"the lens is dirty\""));
}

class Judgement : public testing::Test {
  protected:
    static json good() {
        return {{"title", "t"},
                {"world", "w"},
                {"plugin", "p"},
                {"host", "h"},
                {"faults", json::array({{{"on", {{"frame", true}}}, {"do", "unplug"}}})}};
    }

    Scenario scenario(const json& expect) {
        json file = good();
        file["expect"] = expect;
        return read(file);
    }
    Scenario read(const json& file) {
        const auto path = folder_.path() / "name.json";
        std::ofstream(path) << file.dump();
        return Scenario::read(path);
    }
    std::vector<std::string> judge(const json& expect) {
        return camhost::judge(scenario(expect), evidence_);
    }

    TemporaryFolder folder_;
    Evidence evidence_{
        0,
        {{"recordings",
          {{{"end", "complete"},
            {"streams", {{"main", {{"records", 30}, {"arrival", {{"gaps", 2}}}}}}}}}}},
        {{"camera", {{"attached", true}}},
         {"bus", {{"complaints", json::array()}, {"strikes", {1}}}}},
        "a line"};
};

TEST_F(Judgement, FindsNothingWhereAllIsAsExpected) {
    EXPECT_THAT(judge(json::object()), IsEmpty());
    EXPECT_THAT(judge({{"takes",
                        {{{"end", "complete"},
                          {"main", {{"records", {20, nullptr}}, {"arrival.gaps", {nullptr, 2}}}}}}},
                       {"log", {"line"}},
                       {"camera", {{"attached", true}}},
                       {"exit", {"no-camera", "done"}}}),
                IsEmpty());
}

TEST_F(Judgement, NamesWhatDiffers) {
    EXPECT_THAT(judge({{"exit", "camera-lost"}}),
                ElementsAre("it ended with \"done\", not \"camera-lost\""));
    EXPECT_THAT(judge({{"takes", {{{"main", {{"records", {31, nullptr}}}}}}}}),
                ElementsAre("recording 1: main records is 30, not [31,null]"));
    EXPECT_THAT(judge({{"takes", json::array({json::object(), json::object()})}}),
                ElementsAre("1 recordings, not 2"));
    EXPECT_THAT(judge({{"log", {"another"}}}), ElementsAre("the plug-in's log lacks \"another\""));
    EXPECT_THAT(judge({{"camera", {{"flash.written", true}}}}),
                ElementsAre("the camera's flash.written is null, not true"));
}

TEST_F(Judgement, WantsEveryRuleToStrikeAndNoNewComplaint) {
    evidence_.status["bus"]["strikes"] = {0};
    evidence_.status["bus"]["complaints"] = {
        {{"code", "double_submit"}, {"text", "twice"}, {"expected", false}},
        {{"code", "close_with_claims"}, {"text", "known"}, {"expected", true}}};
    EXPECT_THAT(judge(json::object()),
                ElementsAre("complaint of the bus: twice",
                            "the number of strikes of rule 1 is 0, not [1,null]"));
    EXPECT_THAT(judge({{"complaints", {"double_submit"}}, {"strikes", {0}}}), IsEmpty());
    evidence_.status = nullptr;
    EXPECT_THAT(judge(json::object()), ElementsAre("the virtual bus has left no status"));
}

TEST_F(Judgement, MalformedFilesNameTheirFault) {
    for (const auto& [change, text] :
         {std::pair<json, std::string>{{{"titel", "x"}}, "unknown member \"titel\""},
          {{{"title", ""}}, "\"title\" is missing"},
          {{{"run", {{"secs", 1}}}}, "unknown member \"secs\" in \"run\""},
          {{{"run", {{"takes", 0}}}}, "1 to 10 takes"},
          {{{"expect", {{"exits", 1}}}}, "unknown member \"exits\" in \"expect\""}}) {
        json file = good();
        file.merge_patch(change);
        try {
            read(file);
            ADD_FAILURE() << change;
        } catch (const Failure& failure) {
            EXPECT_THAT(failure.what(), HasSubstr(text));
        }
    }
}

TEST_F(Judgement, SeedReachesCameraAndRulesOfChance) {
    json file = good();
    file["seed"] = 9;
    file["faults"][0]["chance"] = 0.5;
    const json configuration = read(file).configuration;
    EXPECT_EQ(configuration["camera"]["seed"], 9);
    EXPECT_EQ(configuration["faults"][0]["seed"], 9);
}

}  // namespace
}  // namespace camhost::test
