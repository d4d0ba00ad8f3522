// The configuration of the virtual camera's bus: what is taken, and what is said of the rest.
#include "virtcam/line/config.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace virtcam::line::test {
namespace {

using nlohmann::json;

std::string objection(const json& configuration) {
    try {
        Config::from_json(configuration);
        return "";
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
}

TEST(Configuration, EachMemberIsTaken) {
    const Config config = Config::from_json(json::parse(R"({
        "camera": {"identity": "run-time"},
        "bus": {"listing": "/tmp/listing", "kernel_drivers": "standard", "present": false,
                "iso_paced": false, "quiet": true, "expected_complaints": ["leak"],
                "other_devices": [{"vendor": "0x46D", "product": 2085, "name": "Mouse"},
                                  {"vendor": 0, "product": 65535}]},
        "faults": [{"on": {"frame": true}, "do": "lose"}],
        "events": [{"on": {"time_ms": 1}, "do": "unplug"}]})"));
    EXPECT_EQ(config.listing, "/tmp/listing");
    EXPECT_TRUE(config.kernel_drivers);
    EXPECT_FALSE(config.present);
    EXPECT_FALSE(config.iso_paced);
    EXPECT_TRUE(config.quiet);
    EXPECT_EQ(json(config.expected_complaints), json({"leak"}));
    ASSERT_EQ(config.other_devices.size(), 2U);
    EXPECT_EQ(config.other_devices[0].vendor_id, 0x46D);
    EXPECT_EQ(config.other_devices[0].product_id, 2085);
    EXPECT_EQ(config.other_devices[0].name, "Mouse");
    EXPECT_EQ(config.other_devices[1].product_id, 65535);
    EXPECT_EQ(config.other_devices[1].name, "Device");
    ASSERT_EQ(config.rules.size(), 2U);
    EXPECT_EQ(config.rules[0]["do"], "lose");
    EXPECT_EQ(config.rules[1]["do"], "unplug");
}

TEST(Configuration, NothingIsTheUsualOne) {
    const Config config = Config::from_json(nullptr);
    EXPECT_TRUE(config.present);
    EXPECT_TRUE(config.rules.empty());
    EXPECT_TRUE(config.other_devices.empty());
    EXPECT_FALSE(Config::from_json({{"bus", {{"kernel_drivers", "none"}}}}).kernel_drivers);
}

TEST(Configuration, RefusalSaysWhatIsWrong) {
    const std::vector<std::pair<const char*, const char*>> cases{
        {R"(5)", "the configuration must be an object"},
        {R"({"cameras": {}})", R"(unknown member "cameras" in the configuration)"},
        {R"({"bus": []})", R"("bus" must be an object)"},
        {R"({"bus": {"speed": 1}})", R"(unknown member "speed" in "bus")"},
        {R"({"bus": {"kernel_drivers": "all"}})",
         R"("kernel_drivers" must be "none" or "standard")"},
        {R"({"bus": {"other_devices": [1]}})", R"("other_devices" must be an object)"},
        {R"({"bus": {"other_devices": [{"id": 1}]}})", R"(unknown member "id" in "other_devices")"},
        {R"({"bus": {"other_devices": [{"vendor": 65536, "product": 1}]}})",
         R"("vendor" must lie in 0 to 0xFFFF)"},
        {R"({"bus": {"other_devices": [{"vendor": 1, "product": -1}]}})",
         R"("product" must lie in 0 to 0xFFFF)"},
        {R"({"bus": {"other_devices": [{"vendor": "12x", "product": 1}]}})",
         R"("vendor" is not a number: "12x")"},
        {R"({"bus": {"other_devices": [{"vendor": "", "product": 1}]}})",
         R"("vendor" is not a number: "")"},
        {R"({"bus": {"other_devices": [{"vendor": "99999999999999999999", "product": 1}]}})",
         R"("vendor" is not a number: "99999999999999999999")"},
        {R"({"faults": {}})", R"("faults" must be a list)"},
        {R"({"events": 7})", R"("events" must be a list)"},
    };
    for (const auto& [configuration, text] : cases) {
        EXPECT_EQ(objection(json::parse(configuration)), text) << configuration;
    }
}

TEST(Configuration, FileThatCannotBeUsedIsNamed) {
    const auto of_file = [](const std::string& path) -> std::string {
        try {
            Config::from_file(path);
            return "";
        } catch (const std::invalid_argument& error) {
            return error.what();
        }
    };
    EXPECT_EQ(of_file(""), "");
    EXPECT_EQ(of_file("/nonexistent.json"), R"(cannot read "/nonexistent.json")");
    const std::string path = testing::TempDir() + "config_test.json";
    std::ofstream(path) << "{";
    EXPECT_EQ(of_file(path), '"' + path + "\" is not JSON");
    std::filesystem::remove(path);
}

}  // namespace
}  // namespace virtcam::line::test
