// The program as a whole, with a plug-in that needs no camera.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "host/pictures/jpeg_decoder.h"
#include "tests/host/subprocess.h"
#include "tests/host/temporary_folder.h"

namespace camhost::test {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr int kOk = 0;
constexpr int kFailed = 1;
constexpr int kUsage = 2;
constexpr int kNoCamera = 3;
constexpr int kCameraLost = 4;
constexpr int kNoFrames = 5;
constexpr int kRefused = 6;
constexpr int kNoPlugin = 8;
constexpr int kInterrupted = 130;

class Camhost : public testing::Test {
  protected:
    ProcessResult run(const std::vector<std::string>& words, const std::string& fake = "",
                      const std::vector<Interaction>& interactions = {},
                      bool terminal = false) const {
        std::vector<std::string> command{CAMHOST_PROGRAM, words.front(), "--plugin", FAKE_PLUGIN};
        command.insert(command.end(), words.begin() + 1, words.end());
        const std::string state = folder_.path() / "state";
        return run_process(command, {"FAKE_CAMERA=" + fake, "TERM=dumb", "XDG_STATE_HOME=" + state},
                           interactions, terminal);
    }

    ProcessResult record(const std::vector<std::string>& words, const std::string& fake = "",
                         const std::vector<Interaction>& interactions = {}) {
        std::vector<std::string> all{"record", "--output", output()};
        all.insert(all.end(), words.begin(), words.end());
        return run(all, fake, interactions);
    }

    std::string output() const { return folder_.path() / "out"; }
    std::string text_of(const std::string& name) const { return folder_.text_of("out/" + name); }
    bool has(const std::string& name) const {
        return std::filesystem::exists(folder_.path() / "out" / name);
    }
    nlohmann::json report() const {
        return nlohmann::json::parse(folder_.text_of("report.json"), nullptr, false);
    }
    std::string report_path() const { return folder_.path() / "report.json"; }

