// camhost check on cameras with a fault each: the check that should find it does and says what is
// wrong, and the others that can pass do.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "host/scenarios/scenario.h"
#include "tests/host/subprocess.h"
#include "tests/host/temporary_folder.h"

namespace camhost::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;
using Names = std::set<std::string>;

constexpr int kOk = 0;
constexpr int kCheckFailed = 7;

/// AITCAM_WHOLE_CHECK asks for every check; otherwise a few stand for those that should pass.
bool whole_check() {
    return getenv("AITCAM_WHOLE_CHECK") != nullptr;
}

Names some_checks(const Names& besides) {
    Names names{"audio-level", "key-frame", "pan-tilt-zoom", "time-stamps"};
    names.insert(besides.begin(), besides.end());
    return names;
}

/// Runs a command of camhost on a virtual camera.
ProcessResult camera_command(const std::vector<std::string>& words,
                             const std::string& configuration) {
    std::vector<std::string> command{getenv("CAMHOST")};
    command.insert(command.end(), words.begin(), words.end());
    command.insert(command.end(), {"--virtual=" + configuration, "--plugin", getenv("PLUGIN"),
                                   "--virtual-bus", getenv("VIRTUAL_BUS")});
    std::string preload = std::string("LD_PRELOAD=") + getenv("PRELOAD");
    if (const char* sandbox = getenv("LD_PRELOAD"); sandbox != nullptr) {
        preload += std::string(":") + sandbox;
    }
    return run_process(command, {preload}, {}, false, std::chrono::seconds(180));
}

/// camhost check; `only` empty: all of it.
ProcessResult check_camera(const std::string& configuration, const Names& only) {
    std::vector<std::string> words{"check"};
    for (const std::string& name : only) {
        words.insert(words.end(), {"--only", name});
    }
    return camera_command(words, configuration);
}

ProcessResult check(const std::string& faults, const Names& only) {
    return check_camera(R"({"camera": {"identity": "run-time"}, "faults": [)" + faults + "]}",
                        only);
}

Names with_verdict(const std::string& verdict, const std::string& output) {
    const std::regex line("(^|\n)" + verdict + "  (\\S+)");
    Names names;
    for (std::sregex_iterator at(output.begin(), output.end(), line), end; at != end; ++at) {
        names.insert((*at)[2]);
    }
    return names;
}

/// What fails although it may not. Each has more tries: of a camera that gets no processor time,
/// pictures and sound are late.
Names wrongly_failed(const std::string& faults, Names failed, const Names& allowed) {
    constexpr int kTries = 3;
    const auto without_allowed = [&](const Names& names) {
        Names rest;
        std::set_difference(names.begin(), names.end(), allowed.begin(), allowed.end(),
                            std::inserter(rest, rest.end()));
        return rest;
    };
    failed = without_allowed(failed);
    for (int i = 0; i < kTries && !failed.empty(); ++i) {
        failed = without_allowed(with_verdict("FAIL", check(faults, failed).out));
    }
    return failed;
}

struct Defect {
    std::string name;
    std::string faults;  ///< of the virtual bus: rules
    Names fails;         ///< checks that find it
    Names may_fail;      ///< and what it does harm to besides
};

void PrintTo(const Defect& defect, std::ostream* stream) {
    *stream << defect.name;
}

/// The camera acknowledges a command of the ISP group and does nothing.
std::string ignored(const std::string& opcode) {
    return R"({"on": {"control": {"type": "0x21", "value": "0x0100", "index": "0x0600", "data": ")" +
           opcode + R"("}}, "do": {"return": 8}})";
}

std::vector<Defect> defects() {
    return {
        {"BitRateStays", ignored("08"), {"bit-rate"}, {}},
        {"FrameRateStays", ignored("02"), {"frame-rate"}, {}},
        {"KeyFramesDoNotComeOnRequest", ignored("04"), {"key-frame"}, {}},
        {"SoundHasHalfItsSamples",
         R"({"on": {"transfer": "iso"}, "do": {"short": 320}})",
         {"audio-rate"},
         {}},
        {"StillsDoNotCome",
         R"({"on": {"sub_stream": "jpeg"}, "do": {"fields": {"type": 119}}})",
         {"stills"},
         {"combination:h264-gray-si", "combination:h264-mjpeg"}},
        {"PanIsStuck",
         R"({"on": {"control": {"type": "0xa1", "request": "0x81", "value": "0x0d00"}},
             "do": {"overwrite": {"bytes": "0000000000000000"}}})",
         {"pan-tilt-zoom"},
         {}},
        {"PicturesHangNowAndThen",
         R"({"on": {"transfer": "bulk"}, "every": 150, "do": {"late_ms": 700}})",
         {"time-stamps"},
         {"picture-rate", "key-frame", "frame-rate", "bit-rate"}},
    };
}

