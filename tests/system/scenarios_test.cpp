// Scenarios of virtcam/scenarios/ over a real wire, recorded by camhost and judged as `camhost
// scenario run` judges them on the virtual bus.
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "host/scenarios/judgement.h"
#include "host/scenarios/scenario.h"
#include "tests/system/program.h"
#include "tests/system/system_test.h"

namespace system_test {
namespace {

using nlohmann::json;

constexpr int kRecordSeconds = 90;

std::string text_of(const std::string& file) {
    std::ifstream stream(file);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

class OverTheWire : public SystemTest {
  protected:
    /// The rules come into force when the kernel's drivers have had their look at the camera.
    void play(const std::string& name) {
        const auto scenario =
            camhost::Scenario::read(results_folder() + "/virtcam-scenarios/" + name + ".json");
        power_on_running(scenario.configuration["camera"]);
        remote_.command("fault " + scenario.configuration["faults"].dump());
        const std::string folder = results_folder() + "/scenarios-recorded/" + name;
        std::filesystem::create_directories(folder);
        std::string command = "camhost record --plugin $CAMERA_PLUGIN --output " + folder +
                              " --json " + folder + "/report.json --log " + folder + "/plugin.log";
        for (const std::string& word : camhost::record_options(scenario.run)) {
            command += " " + word;
        }
        const ProgramResult run = run_program(command, kRecordSeconds);
        camhost::Evidence evidence;
        evidence.exit_code = run.exit_code;
        evidence.report = json::parse(text_of(folder + "/report.json"), nullptr, false);
        evidence.status = {
            {"camera", remote_.status()},
            {"bus", {{"complaints", json::array()}, {"strikes", remote_.strikes()}}}};
        evidence.log = text_of(folder + "/plugin.log");
        EXPECT_THAT(camhost::judge(scenario, evidence), testing::IsEmpty()) << run.output;
    }
};

TEST_F(OverTheWire, PayloadLost) {
    play("payload-lost");
}

TEST_F(OverTheWire, FrameIdStuck) {
    play("frame-id-stuck");
}

TEST_F(OverTheWire, SequenceGap) {
    play("sequence-gap");
}

TEST_F(OverTheWire, StallWhileStreaming) {
    play("stall-while-streaming");
}

TEST_F(OverTheWire, SoundStops) {
    play("sound-stops");
}

TEST_F(OverTheWire, UnplugWhileStreaming) {
    play("unplug-while-streaming");
}

}  // namespace
}  // namespace system_test