    TemporaryFolder folder_;
};

// --- command line --------------------------------------------------------------------------------

TEST_F(Camhost, HelpListsTheExitCodes) {
    const ProcessResult result = run_process({CAMHOST_PROGRAM, "--help"});
    EXPECT_EQ(result.code, kOk);
    EXPECT_THAT(result.out, HasSubstr("record"));
    EXPECT_THAT(result.out, HasSubstr("130  interrupted"));
}

struct UsageCase {
    std::vector<std::string> words;
    const char* message;
};

class CamhostUsage : public Camhost, public testing::WithParamInterface<UsageCase> {};

TEST_P(CamhostUsage, IsExplained) {
    const ProcessResult result = run(GetParam().words);
    EXPECT_EQ(result.code, kUsage) << result.err;
    EXPECT_THAT(result.err, HasSubstr(GetParam().message));
    EXPECT_THAT(result.out, Not(HasSubstr("waiting"))) << "told before the camera is brought up";
}

INSTANTIATE_TEST_SUITE_P(
    Words, CamhostUsage,
    testing::Values(UsageCase{{"record", "--duration", "long"}, "is no duration"},
                    UsageCase{{"record", "--streams", "man"}, "did you mean 'main'"},
                    UsageCase{{"record", "--signal", "h264-grey"}, "did you mean 'h264-gray'"},
                    UsageCase{{"record", "--size", "640"}, "a size such as"},
                    UsageCase{{"record", "--set", "mirror=on"}, "the time is missing"},
                    UsageCase{{"record", "--set", "miror=on@1s"}, "did you mean 'mirror'"},
                    UsageCase{{"record", "--duration", "5s", "--set", "mirror=on@10s"},
                              "--set mirror@10s: recording ends after 5s"},
                    UsageCase{{"record", "--set", "mirror=on@5s"}, "recording ends after 5s"},
                    UsageCase{{"record", "--tour", "--set", "mirror=on@4s"}, "ends after 3s"},
                    UsageCase{{"record", "--tour", "--signal", "1"}, "--tour chooses"},
                    UsageCase{{"record", "--trace-usb"}, "needs --virtual"},
                    UsageCase{{"record", "--frobnicate"}, "frobnicate"},
                    UsageCase{{"record", "--signal=1", "--video-mode=1"}, "video-mode"},
                    UsageCase{{"get", "bitrat"}, "did you mean 'bitrate'"},
                    UsageCase{{"set", "bitrate=x"}, "a whole number"},
                    UsageCase{{"set", "lux=1"}, "can only be read"},
                    UsageCase{{"get"}, "property"}));

TEST_F(Camhost, MissingAndForeignLibrariesAreNoPlugins) {
    EXPECT_EQ(run_process({CAMHOST_PROGRAM, "list", "--plugin", "/nonexistent.so"}).code, kUsage);
    const ProcessResult foreign =
        run_process({CAMHOST_PROGRAM, "list", "--plugin", CAMHOST_PROGRAM});
    EXPECT_EQ(foreign.code, kNoPlugin) << foreign.err;
}

TEST_F(Camhost, VirtualBusThatIsNotThereIsExplained) {
    const ProcessResult result = run({"list", "--virtual=boot", "--virtual-bus", output()});
    EXPECT_EQ(result.code, kUsage);
    EXPECT_THAT(result.err, HasSubstr("libusb-1.0.so.0"));
}

// --- recording -----------------------------------------------------------------------------------

TEST_F(Camhost, RecordsEveryStreamIntoFiles) {
    const ProcessResult result = record({"--duration", "1s", "--signal", "h264-gray-si",
                                         "--jpeg-every", "300ms", "--json", report_path()});
    EXPECT_EQ(result.code, kOk) << result.out << result.err;
    for (const char* file : {"main.h264", "sub.h264", "jpeg-0001.jpg", "gray.y4m", "yuy2.y4m",
                             "nv12.y4m", "nv21.y4m", "audio.wav", "contact-sheet.png"}) {
        EXPECT_TRUE(has(file)) << file;
    }
    const auto streams = report()["recordings"][0]["streams"];
    EXPECT_GE(streams["main"]["records"], 20);
    EXPECT_EQ(streams["main"]["records"], streams["main"]["pictures"]);
    EXPECT_EQ(streams["main"]["restarts"], 0);
    EXPECT_TRUE(streams["pcm"].contains("time_stamps"));
    EXPECT_FALSE(streams["gray"].contains("time_stamps"));
    EXPECT_EQ(streams["gray"]["end_markers"], 1);
    EXPECT_EQ(report()["plugin_version"], 42);
    const std::string rates =
        output_of({"ffprobe", "-v", "error", "-select_streams", "v", "-show_entries",
                   "stream=avg_frame_rate", "-of", "csv=p=0", output() + "/recording.mkv"});
    EXPECT_EQ(rates, "30/1\n30/1\n") << "not the rates of the time stamps";
}

TEST_F(Camhost, PluginLogGoesToItsFile) {
    const ProcessResult result = record({"--duration", "300ms"});
    EXPECT_THAT(text_of("plugin.log"), HasSubstr("\x1b[31mcam_create"));
    EXPECT_THAT(result.out, Not(HasSubstr("\x1b")));
}

TEST_F(Camhost, ChosenStreamsOnly) {
    EXPECT_EQ(record({"--duration", "300ms", "--streams", "gray"}).code, kOk);
    EXPECT_TRUE(has("gray.y4m"));
    EXPECT_FALSE(has("main.h264"));
    EXPECT_FALSE(has("audio.wav"));
}

TEST_F(Camhost, KeyFrameInPartsIsOnePicture) {
    EXPECT_EQ(record({"--duration", "500ms", "--json", report_path()}, "call-mode").code, kOk);
    const auto main = report()["recordings"][0]["streams"]["main"];
    EXPECT_EQ(main["records"].get<int>(), main["pictures"].get<int>() + 2);
}

TEST_F(Camhost, ChangesHappenWhileRecording) {
    const ProcessResult result = record({"--duration", "900ms", "--set", "size=1280x720@300ms",
                                         "--set", "bitrate=1@500ms", "--json", report_path()});
    EXPECT_EQ(result.code, kOk) << result.out;
    EXPECT_THAT(result.out, HasSubstr("size=1280x720: set"));
    EXPECT_THAT(result.out, HasSubstr("bitrate=1: set"));
    EXPECT_EQ(report()["recordings"][0]["streams"]["main"]["restarts"], 1);
}

TEST_F(Camhost, RefusedChangeIsToldAndCounts) {
    const ProcessResult result = record({"--duration", "300ms", "--set", "sharpness=1@100ms"});
    EXPECT_EQ(result.code, kRefused);
    EXPECT_THAT(result.out, HasSubstr("sharpness=1: refused (the camera is recording)"));
}

TEST_F(Camhost, NewSampleRateBeginsANewWavFile) {
    EXPECT_EQ(record({"--duration", "900ms", "--streams", "pcm", "--set", "sample-rate=24000@400ms",
                      "--json", report_path()})
                  .code,
              kOk);
    EXPECT_EQ(report()["recordings"][0]["streams"]["pcm"]["restarts"], 1);
    EXPECT_TRUE(has("audio.wav"));
    EXPECT_TRUE(has("audio-2.wav"));
}

TEST_F(Camhost, SizeWithoutMultiplexedStreamsIsSaid) {
    EXPECT_THAT(record({"--duration", "200ms", "--size", "800x600"}).out,
                HasSubstr("falls back to plain MJPEG"));
    EXPECT_THAT(record({"--duration", "200ms", "--size", "1280x720"}).out,
                Not(HasSubstr("falls back")));
}

TEST_F(Camhost, UnknownPictureSizeIsKeptAndSaid) {
    const ProcessResult result = record({"--duration", "300ms"}, "odd-size");
    EXPECT_EQ(result.code, kOk);
    EXPECT_THAT(result.out, HasSubstr("gray: a record of 12345 bytes has no size that is known"));
    EXPECT_TRUE(has("gray.raw"));
}

TEST_F(Camhost, WrongSelectorOfTheTelevisionIsRefused) {
    const ProcessResult by_signal = record({"--video-mode", "h264-jpeg"});
    EXPECT_EQ(by_signal.code, kRefused);
    EXPECT_THAT(by_signal.err, HasSubstr("use --signal"));
    const ProcessResult by_mode = record({"--signal", "gray"}, "video-mode");
    EXPECT_EQ(by_mode.code, kRefused);
    EXPECT_THAT(by_mode.err, HasSubstr("use --video-mode"));
}

TEST_F(Camhost, TourVisitsEveryCombination) {
    const ProcessResult result =
        record({"--tour", "--duration", "500ms", "--jpeg-every", "100ms", "--json", report_path()});
    EXPECT_EQ(result.code, kOk) << result.out << result.err;
    for (const char* name : {"h264-yuyv", "h264-gray", "gray", "h264-h264-gray", "h264-nv21",
                             "h264-gray-si", "h264-h264", "h264-mjpeg"}) {
        EXPECT_TRUE(has(std::string(name) + "/contact-sheet.png")) << name;
    }
    EXPECT_EQ(report()["recordings"].size(), 8U);
    EXPECT_TRUE(has("contact-sheet.png"));
    EXPECT_THAT(result.out, HasSubstr("records of the whole tour:"));
}

TEST_F(Camhost, TourByVideoModeHasThreeStops) {
    const ProcessResult result = record({"--tour", "--duration", "500ms"}, "video-mode");
    EXPECT_EQ(result.code, kOk) << result.out;
    EXPECT_TRUE(has("h264-jpeg/main.h264"));
    EXPECT_FALSE(has("gray"));
}

/// A first stop that ends with a refusal of its own.
const std::vector<std::string> kTourWithARefusal{"--tour", "--duration", "300ms", "--set",
                                                 "sharpness=1@50ms"};

TEST_F(Camhost, TourTellsARefusalOfItsFirstStop) {
    EXPECT_EQ(record(kTourWithARefusal).code, kRefused);
}

TEST_F(Camhost, LostCameraDecidesHowATourEnds) {
    const ProcessResult result = record(kTourWithARefusal, "lost-later");
    EXPECT_EQ(result.code, kCameraLost) << result.out;
    EXPECT_THAT(result.out, HasSubstr("the tour ended early, in h264-gray (the camera went away); "
                                      "not visited: gray, h264-h264-gray, "));
    EXPECT_THAT(result.out, HasSubstr("Init's callback reported false"));
    EXPECT_TRUE(has("h264-gray/main.h264"));
    EXPECT_TRUE(has("contact-sheet.png"));
    EXPECT_FALSE(has("gray"));
}

TEST_F(Camhost, InterruptDecidesHowATourEnds) {
    const ProcessResult result = record(kTourWithARefusal, "", {{"h264-gray -> ", SIGINT, ""}});
    EXPECT_EQ(result.code, kInterrupted) << result.out;
    EXPECT_THAT(result.out, HasSubstr("the tour ended early, in "));
    EXPECT_THAT(result.out, HasSubstr(" (interrupted); not visited: "));
    EXPECT_FALSE(has("h264-mjpeg"));
}

// --- how it ends ---------------------------------------------------------------------------------

TEST_F(Camhost, CameraThatIsNotUsable) {
    const ProcessResult result = record({}, "not-usable");
    EXPECT_EQ(result.code, kNoCamera);
    EXPECT_THAT(result.err, HasSubstr("Init reported false, it is disconnected"));
}

TEST_F(Camhost, InitThatNeverReportsIsWaitedForInVain) {
    const ProcessResult result = record({"--init-timeout", "300ms"}, "never-reports");
    EXPECT_EQ(result.code, kNoCamera);
    EXPECT_THAT(result.err, HasSubstr("did not report within 0.3 s; the camera is connecting"));
}

TEST_F(Camhost, NoRecordIsNotSuccess) {
    const ProcessResult result = record({"--duration", "200ms"}, "no-frames");
    EXPECT_EQ(result.code, kNoFrames);
    EXPECT_THAT(result.out, HasSubstr("nothing arrived of H.264 main, YUY2 and PCM"));
}

TEST_F(Camhost, StartThatFails) {
    const ProcessResult result = record({"--duration", "200ms"}, "start-fails");
    EXPECT_EQ(result.code, kFailed);
    EXPECT_THAT(result.out, HasSubstr("not started"));
}

TEST_F(Camhost, LostCameraEndsTheRecordingAndKeepsIt) {
    const ProcessResult result = record({"--duration", "20s"}, "lost");
    EXPECT_EQ(result.code, kCameraLost);
    EXPECT_THAT(result.out, HasSubstr("the camera went away"));
    EXPECT_GT(text_of("main.h264").size(), 0U);
    EXPECT_TRUE(has("contact-sheet.png"));
}

TEST_F(Camhost, InterruptEndsTheRecordingAndKeepsIt) {
    const ProcessResult result =
        record({"--duration", "40s", "--set", "mirror=on@200ms"}, "", {{"mirror=on", SIGINT, ""}});
    EXPECT_EQ(result.code, kInterrupted);
    EXPECT_THAT(result.out, HasSubstr("interrupted after"));
    EXPECT_GT(text_of("main.h264").size(), 0U);
}

TEST_F(Camhost, InterruptDuringInitSaysWhatItWaitsFor) {
    const ProcessResult result =
        record({}, "never-reports", {{"waiting for the camera", SIGINT, ""}});
    EXPECT_EQ(result.code, kInterrupted);
    EXPECT_THAT(result.out, HasSubstr("waiting for the plug-in to end its search"));
}

TEST_F(Camhost, SecondInterruptLeavesAtOnce) {
    // The fake's destructor never ends in this mode: only the second signal gets out.
    const ProcessResult result =
        record({}, "never-ends",
               {{"waiting for the camera", SIGINT, ""}, {"end its search", SIGTERM, ""}});
    EXPECT_EQ(result.code, kInterrupted);
}

TEST_F(Camhost, FullDiscIsToldAndStopsNothingElse) {
    // A stream whose file cannot be made: its name is taken by a folder.
    std::filesystem::create_directories(output() + "/main.h264");
    const ProcessResult result = record({"--duration", "300ms"});
    EXPECT_EQ(result.code, kFailed);
    EXPECT_THAT(result.out, HasSubstr("H.264 main: its files are INCOMPLETE"));
    EXPECT_GT(text_of("sub.h264").size(), 0U);
}

// --- properties ----------------------------------------------------------------------------------

TEST_F(Camhost, SetTellsWhatTheAnswerIsWorth) {
    const ProcessResult result = run(
        {"set", "bitrate=4000000", "mirror=on", "mic-volume=101", "auto-focus=on", "key-frame"});
    EXPECT_EQ(result.code, kOk) << result.out;
    EXPECT_THAT(result.out, HasSubstr("bitrate=4000000: set\n"));
    EXPECT_THAT(result.out, HasSubstr("mirror=on: sent (the interface does not tell"));
    EXPECT_THAT(result.out, HasSubstr("mic-volume=101: accepted without effect: outside 0 to 100"));
    EXPECT_THAT(result.out, HasSubstr("auto-focus=on: accepted without effect"));
    EXPECT_THAT(result.out, HasSubstr("key-frame: set"));
}

TEST_F(Camhost, SetTellsRefusalFromKeptForTheNextStart) {
    const ProcessResult result = run({"set", "size=1280x720", "size=1280x720", "signal-type=gray",
                                      "sharpness=3", "sample-rate=24000"});
    EXPECT_EQ(result.code, kRefused);
    EXPECT_THAT(result.out,
                HasSubstr("size=1280x720: refused now (the camera is not recording), kept for"));
    EXPECT_THAT(result.out, HasSubstr("size=1280x720: refused: it is so already"));
    EXPECT_THAT(result.out, HasSubstr("signal-type=gray: refused now"));
    EXPECT_THAT(result.out, HasSubstr("sharpness=3: refused (the camera is ready)"));
    EXPECT_THAT(result.out, HasSubstr("sample-rate=24000: kept for the next start of recording"));
}

TEST_F(Camhost, GetShowsValuesAndRefusals) {
    const ProcessResult result = run({"get", "size", "sample-rate", "mirror"});
    EXPECT_EQ(result.code, kRefused);
    EXPECT_THAT(result.out, HasSubstr("size = 640x480 pixels"));
    EXPECT_THAT(result.out, HasSubstr("sample-rate = 16000 Hz"));
    EXPECT_THAT(result.out, HasSubstr("mirror: refused"));
}

TEST_F(Camhost, ListShowsEveryPropertyWithItsValue) {
    const ProcessResult result = run({"list"});
    EXPECT_EQ(result.code, kOk);
    EXPECT_THAT(result.out, HasSubstr("mic-volume"));
    EXPECT_THAT(result.out, HasSubstr("640x480"));
    EXPECT_THAT(result.out, HasSubstr("camera's: -128 to 127"));
    EXPECT_THAT(result.out, HasSubstr("camhost get"));
}

TEST_F(Camhost, CapabilitiesAreAnswered) {
    EXPECT_THAT(run({"capabilities"}).out, HasSubstr("signal-type    yes"));
    EXPECT_THAT(run({"capabilities"}, "video-mode").out, HasSubstr("signal-type    no"));
}

class CamhostInterrupted : public Camhost,
                           public testing::WithParamInterface<std::vector<std::string>> {};

TEST_P(CamhostInterrupted, EndsWithTheCodeOfInterrupts) {
    const ProcessResult result = run(GetParam(), "waits", {{"the camera is usable", SIGINT, "\n"}});
    EXPECT_EQ(result.code, kInterrupted) << result.out;
    EXPECT_THAT(result.err, HasSubstr("interrupted"));
    EXPECT_THAT(result.out, Not(HasSubstr("fps = "))) << "what comes after it is not done";
}

INSTANTIATE_TEST_SUITE_P(Words, CamhostInterrupted,
                         testing::Values(std::vector<std::string>{"get", "size", "fps"},
                                         std::vector<std::string>{"set", "fps=15"},
                                         std::vector<std::string>{"list"},
                                         std::vector<std::string>{"capabilities"}));

// --- shell ---------------------------------------------------------------------------------------

TEST_F(Camhost, ShellRunsCommandsFromAPipe) {
    const ProcessResult result =
        run({"shell"}, "",
            {{"the camera is usable", 0,
              "state\nstart\nstart\nstate\nset fps=15\nget fps\nstop\ngett fps\nset x=1\nquit\n"}});
    EXPECT_EQ(result.code, kOk) << result.err;
    EXPECT_THAT(result.out, HasSubstr("the camera is ready"));
    EXPECT_THAT(result.out, HasSubstr("recording is running already"));
    EXPECT_THAT(result.out, HasSubstr("the camera is recording"));
    EXPECT_THAT(result.out, HasSubstr("fps = 15 frames/s"));
    EXPECT_THAT(result.out, HasSubstr("recording is stopped"));
    EXPECT_THAT(result.out, HasSubstr("did you mean 'get'?"));
    EXPECT_THAT(result.out, HasSubstr("there is no property 'x'"));
}

TEST_F(Camhost, ShellCompletesOnATerminal) {
    const ProcessResult result = run({"shell"}, "",
                                     {{"camhost> ", 0, "get sample\t\n"},
                                      {"16000 Hz", 0, ""},
                                      // Before the prompt the terminal echoes by itself.
                                      {"camhost> ", 0, "nonsense"},
                                      {"nonsense", SIGINT, ""},
                                      {"camhost> ", 0, "capab\t\n"},
                                      {"gesture recognition", 0, "quit\n"}},
                                     true);
    EXPECT_EQ(result.code, kOk) << result.out << result.err;
    EXPECT_THAT(result.out, HasSubstr("sample-rate = 16000 Hz"));
}

TEST_F(Camhost, ShellCompletesValues) {
    const ProcessResult result = run({"shell"}, "",
                                     {{"camhost> ", 0, "set fli\tof\t\n"},
                                      {"camhost> ", 0, "set signal\th264-y\t\n"},
                                      {"camhost> ", 0, "quit\n"}},
                                     true);
    EXPECT_EQ(result.code, kOk) << result.out << result.err;
    EXPECT_THAT(result.out, HasSubstr("flip=off: sent"));
    EXPECT_THAT(result.out, HasSubstr("signal-type=h264-yuyv: refused now"));
}

TEST_F(Camhost, ShellRemembersWhatWasEntered) {
    EXPECT_EQ(run({"shell"}, "", {{"camhost> ", 0, "get sample-rate\nquit\n"}}, true).code, kOk);
    EXPECT_EQ(folder_.text_of("state/camhost/history"), "get sample-rate\nquit\n");
    constexpr const char* kTwoLinesBack = "\x10\x10\n";
    const ProcessResult again =
        run({"shell"}, "", {{"camhost> ", 0, kTwoLinesBack}, {"sample-rate = 16000", 0, "quit\n"}},
            true);
    EXPECT_EQ(again.code, kOk) << again.out;
}

TEST_F(Camhost, ShellEndsWhenTheCameraGoes) {
    const ProcessResult result = run({"shell"}, "lost", {{"camhost> ", 0, "start\n"}}, true);
    EXPECT_EQ(result.code, kCameraLost) << result.out;
    EXPECT_THAT(result.err, HasSubstr("Init's callback reported false; it is disconnected"));
}

// --- check ---------------------------------------------------------------------------------------

TEST_F(Camhost, CheckPassesAGoodCamera) {
    const ProcessResult result =
        run({"check", "--only", "found", "--only", "ready", "--only", "combination:h264-h264-gray",
             "--only", "combination:h264-gray-si", "--only", "unplug", "--junit", report_path()});
    EXPECT_EQ(result.code, kOk) << result.out;
    EXPECT_THAT(result.out, HasSubstr("PASS  found"));
    EXPECT_THAT(result.out, HasSubstr("PASS  combination:h264-h264-gray"));
    EXPECT_THAT(result.out, HasSubstr("PASS  combination:h264-gray-si"));
    EXPECT_THAT(result.out, HasSubstr("SKIP  unplug"));
    EXPECT_THAT(result.out, HasSubstr("4 passed, 0 failed, 1 skipped"));
    const std::string junit = folder_.text_of("report.json");
    EXPECT_THAT(junit, HasSubstr("tests=\"5\" failures=\"0\" skipped=\"1\""));
    EXPECT_THAT(junit, HasSubstr("name=\"combination:h264-gray-si\""));
}

TEST_F(Camhost, CheckFailsACameraThatSendsNothing) {
    const ProcessResult result = run({"check", "--only", "combination:h264-gray"}, "no-frames");
    EXPECT_EQ(result.code, 7);
    EXPECT_THAT(result.out, HasSubstr("FAIL  combination:h264-gray"));
    EXPECT_THAT(result.out, HasSubstr("not so: H.264 main arrives (0 records)"));
}

TEST_F(Camhost, CheckFailsOddPictures) {
    const ProcessResult result = run({"check", "--only", "combination:gray"}, "odd-size");
    EXPECT_EQ(result.code, 7);
    EXPECT_THAT(result.out, HasSubstr("not so: gray: records have the size of a picture"));
}

TEST_F(Camhost, CheckListsItsNamesAndKnowsTheNearest) {
    const ProcessResult list = run({"check", "--list"});
    EXPECT_EQ(list.code, kOk);
    EXPECT_THAT(list.out, HasSubstr("key-frame "));
    const ProcessResult wrong = run({"check", "--only", "key-frames"});
    EXPECT_EQ(wrong.code, kUsage);
    EXPECT_THAT(wrong.err, HasSubstr("did you mean 'key-frame'?"));
}

TEST_F(Camhost, UnknownCommandSuggestsTheNearest) {
    const ProcessResult result = run_process({CAMHOST_PROGRAM, "recrod", "--duration", "1s"});
    EXPECT_EQ(result.code, kUsage);
    EXPECT_THAT(result.err, HasSubstr("there is no command 'recrod'; did you mean 'record'?"));
}

TEST_F(Camhost, EveryHelpEndsWithAnExampleAndNamesItsValues) {
    for (const char* command : {"record", "check", "get", "set", "list", "capabilities", "shell",
                                "snapshot", "watch", "trace", "scenario"}) {
        const ProcessResult help = run_process({CAMHOST_PROGRAM, command, "--help"});
        EXPECT_EQ(help.code, kOk);
        const size_t example = help.out.rfind("Example:\n  camhost " + std::string(command));
        ASSERT_NE(example, std::string::npos) << command;
        EXPECT_EQ(help.out.find("Options", example), std::string::npos) << command;
        EXPECT_THAT(help.out, Not(HasSubstr(" TEXT")));
    }
}

TEST_F(Camhost, SnapshotWritesOneStill) {
    const std::string still = folder_.path() / "still.jpg";
    const ProcessResult result = run({"snapshot", still});
    EXPECT_EQ(result.code, kOk) << result.out << result.err;
    const std::string bytes = folder_.text_of("still.jpg");
    EXPECT_FALSE(camhost::decode_jpeg(std::vector<uint8_t>(bytes.begin(), bytes.end())).empty());
}

TEST_F(Camhost, WatchTellsEachSecond) {
    const ProcessResult json = run({"watch", "--json", "--duration", "2200ms"});
    EXPECT_EQ(json.code, kOk) << json.err;
    std::istringstream lines(json.out);
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        const auto object = nlohmann::json::parse(line);
        EXPECT_EQ(object["state"], "recording");
        EXPECT_GT(object["streams"]["main"]["records_per_second"], 0);
        EXPECT_TRUE(object["streams"]["pcm"].contains("level_db"));
    }
    EXPECT_GE(count, 2);
    const ProcessResult table = run({"watch", "--duration", "1200ms"});
    EXPECT_THAT(table.out, HasSubstr("records/s"));
    EXPECT_THAT(table.out, HasSubstr("H.264 main"));
    EXPECT_THAT(table.out, Not(HasSubstr("\x1b"))) << "escape codes into a pipe";
}

TEST_F(Camhost, WatchTakesKeysOnATerminal) {
    const ProcessResult result = run({"watch", "--duration", "20s"}, "",
                                     {{"key frame", 0, "m"}, {"mirror=on", 0, "q"}}, true);
    EXPECT_EQ(result.code, kOk) << result.out << result.err;
    EXPECT_THAT(result.out, HasSubstr("mirror=on: sent"));
}

TEST_F(Camhost, WatchLeavesTheTerminalToItsOtherWays) {
    const ProcessResult result =
        run({"watch", "--duration", "20s"}, "", {{"key frame", 0, "q"}}, true);
    EXPECT_THAT(result.out, HasSubstr("dropped\r\n")) << "each line begins at the left";
}

}  // namespace
}  // namespace camhost::test
