// Memory, threads and descriptors run short: each request that the plug-in makes in a whole life is
// refused once, in a process of its own. No crash, no hang, nothing left behind, and the next life
// is as if nothing had been.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <map>
#include <sstream>
#include <string>

namespace {

std::string Environment(const char* name) {
    const char* value = getenv(name);
    return value != nullptr ? value : "";
}

std::string ReadAll(const std::string& path) {
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

std::string LineWith(const char* words, const std::string& text) {
    const size_t at = text.find(words);
    return at == std::string::npos ? "died" : text.substr(at, text.find('\n', at) - at);
}

struct Outcome {
    int exitStatus = -1;  ///< 124: took too long; above 128: died of that signal
    long requests = 0;
    long blocksHeld = 0;
    std::string said;
};

class Scarcity : public ::testing::TestWithParam<const char*> {
  protected:
    void SetUp() override {
        folder_ = "/tmp/scarcity." + std::to_string(getpid());
        ASSERT_EQ(system(("mkdir -p " + folder_).c_str()), 0);
        std::ofstream(folder_ + "/bus.json")
            << R"({"camera": {"identity": "boot-code", "departure_ms": 1, "reenumerate_ms": 5,
                              "paced": false}})";
    }
    void TearDown() override { EXPECT_EQ(system(("rm -r " + folder_).c_str()), 0); }

    /// Two lives; in the first, request `nth` of `kind` is refused.
    Outcome Live(const std::string& kind, long nth) const {
        const std::string report = folder_ + "/report", errors = folder_ + "/errors";
        const std::string command =
            "env VIRTBUS_CONFIG=" + folder_ + "/bus.json SCARCE_KIND=" + kind +
            " SCARCE_NTH=" + std::to_string(nth) + " SCARCE_REPORT=" + report +
            " LD_LIBRARY_PATH=" + Environment("VIRTUAL_BUS") +
            " LD_PRELOAD=" + Environment("SCARCE") + ":" + Environment("SHORT_TIME") + ":" +
            Environment("LD_PRELOAD") +  // of the sandbox, where it has no mounts
            " timeout -s KILL 60 " + Environment("WHOLE_LIFE") + " " + Environment("PLUGIN") +
            " >" + folder_ + "/out 2>" + errors;
        const int result = system(command.c_str());
        Outcome outcome;
        outcome.exitStatus = WIFEXITED(result) ? WEXITSTATUS(result) : 128 + WTERMSIG(result);
        std::ifstream(report) >> outcome.requests >> outcome.blocksHeld;
        outcome.said = ReadAll(errors);
        return outcome;
    }

  private:
    std::string folder_;
};

/// One request in so many is tried.
long Step() {
    constexpr long kShort = 8;
    const std::string step = Environment("AITCAM_SCARCITY_STEP");
    return step.empty() ? kShort : std::stol(step);
}

TEST_P(Scarcity, EachRequestMayFailOnce) {
    const Outcome whole = Live(GetParam(), 0);
    ASSERT_EQ(whole.exitStatus, 0) << whole.said;
    ASSERT_GT(whole.requests, 0) << "the plug-in is not watched";
    const long perLife = whole.requests / 2;
    std::map<std::string, int> ends;
    for (long nth = 1; nth <= perLife; nth += Step()) {
        const Outcome outcome = Live(GetParam(), nth);
        EXPECT_EQ(outcome.exitStatus, 0) << GetParam() << " " << nth << ": " << outcome.said;
        EXPECT_LE(outcome.blocksHeld, whole.blocksHeld) << GetParam() << " " << nth;
        ++ends[LineWith("first life", outcome.said)];
    }
    std::printf("%s: %ld requests in a life\n", GetParam(), perLife);
    for (const auto& [end, count] : ends) {
        std::printf("  %-40s %d\n", end.c_str(), count);
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, Scarcity, ::testing::Values("memory", "threads", "descriptors"),
                         [](const auto& each) { return std::string(each.param); });

}  // namespace
