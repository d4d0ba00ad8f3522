// Base of the tests on the virtual bus: a fresh camera for each test, and every complaint of the
// bus, leaks included, must have been expected by exact text and count.
#pragma once

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/support/PluginTest.h"
#include "virtcam/bus/control.h"

namespace test {

class BusTest : public PluginTest {
  protected:
    /// A camera that already runs its firmware, back quickly after a burn, in no listing.
    static nlohmann::json RunningCamera() {
        return {{"camera", {{"identity", "run-time"}, {"departure_ms", 1}, {"reenumerate_ms", 5}}}};
    }
    static nlohmann::json BootCodeCamera() {
        nlohmann::json configuration = RunningCamera();
        configuration["camera"]["identity"] = "boot-code";
        return configuration;
    }

    explicit BusTest(const nlohmann::json& configuration = RunningCamera()) {
        virtcam::bus::reset(configuration);
        // The bus keeps real time: after a burn a shortened pause must not end while the boot code
        // is still listed, or it is taken for the camera that has come back.
        clock().lengthen_while(virtcam::bus::restarting);
    }

    ~BusTest() override {
        std::vector<std::string> met;
        for (const auto& complaint : virtcam::bus::take_complaints()) {
            met.push_back(complaint.text);
        }
        for (const auto& leak : virtcam::bus::leaks()) {
            met.push_back(leak.text);
        }
        std::sort(met.begin(), met.end());
        std::sort(m_Expected.begin(), m_Expected.end());
        EXPECT_EQ(met, m_Expected) << "complaints of the bus";
        virtcam::bus::clear_faults();
        clock().lengthen_while(nullptr);
    }

    /// Says that the code under test earns this complaint, on purpose, `count` times.
    void ExpectComplaint(const std::string& text, size_t count = 1) {
        m_Expected.insert(m_Expected.end(), count, text);
    }

  private:
    std::vector<std::string> m_Expected;
};

}  // namespace test
