#include "tests/system/system_test.h"

#include <fstream>

#include "tests/system/program.h"
#include "tests/system/usb_tree.h"

namespace system_test {

using std::chrono::seconds;

void SystemTest::SetUp() {
    remote_.command("no-faults");
    remote_.command("unplug");
    ASSERT_TRUE(wait_until([] { return product_id() == -1; }, seconds(10)));
}

void SystemTest::power_on(const nlohmann::json& camera, const nlohmann::json& faults) {
    remote_.reset({{"camera", camera}, {"faults", faults}});
    const int wanted =
        camera.value("identity", "boot-code") == "run-time" ? kProductRunTime : kProductBootCode;
    ASSERT_TRUE(wait_until([&] { return product_id() == wanted; }, seconds(15)))
        << "the kernel has not enumerated the camera";
}

void SystemTest::power_on_running(nlohmann::json camera, const nlohmann::json& faults) {
    camera["identity"] = "run-time";
    power_on(camera, faults);
    ASSERT_TRUE(wait_until(kernel_uses_camera, seconds(30))) << "no driver has taken the camera";
}

void SystemTest::power_on_for_plugin(const nlohmann::json& faults) {
    power_on({{"boot_code", "newer"}, {"reenumerate_ms", 0}}, faults);
}

void SystemTest::report(const std::string& line) {
    std::ofstream file(results_folder() + "/report.txt", std::ios::app);
    file << line << '\n';
}

}  // namespace system_test
