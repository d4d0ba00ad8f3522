// camhost, the plug-in as it is shipped, and the virtual bus, together.
//
// The plug-in's waits are shortened by a preloaded library: what is tested is how each start and
// each loss is told.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <wels/codec_api.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <regex>

#include "tests/host/subprocess.h"
#include "tests/host/temporary_folder.h"

namespace camhost::test {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

constexpr int kOk = 0;
constexpr int kNoCamera = 3;
constexpr int kCameraLost = 4;

class VirtualCamera : public testing::Test {
  protected:
    ProcessResult run(const std::vector<std::string>& words,
                      const std::vector<Interaction>& interactions = {},
                      bool terminal = false) const {
        std::vector<std::string> command{getenv("CAMHOST"), words.front(),   "--plugin",
                                         getenv("PLUGIN"),  "--virtual-bus", getenv("VIRTUAL_BUS")};
        command.insert(command.end(), words.begin() + 1, words.end());
        const std::string state = folder_.path() / "state";
        std::vector<std::string> environment{"LD_PRELOAD=" + preload_, "TERM=dumb",
                                             "XDG_STATE_HOME=" + state};
        if (const char* sandbox = getenv("LD_PRELOAD"); sandbox != nullptr) {
            environment[0] += std::string(":") + sandbox;
        }
        if (broken_encoder_) {
            environment[0] += std::string(":") + getenv("BROKEN");
            environment.push_back("BROKEN_ENCODER=yes");
        }
        return run_process(command, environment, interactions, terminal);
    }

    ProcessResult record(const std::string& camera, const std::string& duration) const {
        return run({"record", "--virtual=" + camera, "--duration", duration, "--output",
                    folder_.path() / "out"});
    }

    TemporaryFolder folder_;
    const std::string preload_ = getenv("PRELOAD");
    bool broken_encoder_ = false;
};

class UsablePreset : public VirtualCamera, public testing::WithParamInterface<const char*> {};

TEST_P(UsablePreset, IsBroughtUpAndRecords) {
    const ProcessResult result = record(GetParam(), "3s");  // the first picture takes its time
    EXPECT_EQ(result.code, kOk) << result.out << result.err;
    EXPECT_THAT(result.out, HasSubstr("the camera is usable (Init reported true after"));
    EXPECT_GT(folder_.text_of("out/main.h264").size(), 0U);
    EXPECT_GT(folder_.text_of("out/audio.wav").size(), 44U) << "more than a header";
}

TEST_F(VirtualCamera, DownloadIsToldInBytesAndPerCent) {
    const ProcessResult newer = record("boot", "300ms");
    EXPECT_THAT(newer.out, ContainsRegex("firmware: [0-9]+ of [0-9]+ bytes sent \\(100 %\\)"));
    const ProcessResult older = record("old-boot", "300ms");
    EXPECT_THAT(older.out, ContainsRegex("firmware: [0-9]+ bytes sent\n")) << "size not announced";
    EXPECT_THAT(record("running", "300ms").out, Not(HasSubstr("firmware:")));
}

INSTANTIATE_TEST_SUITE_P(Presets, UsablePreset, testing::Values("boot", "running", "old-boot"));

class UnusablePreset : public VirtualCamera, public testing::WithParamInterface<const char*> {};

TEST_P(UnusablePreset, IsToldWithTheCallbacksValue) {
    const ProcessResult result = record(GetParam(), "500ms");
    EXPECT_EQ(result.code, kNoCamera) << result.out << result.err;
    EXPECT_THAT(result.err, HasSubstr("Init reported false, it is disconnected"));
    EXPECT_THAT(result.out, Not(HasSubstr("the camera is usable")));
}

INSTANTIATE_TEST_SUITE_P(Presets, UnusablePreset, testing::Values("missing", "never-returns"));

TEST_F(VirtualCamera, EncoderThatCannotBeUsedIsNamedOnTheTerminal) {
    broken_encoder_ = true;
    const ProcessResult result = record("running", "1s");
    const OpenH264Version version = WelsGetCodecVersion();
    EXPECT_THAT(result.err, HasSubstr("virtbus: the camera cannot make pictures: H.264 encoder "
                                      "(OpenH264 " +
                                      std::to_string(version.uMajor) + "." +
                                      std::to_string(version.uMinor) + "."));
    EXPECT_FALSE(std::filesystem::exists(folder_.path() / "out/main.h264")) << result.out;
}

TEST_F(VirtualCamera, UnpluggedWhileRecordingIsToldAndWhatCameIsKept) {
    const ProcessResult result = record("unplug-at-1s", "20s");
    EXPECT_EQ(result.code, kCameraLost) << result.out << result.err;
    EXPECT_THAT(result.out,
                HasSubstr("the camera went away while recording: Init's callback reported false; "
                          "it is disconnected"));
    EXPECT_GT(folder_.text_of("out/main.h264").size(), 0U);
}

TEST_F(VirtualCamera, UnpluggedWhileTheShellIsIdleEndsIt) {
    // Long enough after the start for the prompt to be there, on a slow machine too.
    const ProcessResult result = run({"shell", R"(--virtual={"camera": {"identity": "run-time"},
                         "events": [{"on": {"time_ms": 4000}, "do": "unplug"}]})"},
                                     {{"camhost> ", 0, "state\n"}}, true);
    EXPECT_EQ(result.code, kCameraLost) << result.out << result.err;
    EXPECT_THAT(result.out, HasSubstr("the camera is ready"));
    EXPECT_THAT(result.err, HasSubstr("the camera went away: Init's callback reported false; it is "
                                      "disconnected"));
}