class SeededDefect : public testing::TestWithParam<Defect> {};

TEST_P(SeededDefect, IsFoundByTheRightCheckAlone) {
    const ProcessResult result =
        check(GetParam().faults, whole_check() ? Names{} : some_checks(GetParam().fails));
    EXPECT_EQ(result.code, kCheckFailed) << result.out << result.err;
    const Names failed = with_verdict("FAIL", result.out);
    EXPECT_THAT(failed, IsSupersetOf(GetParam().fails)) << result.out;
    Names allowed = GetParam().fails;
    allowed.insert(GetParam().may_fail.begin(), GetParam().may_fail.end());
    EXPECT_EQ(wrongly_failed(GetParam().faults, failed, allowed), Names()) << result.out;
}

INSTANTIATE_TEST_SUITE_P(All, SeededDefect, testing::ValuesIn(defects()),
                         [](const auto& defect) { return defect.param.name; });

/// Scenarios whose files say in which words camhost check names them.
std::vector<Scenario> named_scenarios() {
    std::vector<Scenario> all = read_scenarios(SCENARIOS);
    all.erase(std::remove_if(all.begin(), all.end(),
                             [](const Scenario& each) { return each.fails.empty(); }),
              all.end());
    return all;
}

/// What the checks should have said and did not.
std::vector<std::string> unsaid(const Scenario& scenario, const std::string& output) {
    std::vector<std::string> missing;
    for (const auto& [name, words] : scenario.fails) {
        const size_t line = output.find("FAIL  " + name + " ");
        const size_t found = output.find(words, line);
        if (line == std::string::npos || found > output.find('\n', line)) {
            missing.push_back(name + ": " + words);
        }
    }
    return missing;
}

class NamedFault : public testing::TestWithParam<Scenario> {};

TEST_P(NamedFault, IsNamedByTheRightCheck) {
    // A camera that gets no processor time may not come to its fault in the seconds of a check.
    constexpr int kTries = 5;
    Names names;
    for (const auto& [name, words] : GetParam().fails) {
        names.insert(name);
    }
    ProcessResult result;
    std::vector<std::string> missing;
    for (int i = 0; i == 0 || (i < kTries && !missing.empty()); ++i) {
        result = check_camera(GetParam().configuration.dump(), names);
        missing = unsaid(GetParam(), result.out);
    }
    EXPECT_THAT(missing, IsEmpty()) << result.out << result.err;
    EXPECT_NE(result.code, kOk);
}

INSTANTIATE_TEST_SUITE_P(All, NamedFault, testing::ValuesIn(named_scenarios()),
                         [](const auto& scenario) {
                             std::string name = scenario.param.name;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

TEST(NamedFaults, AreOfManyKinds) {
    Names sentences;
    for (const Scenario& each : named_scenarios()) {
        for (const auto& [name, words] : each.fails) {
            EXPECT_GT(words.size(), 10U) << each.name;
            sentences.insert(words);
        }
    }
    EXPECT_GE(sentences.size(), 15U);
}

TEST(SoundCamera, PassesEveryCheck) {
    const Names rates{"audio-rate",   "bit-rate", "frame-rate", "frames",
                      "picture-rate", "sequence", "stills",     "transfers"};
    const ProcessResult result = check("", whole_check() ? Names{} : some_checks(rates));
    EXPECT_TRUE(result.code == kOk || result.code == kCheckFailed) << result.out << result.err;
    const Names failed = with_verdict("FAIL", result.out);
    EXPECT_EQ(wrongly_failed("", failed, {}), Names()) << result.out;
    Names judged = with_verdict("PASS", result.out);
    judged.insert(failed.begin(), failed.end());
    EXPECT_THAT(judged, IsSupersetOf(some_checks(rates)));
    EXPECT_EQ(with_verdict("SKIP", result.out), whole_check() ? Names{"unplug"} : Names{});
}

TEST(SoundCamera, HasItsLogLevelBackAfterTheCheck) {
    // In a file of the sandbox's flash, which its runs share.
    const auto level = [] {
        const std::string out =
            camera_command({"get", "debug-level"}, R"({"camera": {"identity": "run-time"}})").out;
        return out.substr(std::min(out.find("debug-level = "), out.size()));
    };
    const std::string before = level();
    ASSERT_THAT(before, HasSubstr("debug-level = "));
    ASSERT_THAT(before, Not(HasSubstr("debug-level = 4")));
    const ProcessResult result = check("", {"audio-level"});
    EXPECT_THAT(result.out, HasSubstr("audio-level"));
    EXPECT_EQ(level(), before);
}

}  // namespace
}  // namespace camhost::test
