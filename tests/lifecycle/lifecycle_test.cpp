// Start and stop, create and destroy, load and unload, many times: every round delivers frames, the
// strict bus has nothing to say but what the plug-in does on purpose, and nothing is left behind.
#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "tests/support/HostProgram.h"

namespace {

using test::Environment;

size_t Count(const std::string& text, const std::string& piece) {
    size_t count = 0;
    for (size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at + 1)) {
        ++count;
    }
    return count;
}

struct Rounds {
    int loads;
    int creates;
    int starts;
};

class Lifecycle : public test::HostProgram {
  protected:
    /// Runs the host on the virtual bus; `shortened`: sleeps last a tenth.
    void Run(const Rounds& rounds, bool shortened) {
        const std::string status = Folder() + "/status.json";
        // Behind them what a sandbox may have put there.
        const std::string preload = !shortened ? ""
                                               : " LD_PRELOAD=" + SanitizerFirst() +
                                                     Environment("SHORT_TIME") + ":" +
                                                     Environment("LD_PRELOAD");
        const Outcome outcome = RunOnBus(
            R"({"camera": {"identity": "boot-code", "departure_ms": 20, "reenumerate_ms": 40}})",
            "VIRTBUS_STATUS=" + status + preload,
            Environment("PLUGIN_HOST") + " " + Environment("PLUGIN") + " " +
                std::to_string(rounds.loads) + " " + std::to_string(rounds.creates) + " " +
                std::to_string(rounds.starts) + " 3");
        EXPECT_EQ(outcome.exitStatus, 0) << outcome.errors << LastOf(outcome.log);
        EXPECT_NE(outcome.errors.find("plugin_host: done"), std::string::npos) << outcome.errors;
        ExpectCleanBus(status, static_cast<size_t>(rounds.loads * rounds.creates));
        EXPECT_EQ(outcome.errors.find("ERROR: LeakSanitizer"), std::string::npos) << outcome.errors;
    }

  private:
    /// What the plug-in logged last.
    static std::string LastOf(const std::string& log) {
        constexpr size_t kShown = 2000;
        return log.substr(log.size() - std::min(log.size(), kShown));
    }

    /// AddressSanitizer's run-time library wants to be the first one. ThreadSanitizer's must not be:
    /// its own sleep would call the shortened one, blind to the locks that are taken in there.
    static std::string SanitizerFirst() {
        const std::string kind = Environment("SANITIZE");
        if (kind.empty() || kind == "thread") {
            return "";
        }
        std::string found;
        std::stringstream listing;
        FILE* pipe = popen(("ldd " + Environment("PLUGIN_HOST")).c_str(), "r");
        char line[512];
        while (pipe != nullptr && fgets(line, sizeof line, pipe) != nullptr) {
            std::istringstream words(line);
            std::string library, arrow, path;
            words >> library >> arrow >> path;
            if (library.rfind("libasan", 0) == 0) {
                found = path + ":";
            }
        }
        if (pipe != nullptr) {
            pclose(pipe);
        }
        return found;
    }

    /// Each camera object releases its audio interfaces in its own way; nothing else is remarkable.
    static void ExpectCleanBus(const std::string& path, size_t cameras) {
        const auto status = nlohmann::json::parse(test::ReadFile(path), nullptr, false);
        ASSERT_FALSE(status.is_discarded()) << path;
        const std::string complaints = status["bus"]["complaints"].dump();
        EXPECT_EQ(status["bus"]["complaints"].size(), 2 * cameras) << complaints;
        EXPECT_EQ(Count(complaints, "libusb_release_interface: interface 1 was not claimed"),
                  cameras);
        EXPECT_EQ(Count(complaints, "libusb_close: claimed and not released: interface 2, 3"),
                  cameras);
        EXPECT_TRUE(status["bus"]["leaks"].empty()) << status["bus"]["leaks"].dump();
    }
};

TEST_F(Lifecycle, FiftyStartsAndStops) {
    Run({1, 1, 50}, true);
}

TEST_F(Lifecycle, TwentyCamerasWithThePowerCycledBetween) {
    Run({1, 20, 1}, true);
}

TEST_F(Lifecycle, TwentyLoadsAndUnloads) {
    Run({20, 1, 1}, true);
}

TEST_F(Lifecycle, ThreeRoundsInRealTime) {
    Run({1, 1, 3}, false);
}

}  // namespace