TEST_F(VirtualCamera, TraceShowsTheRequestsOfASetBeforeTheCameraIsPutAway) {
    const ProcessResult result = run({"set", "--virtual=running", "--trace-usb", "mirror=on"});
    EXPECT_EQ(result.code, kOk) << result.err;
    const size_t usable = result.out.find("the camera is usable");
    const size_t told = result.out.find("mirror=on: sent");
    const size_t request = result.out.find("MMP 0x02/0x02 set video option 0x00000001");
    ASSERT_NE(told, std::string::npos) << result.out;
    ASSERT_NE(request, std::string::npos) << result.out;
    EXPECT_LT(result.out.find("SET_CONFIGURATION 1"), usable) << "requests of the start";
    EXPECT_LT(usable, told);
    EXPECT_LT(told, request);
}

TEST_F(VirtualCamera, TraceShowsAChangeWhileRecordingAtItsTime) {
    const ProcessResult result =
        run({"record", "--virtual=running", "--trace-usb", "--duration", "1s", "--set",
             "mirror=on@100ms", "--set", "flip=on@600ms", "--output", folder_.path() / "out"});
    EXPECT_EQ(result.code, kOk) << result.err;
    const size_t mirror = result.out.find("set video option 0x00000001");
    ASSERT_NE(mirror, std::string::npos) << result.out;
    EXPECT_LT(result.out.find("mirror=on: sent"), mirror);
    EXPECT_LT(mirror, result.out.find("flip=on: sent")) << "printed before the next change";
    EXPECT_THAT(result.out, HasSubstr("set video option 0x00000003"));
}

TEST_F(VirtualCamera, CaptureOpensInWiresharkWithItsRequestsNamed) {
    const std::string file = folder_.path() / "camera.pcap";
    const ProcessResult result = run({"trace", "--virtual=running", "--pcap", file, "--payloads",
                                      "--signal", "h264-gray", "--duration", "1s"});
    EXPECT_EQ(result.code, kOk) << result.out << result.err;
    EXPECT_THAT(result.out, HasSubstr("UVC COMMIT SET_CUR format 4 frame 1"));
    EXPECT_THAT(result.out, HasSubstr(" ms | MMP 0x01/0x01 stream combination 1")) << "no duration";
    EXPECT_EQ(output_of({"tshark", "-r", file, "-Y", "_ws.malformed"}), "");
    const std::string requests = output_of({"tshark", "-r", file, "-Y", "usb.transfer_type == 2"});
    for (const char* name : {"GET DESCRIPTOR Response DEVICE",
                             "GET DESCRIPTOR Response CONFIGURATION", "SET CONFIGURATION Request",
                             "SET INTERFACE Request", "SET CUR Request", "GET CUR Response"}) {
        EXPECT_THAT(requests, HasSubstr(name));
    }
    EXPECT_THAT(output_of({"tshark", "-r", file, "-V", "-Y", "usb.transfer_type == 2"}),
                HasSubstr("bFormatIndex: 4"));
    const std::string payloads = output_of(
        {"tshark", "-r", file, "-Y", "usb.endpoint_address == 0x81 && usb.data_len == 8192"});
    EXPECT_FALSE(payloads.empty());
    EXPECT_FALSE(output_of({"tshark", "-r", file, "-Y", "usb.transfer_type == 0"}).empty())
        << "no sound";
}

