// Memory, threads and descriptors run short: each request that the plug-in makes in a whole life is
// refused once, in a process of its own. No crash, no hang, nothing left behind, and the next life
// is as if nothing had been.
#include <cstdio>
#include <map>
#include <sstream>
#include <string>

#include "tests/support/HostProgram.h"

namespace {

using test::Environment;

constexpr char kQuickCamera[] = R"({"camera": {"identity": "boot-code", "departure_ms": 1,
                                               "reenumerate_ms": 5, "paced": false}})";
/// Its restart takes as long as the threads of the bus may take on a busy machine.
constexpr char kLateCamera[] = R"({"camera": {"identity": "boot-code", "departure_ms": 100,
                                              "reenumerate_ms": 2500, "paced": false}})";

std::string LineWith(const char* words, const std::string& text) {
    const size_t at = text.find(words);
    return at == std::string::npos ? "died" : text.substr(at, text.find('\n', at) - at);
}

class WholeLife : public test::HostProgram {
  protected:
    struct Life : Outcome {
        long requests = 0;
        long blocksHeld = 0;
    };

    /// Two lives; in the first, request `nth` of `kind` is refused.
    Life Live(const std::string& kind, long nth, const char* camera = kQuickCamera) const {
        const std::string report = Folder() + "/report";
        Life life;
        static_cast<Outcome&>(life) =
            RunOnBus(camera,
                     "SCARCE_KIND=" + kind + " SCARCE_NTH=" + std::to_string(nth) +
                         " SCARCE_REPORT=" + report + " LD_PRELOAD=" + Environment("SCARCE") + ":" +
                         Environment("SHORT_TIME") + ":" +
                         Environment("LD_PRELOAD"),  // of the sandbox, where it has no mounts
                     Environment("WHOLE_LIFE") + " " + Environment("PLUGIN"));
        std::istringstream(test::ReadFile(report)) >> life.requests >> life.blocksHeld;
        return life;
    }
};

class Scarcity : public WholeLife, public ::testing::WithParamInterface<const char*> {};

/// One request in so many is tried. Of threads and descriptors there are few.
long Step(const std::string& kind) {
    const long usual = kind == "memory" ? 8 : 1;
    const std::string step = Environment("AITCAM_SCARCITY_STEP");
    return step.empty() ? usual : std::stol(step);
}

TEST_P(Scarcity, EachRequestMayFailOnce) {
    const Life whole = Live(GetParam(), 0);
    ASSERT_EQ(whole.exitStatus, 0) << whole.errors;
    ASSERT_GT(whole.requests, 0) << "the plug-in is not watched";
    const long perLife = whole.requests / 2;
    std::map<std::string, int> ends;
    for (long nth = 1; nth <= perLife; nth += Step(GetParam())) {
        const Life outcome = Live(GetParam(), nth);
        EXPECT_EQ(outcome.exitStatus, 0) << GetParam() << " " << nth << ": " << outcome.errors;
        EXPECT_LE(outcome.blocksHeld, whole.blocksHeld) << GetParam() << " " << nth;
        ++ends[LineWith("first life", outcome.errors)];
    }
    std::printf("%s: %ld requests in a life\n", GetParam(), perLife);
    for (const auto& [end, count] : ends) {
        std::printf("  %-40s %d\n", end.c_str(), count);
    }
}

/// Pauses are shortened here, and what a busy machine takes is not: neither life may fail by that.
TEST_F(WholeLife, AwaitsACameraThatRestartsSlowly) {
    const Life life = Live("threads", 0, kLateCamera);
    EXPECT_EQ(life.exitStatus, 0) << life.errors;
}

INSTANTIATE_TEST_SUITE_P(Kinds, Scarcity, ::testing::Values("memory", "threads", "descriptors"),
                         [](const auto& each) { return std::string(each.param); });

}  // namespace
