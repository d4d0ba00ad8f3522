// Runs a program that loads the shipped plug-in (LoadedPlugin.h) on the virtual bus, and keeps what it
// leaves: for tests that judge such a program from outside. What they need of the build comes by the
// environment (CMakeLists.txt).
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "tests/support/TvFiles.h"

namespace test {

inline std::string Environment(const char* name) {
    const char* value = getenv(name);
    return value != nullptr ? value : "";
}

class HostProgram : public ::testing::Test {
  protected:
    struct Outcome {
        int exitStatus = -1;  ///< above 128: died of that signal, 137 after five minutes
        std::string errors;   ///< what it said on standard error
        std::string log;      ///< of the plug-in
    };

    void SetUp() override {
        folder_ = "/tmp/host-program." + std::to_string(getpid());
        ASSERT_EQ(system(("mkdir -p " + folder_).c_str()), 0);
    }
    void TearDown() override { EXPECT_EQ(system(("rm -r " + folder_).c_str()), 0); }

    /// The test's own folder, /tmp/...: gone with the test.
    const std::string& Folder() const { return folder_; }
    /// `configuration` of the bus; `environment` in front: NAME=value ...
    Outcome RunOnBus(const std::string& configuration, const std::string& environment,
                     const std::string& command) const {
        WriteFile(folder_ + "/bus.json", configuration);
        const int result =
            system(("exec timeout -s KILL 300 env VIRTBUS_CONFIG=" + folder_ +
                    "/bus.json LD_LIBRARY_PATH=" + Environment("VIRTUAL_BUS") + " " + environment +
                    " " + command + " >" + folder_ + "/out 2>" + folder_ + "/errors")
                       .c_str());
        Outcome outcome;
        outcome.exitStatus = WIFEXITED(result) ? WEXITSTATUS(result) : 128 + WTERMSIG(result);
        outcome.errors = ReadFile(folder_ + "/errors");
        outcome.log = ReadFile(folder_ + "/out");
        return outcome;
    }

  private:
    std::string folder_;
};

}  // namespace test