/// Pictures per second in a line of ffprobe's ("avg_frame_rate=30/1"), of the stream `width` wide.
double rate_of(const std::string& streams, int width) {
    const std::regex pattern("width=" + std::to_string(width) + R"(\|avg_frame_rate=(\d+)/(\d+))");
    std::smatch found;
    EXPECT_TRUE(std::regex_search(streams, found, pattern)) << streams;
    return found.empty() ? 0 : std::stod(found[1]) / std::stod(found[2]);
}

TEST_F(VirtualCamera, ContainerHasStreamsAndSoundWithTheirRates) {
    const ProcessResult result =
        run({"record", "--virtual=running", "--signal", "h264-h264-gray", "--duration", "2s",
             "--output", folder_.path() / "out", "--json", folder_.path() / "report.json"});
    EXPECT_EQ(result.code, kOk) << result.out << result.err;
    const std::string file = folder_.path() / "out/recording.mkv";
    const std::string streams =
        output_of({"ffprobe", "-v", "error", "-show_entries",
                   "stream=codec_name,width,sample_rate,avg_frame_rate", "-of", "compact", file});
    // A camera that gets no processor time skips pictures: the rate is that of what it sent.
    const auto sent =
        nlohmann::json::parse(folder_.text_of("report.json"))["recordings"][0]["streams"];
    for (const auto& [name, width] : {std::pair{"main", 640}, std::pair{"sub", 320}}) {
        const double rate = 1000 / sent[name]["time_stamps"]["median_ms"].get<double>();
        EXPECT_NEAR(rate_of(streams, width), rate, rate * 0.1) << name << ": " << streams;
    }
    EXPECT_THAT(streams, HasSubstr("codec_name=pcm_s16le|sample_rate=16000"));
    const ProcessResult decoded =
        run_process({"/usr/bin/env", "ffprobe", "-v", "warning", "-count_frames", "-show_entries",
                     "stream=nb_read_frames", "-of", "csv", file});
    EXPECT_EQ(decoded.code, 0);
    EXPECT_EQ(decoded.err, "") << "a complaint of the decoder";
}

TEST_F(VirtualCamera, ChecksOfAGoodCameraPass) {
    const ProcessResult result = run({"check", "--virtual=running", "--only", "key-frame", "--only",
                                      "stills", "--only", "pan-tilt-zoom", "--only", "audio-rate",
                                      "--only", "audio-level", "--only", "time-stamps"});
    EXPECT_EQ(result.code, kOk) << result.out << result.err;
    EXPECT_THAT(result.out, HasSubstr("6 passed, 0 failed, 0 skipped"));
}

TEST_F(VirtualCamera, KnownComplaintsAreNotShownAndOthersAre) {
    const ProcessResult result = record("running", "300ms");
    EXPECT_EQ(result.code, kOk);
    EXPECT_THAT(result.err, Not(HasSubstr("complaint")));
    const auto complaints =
        nlohmann::json::parse(folder_.text_of("out/camera-status.json"))["bus"]["complaints"];
    EXPECT_GE(complaints.size(), 2U);
    const ProcessResult strict = run({"record", R"(--virtual={"camera": {"identity": "run-time"},
                                     "bus": {"expected_complaints": []}})",
                                      "--duration", "300ms", "--output", folder_.path() / "out"});
    EXPECT_THAT(strict.err,
                HasSubstr("virtbus: complaint: libusb_close: claimed and not released"));
}

}  // namespace
}  // namespace camhost::test
