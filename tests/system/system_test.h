// What every scenario starts from: a camera that was switched on for it.
#pragma once

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/system/remote_camera.h"

namespace system_test {

class SystemTest : public ::testing::Test {
  protected:
    /// Forgets what the last scenario left: the camera is off the bus.
    void SetUp() override;

    /// Switches a new camera on and waits until the kernel has enumerated it. `camera` holds
    /// members of the model's configuration; rules strike from its first request on.
    void power_on(const nlohmann::json& camera,
                  const nlohmann::json& faults = nlohmann::json::array());
    /// One that needs no firmware, held by the kernel's drivers when this returns.
    void power_on_running(nlohmann::json camera = nlohmann::json::object(),
                          const nlohmann::json& faults = nlohmann::json::array());
    /// One that PluginCamera::init() brings up soonest: it waits for its firmware, as every camera
    /// does that was without power, and leaves the bus for a moment only.
    void power_on_for_plugin(const nlohmann::json& faults = nlohmann::json::array());
    /// Writes a line into the report that is brought back.
    static void report(const std::string& line);

    RemoteCamera remote_;
};

}  // namespace system_test
