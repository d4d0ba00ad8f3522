// Init and the hand-over: answers, states, adapters.
#include <sys/stat.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <thread>

#include "tests/object/CameraTest.h"

namespace test {
namespace {

class Initialisation : public CameraTest {
  protected:
    static size_t Calls(const std::string& name) { return virtcam::bus::call_counts()[name]; }
};

TEST_F(Initialisation, BringsACameraWithoutFirmwareUp) {
    virtcam::bus::reset(BootCodeCamera());
    WriteFile("/mtd_rwcommon/lumo/bin/Tarlo_Ext_FW.bin", ImageOf(3000));
    Create();
    log().reset();
    EXPECT_TRUE(Init());
    ExpectUnusualRelease();
    EXPECT_EQ(camera_->GetState(), CAM_STATE_READY);
    EXPECT_LOG(4, "Create Video, Audio capture class.\r\n");
    EXPECT_LOG(1, "Skipped audio_capturer ConfigureDev furnc in initialization.\r\n");
    const auto address = static_cast<unsigned>(reinterpret_cast<uintptr_t>(&InitAnswers::Callback));
    char line[64];
    snprintf(line, sizeof line, "CAitOrixCamera::Init 0x%X, 0x7 \r\n", address);
    EXPECT_LOG(4, line);
    const auto flash = virtcam::bus::camera().flash();
    EXPECT_EQ(std::string(flash.begin(), flash.end()), ImageOf(3000));
}

TEST_F(Initialisation, AReadyCameraRefusesAnother) {
    Ready();
    camera_->Init(InitAnswers::Callback, 0xBEEF);
    EXPECT_LOG_COUNT(1, "Already Initialization started.. \n", 1);
    EXPECT_EQ(camera_->GetState(), CAM_STATE_READY);
    EXPECT_EQ(InitAnswers::instance().All().size(), 1u);
    EXPECT_NO_LOG(4, "Exit device mointer trhead.\r\n");  // the loader stays
    EXPECT_NO_LOG(4, "CCameraFwLoader::Run()\r\n");
}

TEST_F(Initialisation, EveryStateButReadyTakesAnother) {
    virtcam::bus::unplug();
    Create();
    for (int state = 0; state < 16; ++state) {
        camera_->SetState(static_cast<CAM_STATE>(state));
        log().reset();
        const size_t before = InitAnswers::instance().All().size();
        clock().on_sleep([&](const SleepCall&) { EXPECT_EQ(camera_->m_State, state); });
        camera_->Init(InitAnswers::Callback, 0);
        EXPECT_EQ(log().has(1, "Already Initialization started.. \n"), state == CAM_STATE_READY);
        if (state != CAM_STATE_READY) {
            ASSERT_TRUE(InitAnswers::instance().Wait(before + 1)) << state;
            EXPECT_EQ(camera_->m_State, CAM_STATE_DISCONNECTED);
        }
        clock().on_sleep(nullptr);
    }
}

std::atomic<int> g_StateAtTheAnswer{-1};

TEST_F(Initialisation, TheStateIsSetBeforeTheAnswer) {
    const InitDoneCallback look = [](bool usable) {
        g_StateAtTheAnswer = g_pCamera->m_State.load();
        InitAnswers::Callback(usable);
    };
    Create();
    camera_->Init(look, 0);
    ASSERT_TRUE(InitAnswers::instance().Wait(1));
    EXPECT_EQ(g_StateAtTheAnswer, CAM_STATE_READY);
    ExpectUnusualRelease();
    CAitOrixCamera::CamInitDoneCallback(CAMERA_LOAD_FW_FAILED, camera_);
    EXPECT_EQ(g_StateAtTheAnswer, CAM_STATE_DISCONNECTED);
    camera_->SetState(CAM_STATE_READY);
}

TEST_F(Initialisation, AMissingCameraAnswersFalse) {
    virtcam::bus::unplug();
    Create();
    EXPECT_FALSE(Init());
    EXPECT_EQ(camera_->GetState(), CAM_STATE_DISCONNECTED);
    EXPECT_EQ(Calls("libusb_open_device_with_vid_pid"), 0u);
}

TEST_F(Initialisation, WithoutAThreadAnswersFalse) {
    Create();
    system_calls().pthread_create = EAGAIN;
    EXPECT_FALSE(Init());
    EXPECT_EQ(camera_->GetState(), CAM_STATE_DISCONNECTED);
    system_calls().pthread_create = 0;
    EXPECT_TRUE(Init());
    EXPECT_EQ(camera_->GetState(), CAM_STATE_READY);
    ExpectUnusualRelease();
}

/// A life that meets a FIFO, to which nobody writes, in the place of a file ends like any other.
class AFifoInPlaceOfAFile : public CameraTest, public ::testing::WithParamInterface<const char*> {
  protected:
    AFifoInPlaceOfAFile() {
        // The newer of the two images is the one that is read.
        const bool in_place_of_the_downloaded =
            GetParam() == std::string("/mtd_rwcommon/lumo/bin/Tarlo_Ext_FW.bin");
        WriteFile("/mtd_exe/lumo/opxCamera.xml",
                  in_place_of_the_downloaded ? "<Version>1</Version>" : "<Version>3</Version>");
        WriteFile("/mtd_rwcommon/lumo/bin/opxCamera.xml", "<Version>2</Version>");
        for (const char* folder : {"/mtd_exe/lumo/", "/mtd_rwcommon/lumo/bin/"}) {
            WriteFile(std::string(folder) + "Tarlo_Ext_FW.bin", ImageOf(3000));
        }
        // A camera that restarts has its listing written anew.
        const bool in_place_of_the_listing = GetParam() == std::string("/proc/bus/usb/devices");
        virtcam::bus::reset(in_place_of_the_listing ? RunningCamera() : BootCodeCamera());
    }
};
INSTANTIATE_TEST_SUITE_P(Paths, AFifoInPlaceOfAFile,
                         ::testing::Values("/mtd_exe/.info", "/dtv/cm_frequency",
                                           "/mtd_exe/lumo/Tarlo_Ext_FW.bin",
                                           "/mtd_rwcommon/lumo/bin/Tarlo_Ext_FW.bin",
                                           "/mtd_exe/lumo/opxCamera.xml",
                                           "/mtd_rwcommon/lumo/bin/opxCamera.xml",
                                           "/proc/bus/usb/devices", "/dtv/ait_usb_devices"));

TEST_P(AFifoInPlaceOfAFile, HoldsNobodyUp) {
    std::filesystem::remove(GetParam());
    ASSERT_EQ(mkfifo(GetParam(), 0600), 0) << GetParam();
    auto life = std::async(std::launch::async, [this] {
        Create();
        Init();
        Destroy();
    });
    if (life.wait_for(kLimit) != std::future_status::ready) {
        std::fprintf(stderr, "%s, a FIFO, holds somebody up\n", GetParam());
        std::abort();  // nobody can take a thread out of a call
    }
    std::filesystem::remove(GetParam());
    virtcam::bus::take_complaints();  // of the life that ended here or there
}

TEST_F(Initialisation, WithoutACallbackRunsAllTheSame) {
    Create();
    camera_->Init(nullptr, 0);
    EXPECT_TRUE(
        virtcam::bus::wait_until([&] { return camera_->m_State == CAM_STATE_READY; }, kLimit));
    ExpectUnusualRelease();
    camera_->SetState(CAM_STATE_CONNECTING);
    CAitOrixCamera::CamInitDoneCallback(CAMERA_CANT_FOUND_DEVICE, camera_);
    EXPECT_EQ(camera_->m_State, CAM_STATE_DISCONNECTED);
}

void TryAgain(bool usable) {
    if (InitAnswers::instance().All().size() < 5) {
        g_pCamera->Init(TryAgain, 0);
    }
    InitAnswers::Callback(usable);
}

TEST_F(Initialisation, WorksFromItsOwnCallbackAnyNumberOfTimes) {
    virtcam::bus::unplug();
    Create();
    camera_->Init(TryAgain, 0);
    EXPECT_TRUE(InitAnswers::instance().Wait(6)) << log_listing();
    EXPECT_EQ(InitAnswers::instance().All(), std::vector<bool>(6, false));
    virtcam::bus::plug();
    EXPECT_TRUE(Init());
    ExpectUnusualRelease();
}

/// Two loaders at once would meet at the camera. The wait is what one that does not wait is given.
TEST_F(Initialisation, FromItsCallbackBeginsWhenTheCallbackHasEnded) {
    static std::atomic<bool> began;
    began = false;
    virtcam::bus::unplug();
    Create();
    camera_->Init(
        [](bool usable) {
            LogRecorder::instance().reset();
            g_pCamera->Init(InitAnswers::Callback, 0);
            constexpr std::chrono::milliseconds kChance{50};
            began = LogRecorder::instance().wait_for(4, "CCameraFwLoader::Run()\r\n", kChance);
            InitAnswers::Callback(usable);
        },
        0);
    EXPECT_TRUE(InitAnswers::instance().Wait(2)) << log_listing();
    EXPECT_FALSE(began);
    EXPECT_LOG(4, "CCameraFwLoader::Run()\r\n");
}

TEST_F(Initialisation, DestructionFromItsCallbackIsRefused) {
    Create();
    camera_->Init(
        [](bool usable) {
            cam_destroy(g_pCamera);
            InitAnswers::Callback(usable);
        },
        0);
    ASSERT_TRUE(InitAnswers::instance().Wait(1)) << log_listing();
    EXPECT_LOG_COUNT(1, "Not possible inside Update or the callback of Init.\r\n", 1);
    EXPECT_EQ(camera_->GetState(), CAM_STATE_READY);
    ExpectUnusualRelease();
}

TEST_F(Initialisation, FromACallbackWithoutAThreadAnswersOnce) {
    virtcam::bus::unplug();
    Create();
    system_calls().pthread_create = EAGAIN;
    camera_->Init(TryAgain, 0);
    EXPECT_EQ(InitAnswers::instance().All(), std::vector<bool>{false});
    system_calls().pthread_create = 0;
    virtcam::bus::plug();
    EXPECT_TRUE(Init());
    ExpectUnusualRelease();
}

TEST_F(Initialisation, WorksBesideCallsOfOtherThreads) {
    virtcam::bus::unplug();
    Create();
    std::atomic<bool> over{false};
    std::thread host([&] {
        while (!over) {
            CAM_PROP_VALUE value = {};
            EXPECT_TRUE(camera_->GetProperty(CAM_PROPERTY_CONNECTION_TEST, &value));
        }
    });
    std::thread another([&] {
        while (!over) {
            camera_->Init(InitAnswers::Callback, 0);
        }
    });
    for (int i = 0; i < 50; ++i) {
        camera_->Init(InitAnswers::Callback, 0);
    }
    over = true;
    host.join();
    another.join();
    EXPECT_FALSE(Init());
}

TEST_F(Initialisation, ACameraThatNeverComesBackAnswersFalse) {
    nlohmann::json configuration = BootCodeCamera();
    configuration["camera"]["returns"] = false;
    virtcam::bus::reset(configuration);
    WriteFile("/mtd_rwcommon/lumo/bin/Tarlo_Ext_FW.bin", ImageOf(3000));
    Create();
    EXPECT_FALSE(Init());
    // The line follows the answer; the loader's end is waited for by the destruction.
    EXPECT_EQ(camera_->GetState(), CAM_STATE_DISCONNECTED);
    EXPECT_EQ(Calls("libusb_open_device_with_vid_pid"), 0u);
    EXPECT_EQ(virtcam::bus::camera().flash().size(), 3000u);
    Destroy();
    EXPECT_LOG(1, "Camera reboot failed. \r\n");
    EXPECT_EQ(InitAnswers::instance().All().size(), 1u);
}

TEST_F(Initialisation, WithoutFirmwareToLoadAnswersFalse) {
    virtcam::bus::reset(BootCodeCamera());
    Create();
    EXPECT_FALSE(Init());
    EXPECT_EQ(camera_->GetState(), CAM_STATE_DISCONNECTED);
    EXPECT_TRUE(virtcam::bus::camera().flash().empty());
    Destroy();
    EXPECT_LOG(1, "CCameraFwLoader :Failed to load firmware, exit. \r\n");
}

TEST_F(Initialisation, LooksForTheBootCodeOnItsThirdInterface) {
    virtcam::bus::unplug();
    Create();
    EXPECT_FALSE(Init());
    EXPECT_LOG_COUNT(
        4, "CCameraFwLoader::Run() Open device VID=0x114D, PID=0x2065, Interface=2 \r\n", 1);
}

TEST_F(Initialisation, EveryReportButOkIsADisconnection) {
    virtcam::bus::unplug();
    Create();
    EXPECT_FALSE(Init());
    for (const unsigned status : {1u, 2u, 3u, 77u}) {
        camera_->SetState(CAM_STATE_READY);
        InitAnswers::instance().Clear();
        CAitOrixCamera::CamInitDoneCallback(status, camera_);
        EXPECT_EQ(camera_->m_State, CAM_STATE_DISCONNECTED) << status;
        EXPECT_EQ(InitAnswers::instance().All(), std::vector<bool>{false}) << status;
    }
    EXPECT_NO_LOG(4, "Create Video, Audio capture class.\r\n");
}

TEST_F(Initialisation, TheDeviceSettlesForASecondBeforeTheAdaptersOpenIt) {
    Create();
    std::atomic<int> opened_before{-1};
    clock().on_sleep([&](const SleepCall& sleep) {
        const auto lines = log().lines();
        if (lines.empty() || lines.back().thread != sleep.thread ||
            lines.back().text != "Create Video, Audio capture class.\r\n") {
            return;
        }
        EXPECT_EQ(sleep.duration, 1s);
        opened_before = static_cast<int>(Calls("libusb_open_device_with_vid_pid"));
    });
    EXPECT_TRUE(Init());
    clock().on_sleep(nullptr);
    ExpectUnusualRelease();
    EXPECT_EQ(opened_before, 0);
    EXPECT_EQ(Calls("libusb_open_device_with_vid_pid"), 2u);
}

TEST_F(Initialisation, DestructionTakesTheVideoAdapterBeforeTheAudioAdapter) {
    Ready();
    Destroy();
    ExpectInOrder({{4, "CAitOrixCamera::~CAitOrixCamera() destruction+.\r\n"},
                   {4, "Exit device mointer trhead.\r\n"},
                   {1, "CAitOrixCamera::StopRecording\r\n"},
                   {4, "CAIT_CAM_LIB::~CAIT_CAM_LIB()+\r\n"},
                   {4, "CAudioCapture::~CAudioCapture+\r\n"},
                   {1, "CAitOrixCamera::~CAitOrixCamera() destruction-.\r\n"}});
}

TEST_F(Initialisation, CanBeRepeatedAfterAFailure) {
    virtcam::bus::unplug();
    Create();
    EXPECT_FALSE(Init());
    virtcam::bus::plug();
    EXPECT_TRUE(Init());
    ExpectUnusualRelease();
    EXPECT_EQ(camera_->GetState(), CAM_STATE_READY);
}

TEST_F(Initialisation, VideoThatCannotBeOpenedAnswersFalse) {
    virtcam::bus::add_fault({{"on", {{"call", "libusb_claim_interface"}, {"argument", 1}}},
                             {"do", {{"return", "LIBUSB_ERROR_BUSY"}}}});
    Create();
    EXPECT_FALSE(Init());
    ExpectUnusualRelease();
    EXPECT_LOG_COUNT(1, "AitUvcCapture:: Device not exist.\r\n", 1);
    EXPECT_NO_LOG(1, "CAudioCapture:: Device not exist.\r\n");
    EXPECT_EQ(camera_->GetState(), CAM_STATE_DISCONNECTED);
}

TEST_F(Initialisation, AnAdapterThatIsNotReadyStaysSo) {
    virtcam::bus::add_fault({{"on", {{"call", "libusb_claim_interface"}, {"argument", 3}}},
                             {"do", {{"return", "LIBUSB_ERROR_BUSY"}}}});
    Create();
    EXPECT_FALSE(Init());
    EXPECT_LOG_COUNT(1, "CAudioCapture:: Device not exist.\r\n", 1);
    EXPECT_EQ(camera_->GetState(), CAM_STATE_DISCONNECTED);
    virtcam::bus::clear_faults();
    virtcam::bus::power_cycle();
    const size_t opens = Calls("libusb_open_device_with_vid_pid");
    EXPECT_FALSE(Init());  // both adapters are kept
    EXPECT_EQ(Calls("libusb_open_device_with_vid_pid"), opens);
    // The video adapter's handle is of a camera that has gone, and the alternate setting at the
    // stop is the first call that notices: this libusb could not close it.
    log().reset();
    Destroy();
    EXPECT_LOG_COUNT(1, "The lost device's handle is left open, this libusb cannot close it.\r\n",
                     1);
    ExpectComplaint("libusb_exit: 1 device handle still open");
    ExpectComplaint("a handle of 114d:2066 was never closed");
}

TEST_F(Initialisation, ASecondInitOnAnUnchangedListingFails) {
    Create();
    ASSERT_TRUE(Init());
    ExpectUnusualRelease();
    Destroy();
    InitAnswers::instance().Clear();
    Create();
    log().reset();
    EXPECT_FALSE(Init());
    EXPECT_TRUE(log().wait_for(1, "Camera reboot failed. \r\n", kLimit));  // follows the answer
    virtcam::bus::power_cycle();
    EXPECT_TRUE(Init());
    ExpectUnusualRelease();
}

TEST_F(Initialisation, TwiceBeforeTheFirstHasFinished) {
    virtcam::bus::unplug();
    Create();
    camera_->Init(InitAnswers::Callback, 0);
    camera_->Init(InitAnswers::Callback, 0);
    ASSERT_TRUE(InitAnswers::instance().Wait(1));
    const auto answers = InitAnswers::instance().All();
    EXPECT_LE(answers.size(), 2u);
    EXPECT_FALSE(answers[0]);
    EXPECT_TRUE(virtcam::bus::wait_until(
        [&] { return log().count(4, "CCameraFwLoader::Run()\r\n") == 2; }, kLimit));
    // The first loader says nothing more once the second has begun.
    std::vector<std::thread::id> loaders;
    for (const LogLine& line : log().lines()) {
        if (line.text == "CCameraFwLoader::Run()\r\n") {
            loaders.push_back(line.thread);
        } else if (loaders.size() == 2 && loaders[0] != loaders[1]) {
            EXPECT_NE(line.thread, loaders[0]) << line;
        }
    }
    EXPECT_EQ(loaders.size(), 2u);
}

TEST_F(Initialisation, DestructionDuringTheSearchDoesNotCallBack) {
    virtcam::bus::unplug();
    Create();
    camera_->Init(InitAnswers::Callback, 0);
    Destroy();
    EXPECT_TRUE(InitAnswers::instance().All().empty());
}

TEST_F(Initialisation, DestructionDuringTheHandOverDoesNotCallBack) {
    Create();
    std::atomic<bool> reached{false};
    std::atomic<bool> destroying{false};
    clock().on_sleep([&](const SleepCall&) {
        if (log().has(4, "Create Video, Audio capture class.\r\n") && !reached.exchange(true)) {
            virtcam::bus::wait_until([&] { return destroying.load(); }, kLimit);
        }
    });
    camera_->Init(InitAnswers::Callback, 0);
    ASSERT_TRUE(virtcam::bus::wait_until([&] { return reached.load(); }, kLimit));
    std::thread destroyer([&] { Destroy(); });
    ASSERT_TRUE(log().wait_for(4, "CAitOrixCamera::~CAitOrixCamera() destruction+.\r\n", kLimit));
    destroying = true;
    destroyer.join();
    clock().on_sleep(nullptr);
    ExpectUnusualRelease();
    EXPECT_TRUE(InitAnswers::instance().All().empty());
}

TEST_F(Initialisation, AReportAfterTheStartOfDestructionTouchesNothing) {
    Create();
    Destroy();  // the flag stays set until the next construction
    CAitOrixCamera::CamInitDoneCallback(CAMERA_STATUS_OK, nullptr);
    EXPECT_TRUE(InitAnswers::instance().All().empty());
}

TEST_F(Initialisation, UnpluggedWhileIdle) {
    Ready(false);
    virtcam::bus::unplug();
    ASSERT_TRUE(InitAnswers::instance().Wait(2)) << log_listing();
    EXPECT_EQ(InitAnswers::instance().All(), (std::vector<bool>{true, false}));
    EXPECT_EQ(camera_->GetState(), CAM_STATE_DISCONNECTED);
    EXPECT_LOG(1, "Abnormal StopRecording.\r\n");
    virtcam::bus::plug();
    EXPECT_TRUE(camera_->StartRecording());  // refused, as in every state but ready
    EXPECT_LOG(1, "StartRecording twice\r\n");
}

TEST_F(Initialisation, UnpluggedWhileRecording) {
    Playing(false);
    RecordingObserver gray(CAM_STREAM_GRAY);
    camera_->RegisterObserver(&gray);
    ASSERT_TRUE(gray.WaitFor(2));
    virtcam::bus::unplug();
    ASSERT_TRUE(InitAnswers::instance().Wait(2)) << log_listing();
    EXPECT_EQ(InitAnswers::instance().All(), (std::vector<bool>{true, false}));
    EXPECT_EQ(camera_->GetState(), CAM_STATE_DISCONNECTED);
    EXPECT_EQ(gray.size_, 0u);  // the terminating record was the last
    camera_->RemoveObserver(&gray);
}

}  // namespace
}  // namespace test
