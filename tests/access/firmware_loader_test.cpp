// The firmware loader: start-up by both boot codes, every way to end, and the monitor.
#include "CameraFwLoader.h"

#include <locale.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "CamDestroyFlag.h"
#include "CameraIdentity.h"
#include "LibusbWrap.h"
#include "tests/access/UsbCalls.h"
#include "tests/support/BusTest.h"
#include "tests/support/ControlSequence.h"
#include "tests/support/Fakes.h"
#include "tests/support/TvFiles.h"

namespace test {
namespace {

using namespace std::chrono_literals;
using ::testing::NiceMock;

constexpr auto kLimit = 20s;

/// Collects the loader's reports.
class Reports {
  public:
    static void Callback(unsigned status, void* data) {
        auto* self = static_cast<Reports*>(data);
        const size_t pauses = TestClock::instance().count(1s);
        std::lock_guard lock(self->mutex_);
        self->statuses_.push_back(status);
        self->pauses_.push_back(pauses);
        self->changed_.notify_all();
    }
    /// Pauses of a second that went before a report.
    size_t PausesBefore(size_t index) {
        std::lock_guard lock(mutex_);
        return pauses_.at(index);
    }
    std::vector<unsigned> All() {
        std::lock_guard lock(mutex_);
        return statuses_;
    }
    bool Wait(size_t count) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, kLimit, [&] { return statuses_.size() >= count; });
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<unsigned> statuses_;
    std::vector<size_t> pauses_;
};

std::string VersionFile(const std::string& version) {
    return "<Camera><Version>" + version + "</Version></Camera>";
}

std::string ImageWithVersion(char high, char low) {
    std::string image = ImageOf(2000);
    image.replace(64, 14, std::string("AITFWVER") + std::string("\0\1\0\x45", 4) + high + low);
    return image;
}

class FirmwareLoader : public BusTest {
  protected:
    explicit FirmwareLoader(const nlohmann::json& configuration = BootCodeCamera())
        : BusTest(configuration) {
        RemoveTvFiles();
        SetCamDestroy(false);
        WriteFile("/mtd_exe/lumo/Tarlo_Ext_FW.bin", ImageWithVersion(1, 2));
        WriteFile("/mtd_exe/lumo/opxCamera.xml", VersionFile("1.0"));
        WriteFile("/mtd_rwcommon/lumo/bin/Tarlo_Ext_FW.bin", ImageWithVersion(3, 4));
        WriteFile("/mtd_rwcommon/lumo/bin/opxCamera.xml", VersionFile("2.0"));
        MakeLoader();
    }
    ~FirmwareLoader() override {
        loader_.reset();
        SetCamDestroy(false);
    }

    void MakeLoader() {
        loader_ =
            std::make_unique<CCameraFwLoader>(kBootCodeProductId, kCameraVendorId, 2, &subject_);
        loader_->SetInitDoneCallback(Reports::Callback, &reports_);
    }
    void Start() { loader_->Start(nullptr); }
    /// Runs the start-up to its first report.
    unsigned Result() {
        Start();
        EXPECT_TRUE(reports_.Wait(1)) << log_listing();
        const auto all = reports_.All();
        return all.empty() ? 99 : all[0];
    }
    void Stop() { loader_->Stop(); }
    size_t Pauses() { return clock().count(1s); }
    /// A boot code without the newer interface makes the first open leave what it has.
    void ExpectLeavingsOfFailedClaim() {
        Stop();  // what the running loader holds open is not left behind
        for (const auto& leak : virtcam::bus::leaks()) {
            ExpectComplaint(leak.text);
        }
    }
    static nlohmann::json Camera(const nlohmann::json& more) {
        nlohmann::json configuration = BootCodeCamera();
        configuration["camera"].update(more);
        return configuration;
    }
    void Reset(const nlohmann::json& configuration) { virtcam::bus::reset(configuration); }
    static size_t Opens() { return virtcam::bus::call_counts()["libusb_open"]; }

    NiceMock<FakeSubject> subject_;
    Reports reports_;
    std::unique_ptr<CCameraFwLoader> loader_;
};

TEST_F(FirmwareLoader, PathsAreTheTelevisions) {
    EXPECT_STREQ(fw_path_name, "/mtd_rwcommon/lumo/bin/Tarlo_Ext_FW.bin");
    EXPECT_STREQ(exe_fw_path_name, "/mtd_exe/lumo/Tarlo_Ext_FW.bin");
    EXPECT_STREQ(boot_path_name, "/mtd_rwcommon/lumo/bin/VespinPlus_BC.bin");
    EXPECT_STREQ(exe_boot_path_name, "/mtd_exe/lumo/VespinPlus_BC.bin");
}

TEST_F(FirmwareLoader, StatusNumbersAreTheHosts) {
    EXPECT_EQ(int{CAMERA_STATUS_OK}, 0);
    EXPECT_EQ(int{CAMERA_CANT_FOUND_DEVICE}, 1);
    EXPECT_EQ(int{CAMERA_LOAD_FW_FAILED}, 2);
    EXPECT_EQ(int{CAMERA_STATUS_ERROR}, 3);
}

TEST_F(FirmwareLoader, BootCodeVersionIsBigEndian) {
    virtcam::bus::add_fault({{"on", {{"control", {{"type", 0xA0}, {"value", 0x0200}}}}},
                             {"nth", 1},
                             {"do", {{"reply", "000012345678AABB"}}}});
    EXPECT_EQ(Result(), unsigned{CAMERA_STATUS_OK});
    EXPECT_LOG_COUNT(1, "BootCode version is 0x12345678\r\n", 1);
}

TEST_F(FirmwareLoader, ABootCodeWithoutAVersionIsLoadedAllTheSame) {
    virtcam::bus::add_fault({{"on", {{"control", {{"type", 0x20}, {"value", 0x0100}}}}},
                             {"nth", 1},
                             {"do", {{"return", "LIBUSB_ERROR_PIPE"}}}});
    EXPECT_EQ(Result(), unsigned{CAMERA_STATUS_OK});
    EXPECT_EQ(log().count_containing("BootCode version"), 0u);
}

TEST_F(FirmwareLoader, LaterOpensTakeTheOlderInterface) {
    // The newer interface is refused once and the older one twice.
    virtcam::bus::add_fault({{"on", {{"call", "libusb_open"}}},
                             {"count", 3},
                             {"do", {{"return", "LIBUSB_ERROR_ACCESS"}}}});
    EXPECT_EQ(Result(), unsigned{CAMERA_STATUS_OK});
    EXPECT_EQ(log().count_containing("OpenAitDevice claim interface. interface=2 "), 0u);
    EXPECT_LOG_COUNT(4, "OpenAitDevice claim interface. interface=0 hr=0\r\n", 1);
    EXPECT_LOG_COUNT(4, "Current boot code is using UVC interface.\r\n", 1);
    EXPECT_LOG(4, "use_pcsync is 0\n");
    ExpectLeavingsOfFailedClaim();
}

/// Asks the loader to stop from its own thread, before transfer number `nth`; transfers made since.
class StopBefore {
  public:
    StopBefore(pThread& loader, int nth) {
        before_each_transfer([this, &loader, nth] {
            if (++count_ == nth) {
                loader.Stop();
            }
        });
    }
    ~StopBefore() { before_each_transfer(nullptr); }
    int Count() const { return count_; }

  private:
    std::atomic<int> count_{0};
};

TEST_F(FirmwareLoader, AStopEndsABulkDownloadAfterThePieceInTransfer) {
    StopBefore stop(*loader_, 6);
    Start();
    ASSERT_TRUE(virtcam::bus::wait_until([&] { return stop.Count() >= 6; }, kLimit));
    loader_ = nullptr;
    EXPECT_EQ(stop.Count(), 6);  // version, its answer, announcement, three pieces of four
    EXPECT_TRUE(reports_.All().empty());
    EXPECT_NO_LOG(4, "Start burning.\r\n");
}

TEST_F(FirmwareLoader, AStopEndsADownloadByTheExtensionUnitAfterThePieceInTransfer) {
    virtcam::bus::add_fault({{"on", {{"call", "libusb_open"}}},
                             {"count", 1},
                             {"do", {{"return", "LIBUSB_ERROR_ACCESS"}}}});
    StopBefore stop(*loader_, 10);
    Start();
    ASSERT_TRUE(virtcam::bus::wait_until([&] { return stop.Count() >= 10; }, kLimit));
    ExpectLeavingsOfFailedClaim();
    loader_ = nullptr;
    EXPECT_EQ(stop.Count(), 10);
    EXPECT_TRUE(reports_.All().empty());
    EXPECT_NO_LOG(4, "Start burning.\r\n");
}

TEST_F(FirmwareLoader, ALoaderThatWasAskedToStopDoesNotReport) {
    std::atomic<bool> asked{false};
    before_each_transfer([&] {
        if (log().has(4, "Exit UpdateFirmwareUvcPath. \r\n")) {
            loader_->Stop();  // while it reads the run-time camera's version
            asked = true;
        }
    });
    Start();
    ASSERT_TRUE(virtcam::bus::wait_until([&] { return asked.load(); }, kLimit));
    before_each_transfer(nullptr);
    loader_ = nullptr;
    EXPECT_TRUE(reports_.All().empty());
}

TEST_F(FirmwareLoader, EveryLineOfAStartByTheExtensionUnitPath) {
    virtcam::bus::add_fault({{"on", {{"call", "libusb_open"}}},
                             {"count", 1},
                             {"do", {{"return", "LIBUSB_ERROR_ACCESS"}}}});
    std::filesystem::remove("/mtd_rwcommon/lumo/bin/opxCamera.xml");
    clock().on_sleep([](const SleepCall&) {
        // The camera is back before the first look at the listing.
        virtcam::bus::wait_until([] { return virtcam::bus::camera().attached(); }, kLimit);
    });
    ASSERT_EQ(Result(), unsigned{CAMERA_STATUS_OK});
    const Lines lines = Log([](const LogLine& line) {
        const bool ofTheListing =
            line.function == "IsProcDeviceChanged" || line.function == "t_SearchAITUsbCamera";
        return line.level != 5 && !ofTheListing && line.function != "OpenAitDevice";
    });
    const std::pair<unsigned, std::string> noDownload[] = {
        {1, "no version file in /mtd_rwcommon/lumo/bin/opxCamera.xml, start update\n"},
        {1, "use /mtd_exe/lumo/\n"}};
    EXPECT_EQ(
        lines,
        (Lines{{4, "CCameraFwLoader::Run()\r\n"},
               {4, "CCameraFwLoader::Run() Open device VID=0x114D, PID=0x2065, Interface=2 \r\n"},
               {4, "Current boot code is using UVC interface.\r\n"},
               {4, "Exit OpenAitDevice. \r\n"},
               {1, "BootCode version is 0x100\r\n"},
               {4, "use_pcsync is 0\n"},
               noDownload[0],
               noDownload[1],
               {1, "FW file[/mtd_rwcommon/lumo/bin/Tarlo_Ext_FW.bin] does not exist\n"},
               {4, "FW file is [/mtd_exe/lumo/Tarlo_Ext_FW.bin]\n"},
               {4, "Enter UpdateFirmwareUvcPath. \r\n"},
               {4, "binary size=2000 bytes\r\n"},
               {4, "UVC path fw update init.\r\n"},
               {4, "UVC path fw data transfer.\r\n"},
               {4, "Start burning.\r\n"},
               {1, "Update flash successfully.\r\n"},
               {4, "Exit UpdateFirmwareUvcPath. \r\n"},
               {1, "Camera-Version:1.45.102"},
               noDownload[0],
               noDownload[1],
               {4, "Camera firmware ready. change status to CAMERA_STATUS_OK.\r\n"}}));
    ExpectLeavingsOfFailedClaim();
}

TEST_F(FirmwareLoader, LoadsByTheBulkPathAndReportsReady) {
    EXPECT_EQ(Result(), unsigned{CAMERA_STATUS_OK});
    Stop();
    EXPECT_EQ(reports_.All().size(), 1u);
    EXPECT_EQ(ReadFile("/dtv/cm_cam_version"), "1.45.304");
    const auto flash = virtcam::bus::camera().flash();
    EXPECT_EQ(std::string(flash.begin(), flash.end()),
              ReadFile("/mtd_rwcommon/lumo/bin/Tarlo_Ext_FW.bin"));
    const std::pair<unsigned, const char*> inOrder[] = {
        {4, "CCameraFwLoader::Run()\r\n"},
        {4, "CCameraFwLoader::Run() Open device VID=0x114D, PID=0x2065, Interface=2 \r\n"},
        {4, "Exit OpenAitDevice. \r\n"},
        {1, "BootCode version is 0x100\r\n"},
        {4, "use_pcsync is 1\n"},
        {4, "defaultVersion version : 1.0 \n"},
        {4, "opxVersion version : 2.0 \n"},
        {4, "opx driver version is newer than default driver version \n"},
        {4, "FW file is [/mtd_rwcommon/lumo/bin/Tarlo_Ext_FW.bin]\n"},
        {4, "Enter UpdateFirmwarePcsyncPath. \r\n"},
        {4, "Exit UpdateFirmwareUvcPath. \r\n"},
        {1, "Camera-Version:1.45.304"},
        {4, "Camera firmware ready. change status to CAMERA_STATUS_OK.\r\n"},
        {4, "Exit device mointer trhead.\r\n"},
    };
    const auto lines = log().lines();
    auto from = lines.begin();
    for (const auto& [level, text] : inOrder) {
        from = std::find_if(from, lines.end(), [&, l = level, t = text](const LogLine& line) {
            return line.level == l && line.text == t;
        });
        EXPECT_NE(from, lines.end()) << text << log_listing();
    }
    EXPECT_NO_LOG(4, "Current boot code is using UVC interface.\r\n");
    EXPECT_LOG_COUNT(4, "opx driver version is newer than default driver version \n", 2);
}

TEST_F(FirmwareLoader, OpensTheRunTimeCameraWithoutAnInterface) {
    EXPECT_EQ(Result(), unsigned{CAMERA_STATUS_OK});
    EXPECT_LOG(4, "OpenAitDevice claim interface. interface=2 hr=0\r\n");
    EXPECT_LOG(4, "OpenAitDevice claim interface. interface=255 hr=0\r\n");
}

TEST_F(FirmwareLoader, TheOlderBootCodeTakesTheExtensionUnitPath) {
    Reset(Camera({{"boot_code", "older"}}));
    EXPECT_EQ(Result(), unsigned{CAMERA_STATUS_OK});
    EXPECT_LOG(4, "Current boot code is using UVC interface.\r\n");
    EXPECT_LOG(4, "OpenAitDevice claim interface. interface=0 hr=0\r\n");
    EXPECT_LOG(4, "use_pcsync is 0\n");
    EXPECT_LOG(4, "Enter UpdateFirmwareUvcPath. \r\n");
    Stop();
    EXPECT_EQ(ReadFile("/dtv/cm_cam_version"), "1.45.304");
    ExpectLeavingsOfFailedClaim();
}

TEST_F(FirmwareLoader, VersionRecordHasTheFixedMiddle) {
    WriteFile("/mtd_rwcommon/lumo/bin/Tarlo_Ext_FW.bin", ImageOf(2000));
    EXPECT_EQ(Result(), unsigned{CAMERA_STATUS_OK});
    EXPECT_EQ(ReadFile("/dtv/cm_cam_version"), "1.45.203");
    EXPECT_LOG(1, "Camera-Version:1.45.203");
}

TEST_F(FirmwareLoader, EveryFieldOfTheVersionRecord) {
    std::string image = ImageOf(2000);
    image.replace(64, 14, "AITFWVER" + std::string("\x12\x34\x56\x78\x00\x05", 6));
    WriteFile("/mtd_rwcommon/lumo/bin/Tarlo_Ext_FW.bin", image);
    EXPECT_EQ(Result(), unsigned{CAMERA_STATUS_OK});
    EXPECT_EQ(ReadFile("/dtv/cm_cam_version"), "1234.45.05");
    EXPECT_LOG(1, "Camera-Version:1234.45.05");
}

TEST_F(FirmwareLoader, AnOlderVersionRecordIsReplaced) {
    WriteFile("/dtv/cm_cam_version", "a record of another camera");
    EXPECT_EQ(Result(), unsigned{CAMERA_STATUS_OK});
    EXPECT_EQ(ReadFile("/dtv/cm_cam_version"), "1.45.304");
}

TEST_F(FirmwareLoader, DestructionWaitsForTheThread) {
    ASSERT_EQ(Result(), unsigned{CAMERA_STATUS_OK});
    virtcam::bus::clear_logs();
    loader_.reset();
    EXPECT_LOG_COUNT(4, "Exit device mointer trhead.\r\n", 1);
    size_t closes = 0;
    for (const auto& call : virtcam::bus::call_log()) {
        if (call.name == "libusb_close") {
            ++closes;
            EXPECT_NE(call.thread, std::this_thread::get_id());  // the monitor closed its camera
        }
    }
    EXPECT_EQ(closes, 1u);
}

TEST_F(FirmwareLoader, AVersionRecordThatCannotBeWrittenIsReported) {
    std::filesystem::create_directory("/dtv/cm_cam_version");
    EXPECT_EQ(Result(), unsigned{CAMERA_STATUS_OK});
    EXPECT_LOG(1, "Can't open file. /dtv/cm_cam_version!!!\r\n");
}

TEST_F(FirmwareLoader, TakesTheShippedFirmwareWhenItIsNewer) {
    WriteFile("/mtd_exe/lumo/opxCamera.xml", VersionFile("3.0"));
    EXPECT_EQ(Result(), unsigned{CAMERA_STATUS_OK});
    EXPECT_EQ(ReadFile("/dtv/cm_cam_version"), "1.45.102");
    EXPECT_LOG(1, "FW file[/mtd_rwcommon/lumo/bin/Tarlo_Ext_FW.bin] does not exist\n");
    EXPECT_LOG(4, "FW file is [/mtd_exe/lumo/Tarlo_Ext_FW.bin]\n");
}

TEST_F(FirmwareLoader, AFailedLoadEndsWithOneReport) {
    std::filesystem::remove("/mtd_rwcommon/lumo/bin/Tarlo_Ext_FW.bin");
    EXPECT_EQ(Result(), unsigned{CAMERA_LOAD_FW_FAILED});
    Stop();
    EXPECT_LOG(1, "CCameraFwLoader :Failed to load firmware, exit. \r\n");
    EXPECT_EQ(reports_.All().size(), 1u);
    EXPECT_EQ(Pauses(), 0u);
    EXPECT_TRUE(virtcam::bus::leaks().empty());  // closed by the thread itself
}

TEST_F(FirmwareLoader, AFailedLoadDuringDestructionIsNotReported) {
    std::filesystem::remove("/mtd_rwcommon/lumo/bin/Tarlo_Ext_FW.bin");
    SetCamDestroy(true);
    Start();
    ASSERT_TRUE(log().wait_for(1, "CCameraFwLoader :Failed to load firmware, exit. \r\n", kLimit));
    Stop();
    EXPECT_TRUE(reports_.All().empty());
}

TEST_F(FirmwareLoader, NoCameraAtAll) {
    virtcam::bus::unplug();
    EXPECT_EQ(Result(), unsigned{CAMERA_CANT_FOUND_DEVICE});
    Stop();
    EXPECT_EQ(Pauses(), 5u);
    EXPECT_LOG_COUNT(1, "CCameraFwLoader: Libusb failed to open AIT device.\r\n", 1);
    EXPECT_LOG_COUNT(1, "No AIT device has been detected.\r\n", 7);  // six opens, one presence test
    EXPECT_LOG_COUNT(4, "Exit OpenAitDevice. \r\n", 1);
    EXPECT_EQ(reports_.All().size(), 1u);
}

TEST_F(FirmwareLoader, ACameraThatAlreadyRunsSkipsTheLoad) {
    Reset(RunningCamera());
    EXPECT_EQ(Result(), unsigned{CAMERA_STATUS_OK});
    EXPECT_LOG(
        4, "!!!!!!!!!!!! CCameraFwLoader:: Found a device with CAMERA vid/pid. !!!!!!!!!!!!!\r\n");
    EXPECT_EQ(ReadFile("/dtv/cm_cam_version"), "1.45.203");
    EXPECT_NO_LOG(4, "Enter UpdateFirmwarePcsyncPath. \r\n");
    EXPECT_EQ(reports_.PausesBefore(0), 6u);  // five retries of the open, one before the first scan
}

TEST_F(FirmwareLoader, ACameraThatNeverComesBack) {
    Reset(Camera({{"returns", false}}));
    clock().shorten(1ms);
    EXPECT_EQ(Result(), unsigned{CAMERA_LOAD_FW_FAILED});
    Stop();
    EXPECT_LOG(1, "Camera reboot failed. \r\n");
    EXPECT_EQ(Pauses(), 17u);  // one, and 16 between 17 scans
    EXPECT_EQ(log().count_containing("Access Time (Sec.) : "), 17u);
}

TEST_F(FirmwareLoader, ACameraThatComesBackButCannotBeOpened) {
    virtcam::bus::add_fault({{"on", {{"call", "libusb_open"}}},
                             {"from", 2},
                             {"do", {{"return", "LIBUSB_ERROR_ACCESS"}}}});
    EXPECT_EQ(Result(), unsigned{CAMERA_CANT_FOUND_DEVICE});
    Stop();
    EXPECT_LOG(1, "CCameraFwLoader: Failed to open camera device. exit \r\n");
    EXPECT_NO_LOG(1, "Camera reboot failed. \r\n");
    ExpectLeavingsOfFailedClaim();
}

TEST_F(FirmwareLoader, ACameraThatCannotBeOpenedDuringDestructionLeavesAnIdleMonitor) {
    virtcam::bus::add_fault({{"on", {{"call", "libusb_open"}}},
                             {"from", 2},
                             {"do", {{"return", "LIBUSB_ERROR_ACCESS"}}}});
    SetCamDestroy(true);
    Start();
    ASSERT_TRUE(log().wait_for(1, "Camera-Version:0.45.00", kLimit)) << log_listing();
    const size_t before = Pauses();
    ASSERT_TRUE(virtcam::bus::wait_until([&] { return Pauses() >= before + 3; }, kLimit));
    Stop();
    EXPECT_TRUE(reports_.All().empty());
    EXPECT_EQ(log().count_containing("AIT Camera Checking"), 0u);
    EXPECT_NO_LOG(1, "CCameraFwLoader: Failed to open camera device. exit \r\n");
    EXPECT_LOG(4, "Exit device mointer trhead.\r\n");
    ExpectLeavingsOfFailedClaim();
}

TEST_F(FirmwareLoader, AStopDuringThePauseEndsItWithoutAReport) {
    struct Loader : CCameraFwLoader {
        using CCameraFwLoader::CCameraFwLoader;
        using pThread::Shutdown;
    };
    for (const bool plugged : {false, true}) {
        Reset(Camera({{"returns", false}}));
        if (!plugged) {
            virtcam::bus::unplug();
        }
        Loader loader(kBootCodeProductId, kCameraVendorId, 2, &subject_);
        loader.SetInitDoneCallback(Reports::Callback, &reports_);
        std::atomic<int> pauses{0};
        clock().on_sleep([&](const SleepCall& call) {
            if (call.duration == 1s && ++pauses == 3) {
                loader.Shutdown = true;
            }
        });
        loader.Start(nullptr);
        EXPECT_TRUE(virtcam::bus::wait_until([&] { return pauses >= 3; }, kLimit));
        loader.Stop();
        EXPECT_EQ(pauses, 3);
        EXPECT_TRUE(reports_.All().empty());
        clock().on_sleep(nullptr);
    }
}

TEST_F(FirmwareLoader, WhileTheCameraObjectGoesNothingIsReported) {
    SetCamDestroy(true);
    Start();
    EXPECT_TRUE(log().wait_for(1, "Camera-Version:1.45.304", kLimit)) << log_listing();
    Stop();
    EXPECT_TRUE(reports_.All().empty());
    EXPECT_NO_LOG(4, "Camera firmware ready. change status to CAMERA_STATUS_OK.\r\n");
}

// --- monitor -------------------------------------------------------------------------------------

TEST_F(FirmwareLoader, MonitorAsksOnceASecond) {
    ASSERT_EQ(Result(), unsigned{CAMERA_STATUS_OK});
    virtcam::bus::clear_logs();
    ASSERT_TRUE(virtcam::bus::wait_until([] { return Requests().size() >= 3; }, kLimit));
    Stop();
    for (const Request& request : Requests()) {
        EXPECT_EQ(request, Read(0xA0, 0x81, 0x0200, 0x0600, 8, 5000));
    }
    const size_t checks = log().count(5, "CCameraFwLoader ****** : AIT Camera Checking hr=0\r\n");
    EXPECT_GE(checks, 3u);
    EXPECT_EQ(Pauses(), reports_.PausesBefore(0) + checks);
    EXPECT_LOG(4, "Exit device mointer trhead.\r\n");
    EXPECT_TRUE(virtcam::bus::leaks().empty());  // closed by the thread itself
}

TEST_F(FirmwareLoader, AnUnpluggedCameraIsReportedOnce) {
    ASSERT_EQ(Result(), unsigned{CAMERA_STATUS_OK});
    std::atomic<int> stops{0};
    ON_CALL(subject_, StopRecording).WillByDefault([&] {
        EXPECT_EQ(reports_.All().size(), 1u);  // before the report
        EXPECT_EQ(clock().count(300ms), 1u);   // after the camera had time to settle
        EXPECT_LOG(4, "CloseAitDevice -\r\n");
        EXPECT_TRUE(virtcam::bus::leaks().empty());  // and after it was closed
        ++stops;
        return true;
    });
    virtcam::bus::unplug();
    ASSERT_TRUE(reports_.Wait(2));
    Stop();
    EXPECT_EQ(reports_.All(), (std::vector<unsigned>{CAMERA_STATUS_OK, CAMERA_CANT_FOUND_DEVICE}));
    EXPECT_EQ(stops, 1);
    EXPECT_EQ(clock().count(300ms), 1u);
    EXPECT_LOG(1, "!!!  AIT Camera Checking :: Camera is disconnected. , hr=-4 !!!\r\n");
    const auto texts = log().texts(4);
    ASSERT_GE(texts.size(), 3u);
    EXPECT_EQ(std::vector<std::string>(texts.end() - 3, texts.end()),
              (std::vector<std::string>{"CloseAitDevice +\r\n", "CloseAitDevice -\r\n",
                                        "Exit device mointer trhead.\r\n"}));
}

TEST_F(FirmwareLoader, TheCameraMayGoWhileItsVersionIsAsked) {
    ASSERT_EQ(Result(), unsigned{CAMERA_STATUS_OK});
    std::atomic<bool> over{false};
    std::atomic<int> asked{0};
    std::thread host([&] {
        while (!over) {
            loader_->GetCamVersion();
            ++asked;
        }
    });
    EXPECT_TRUE(virtcam::bus::wait_until([&] { return asked >= 3; }, kLimit));
    virtcam::bus::unplug();
    EXPECT_TRUE(reports_.Wait(2));
    const int then = asked;
    EXPECT_TRUE(virtcam::bus::wait_until([&] { return asked >= then + 2; }, kLimit));
    over = true;
    host.join();
    EXPECT_FALSE(loader_->GetCamVersion());
}

TEST_F(FirmwareLoader, SixTimeoutsAreForgivenInAllTheSeventhIsNot) {
    ASSERT_EQ(Result(), unsigned{CAMERA_STATUS_OK});
    // Five in a row, then answers, then two more.
    virtcam::bus::add_fault({{"on", {{"control", {{"type", 0xA0}, {"value", 0x0200}}}}},
                             {"count", 5},
                             {"do", {{"timeout", "now"}}}});
    virtcam::bus::add_fault({{"on", {{"control", {{"type", 0xA0}, {"value", 0x0200}}}}},
                             {"from", 8},
                             {"count", 2},
                             {"do", {{"timeout", "now"}}}});
    ASSERT_TRUE(reports_.Wait(2)) << log_listing();
    Stop();
    EXPECT_EQ(reports_.All()[1], unsigned{CAMERA_CANT_FOUND_DEVICE});
    EXPECT_LOG_COUNT(5, "CCameraFwLoader ****** : AIT Camera Checking hr=-7\r\n", 7);
    EXPECT_LOG(1, "!!!  AIT Camera Checking :: Camera is disconnected. , hr=-7 !!!\r\n");
}

TEST_F(FirmwareLoader, ForgivenTimeoutsDoNotPause) {
    ASSERT_EQ(Result(), unsigned{CAMERA_STATUS_OK});
    virtcam::bus::add_fault(
        {{"on", {{"control", {{"type", 0xA0}, {"value", 0x0200}}}}}, {"do", {{"timeout", "now"}}}});
    ASSERT_TRUE(reports_.Wait(2));
    Stop();
    EXPECT_LOG_COUNT(5, "CCameraFwLoader ****** : AIT Camera Checking hr=-7\r\n", 7);
    EXPECT_EQ(Pauses(),
              reports_.PausesBefore(0) +
                  log().count(5, "CCameraFwLoader ****** : AIT Camera Checking hr=0\r\n"));
}

TEST_F(FirmwareLoader, ADisconnectionDuringDestructionIsNotReported) {
    ASSERT_EQ(Result(), unsigned{CAMERA_STATUS_OK});
    SetCamDestroy(true);
    virtcam::bus::unplug();
    ASSERT_TRUE(log().wait_for(4, "Exit device mointer trhead.\r\n", kLimit));
    Stop();
    EXPECT_EQ(reports_.All().size(), 1u);
}

// --- version -------------------------------------------------------------------------------------

TEST_F(FirmwareLoader, VersionOfAnOpenCamera) {
    ASSERT_EQ(Result(), unsigned{CAMERA_STATUS_OK});
    virtcam::bus::clear_logs();
    EXPECT_TRUE(loader_->GetCamVersion());
    log().reset();
    virtcam::bus::add_fault({{"on", {{"control", {{"type", 0x20}, {"value", 0x0100}}}}},
                             {"do", {{"return", "LIBUSB_ERROR_PIPE"}}}});
    EXPECT_FALSE(loader_->GetCamVersion());
    EXPECT_LOG(1, "Get Firmware Version error\r\n");
}

TEST_F(FirmwareLoader, AVersionOfZeroIsNone) {
    // Only the second, fourth and sixth byte count.
    struct Case {
        std::string version;
        bool good;
    };
    for (const Case& c :
         {Case{std::string("\0\0\0\0\0\0", 6), false}, Case{std::string("\1\0\1\0\1\0", 6), false},
          Case{std::string("\0\1\0\0\0\0", 6), true}, Case{std::string("\0\0\0\1\0\0", 6), true},
          Case{std::string("\0\0\0\0\0\1", 6), true}}) {
        loader_.reset();
        Reset(BootCodeCamera());
        log().reset();
        std::string image = ImageOf(2000);
        image.replace(64, 14, "AITFWVER" + c.version);
        WriteFile("/mtd_rwcommon/lumo/bin/Tarlo_Ext_FW.bin", image);
        MakeLoader();
        const size_t before = reports_.All().size();
        Start();
        ASSERT_TRUE(reports_.Wait(before + 1));
        EXPECT_EQ(loader_->GetCamVersion(), c.good);
        EXPECT_EQ(log().has(1, "Camera Versins is 0\r\n"), !c.good);
    }
}

TEST_F(FirmwareLoader, VersionWithoutACamera) {
    EXPECT_FALSE(loader_->GetCamVersion());
    EXPECT_LOG(1, "Get Firmware Version error\r\n");
}

// --- choice of files -----------------------------------------------------------------------------

struct Choice {
    const char* name;
    const char* shipped;     // content; null: no file
    const char* downloaded;  // likewise
    bool takesShipped;
    Lines lines;
};

void PrintTo(const Choice& choice, std::ostream* out) {
    *out << choice.name;
}

class FirmwareChoice : public PluginTest, public ::testing::WithParamInterface<Choice> {};

TEST_P(FirmwareChoice, Decides) {
    RemoveTvFiles();
    if (GetParam().shipped != nullptr) {
        WriteFile("/mtd_exe/lumo/opxCamera.xml", GetParam().shipped);
    }
    if (GetParam().downloaded != nullptr) {
        WriteFile("/mtd_rwcommon/lumo/bin/opxCamera.xml", GetParam().downloaded);
    }
    CCameraFwLoader loader(0x2065, 0x114D, 2, nullptr);
    EXPECT_EQ(loader.UseDefaultVersion(), GetParam().takesShipped);
    EXPECT_EQ(Log(), GetParam().lines);
}

Lines Compared(size_t length, const std::string& shipped, const std::string& downloaded,
               bool newer) {
    return {{4, "opxVersion Version XML String length=" + std::to_string(length) + " \n"},
            {4, "defaultVersion version : " + shipped + " \n"},
            {4, "opxVersion version : " + downloaded + " \n"},
            newer ? std::pair<unsigned,
                              std::string>{1, "default driver version is newer than opx version \n"}
                  : std::pair<unsigned, std::string>{
                        4, "opx driver version is newer than default driver version \n"}};
}

INSTANTIATE_TEST_SUITE_P(
    Files, FirmwareChoice,
    ::testing::Values(
        Choice{"neither", nullptr, nullptr, false, {{1, "use /mtd_down/lumo/bin\n"}}},
        Choice{"no shipped",
               nullptr,
               "<Version>1</Version>",
               false,
               {{1, "use /mtd_down/lumo/bin\n"}}},
        Choice{"no downloaded",
               "<Version>1</Version>",
               nullptr,
               true,
               {{1, "no version file in /mtd_rwcommon/lumo/bin/opxCamera.xml, start update\n"},
                {1, "use /mtd_exe/lumo/\n"}}},
        Choice{"numbers, not texts", "<Version>1.5</Version>", "<Version>1.10</Version>", true,
               Compared(23, "1.5", "1.10", true)},
        Choice{"equal", "<Version>1.5</Version>", "<Version>1.50</Version>", false,
               Compared(23, "1.5", "1.50", false)},
        Choice{"downloaded newer", "<Version>1.5</Version>", "<Version>2</Version>", false,
               Compared(20, "1.5", "2", false)},
        Choice{"empty shipped", "", "<Version>1</Version>", false, {}},
        Choice{"shipped without closing tag",
               "<Version>1",
               "<Version>1</Version>",
               false,
               {{4, "opxVersion Version XML String length=20 \n"},
                {1, "UseDefaultVersion: default camera dir has invalid version info.\n"}}},
        Choice{"downloaded without closing tag",
               "<Version>1</Version>",
               "<Version>9",
               true,
               {{4, "opxVersion Version XML String length=10 \n"},
                {1, "opx version in /mtd_down/lumo/bin has invalid version \n"}}},
        Choice{"downloaded empty",
               "<Version>1</Version>",
               "",
               true,
               {{4, "opxVersion Version XML String length=0 \n"},
                {1, "opx version in /mtd_down/lumo/bin has invalid version \n"}}},
        Choice{"opening tag missing",
               "01234567"
               "7.5</Version>",
               "<Version>7</Version>", true, Compared(20, "7.5", "7", true)},
        Choice{"closing tag before position 8", "</Version>3", "<Version>7</Version>", false,
               Compared(20, "n>3", "7", false)},
        Choice{"opening tag behind the closing one", "</Version><Version>5", "<Version>4</Version>",
               true, Compared(20, "5", "4", true)},
        Choice{"opening tag at the very end", "</Version><Version>", "<Version>-1</Version>", true,
               Compared(21, "", "-1", true)},
        Choice{"no numbers", "<Version>abc</Version>", "<Version>def</Version>", false,
               Compared(22, "abc", "def", false)}));

/// A host's locale with a decimal comma, made where there need not be one.
class DecimalComma {
  public:
    DecimalComma() {
        std::filesystem::create_directories(folder_);
        // Warnings of the definition make its exit status 1.
        (void)!system(("localedef -c -i de_DE -f ISO-8859-1 " + folder_ + "/comma 2>&1").c_str());
        setenv("LOCPATH", folder_.c_str(), 1);
        if (setlocale(LC_NUMERIC, "comma") == nullptr) {
            throw std::runtime_error("no locale with a comma");
        }
    }
    ~DecimalComma() {
        setlocale(LC_NUMERIC, "C");
        unsetenv("LOCPATH");
        std::filesystem::remove_all(folder_);
    }

  private:
    const std::string folder_ = "/tmp/locale." + std::to_string(getpid());
};

TEST(FirmwareChoiceOfAHost, WithADecimalCommaIsNoOther) {
    RemoveTvFiles();
    WriteFile("/mtd_exe/lumo/opxCamera.xml", VersionFile("1.9"));
    WriteFile("/mtd_rwcommon/lumo/bin/opxCamera.xml", VersionFile("1.2"));
    const DecimalComma comma;
    EXPECT_EQ(localeconv()->decimal_point, std::string(","));
    CCameraFwLoader loader(0x2065, 0x114D, 2, nullptr);
    EXPECT_TRUE(loader.UseDefaultVersion());
}

class FirmwareChoiceOfOddFiles : public PluginTest {};

TEST_F(FirmwareChoiceOfOddFiles, WhatIsNoRegularFileIsMissing) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const std::string unsized = "/proc/self/fd/" + std::to_string(ends[0]);
    const char* const files[] = {"/mtd_exe/lumo/opxCamera.xml",
                                 "/mtd_rwcommon/lumo/bin/opxCamera.xml"};
    for (const char* unsizedFile : files) {
        RemoveTvFiles();
        log().reset();
        for (const char* file : files) {
            WriteFile(file, VersionFile(file == files[0] ? "9" : "1"));
        }
        std::filesystem::remove(unsizedFile);
        std::filesystem::create_symlink(unsized, unsizedFile);
        CCameraFwLoader loader(0x2065, 0x114D, 2, nullptr);
        EXPECT_EQ(loader.UseDefaultVersion(), unsizedFile != files[0]);
        EXPECT_LOG(1,
                   unsizedFile == files[0] ? "use /mtd_down/lumo/bin\n" : "use /mtd_exe/lumo/\n");
    }
    close(ends[0]);
    close(ends[1]);
    RemoveTvFiles();
}

TEST_F(FirmwareChoiceOfOddFiles, ReadsOneMebibyteOfAVersionFile) {
    RemoveTvFiles();
    std::string text(1024 * 1024 - 20, ' ');
    text += "<Version>9</Version>";
    WriteFile("/mtd_exe/lumo/opxCamera.xml", text);
    WriteFile("/mtd_rwcommon/lumo/bin/opxCamera.xml", text + std::string(10000, ' '));
    CCameraFwLoader loader(0x2065, 0x114D, 2, nullptr);
    EXPECT_FALSE(loader.UseDefaultVersion());
    EXPECT_LOG(4, "opxVersion Version XML String length=1048576 \n");
    EXPECT_LOG(4, "opxVersion version : 9 \n");
    log().reset();
    WriteFile("/mtd_exe/lumo/opxCamera.xml", " " + text);  // the end of its tag lies outside
    EXPECT_FALSE(loader.UseDefaultVersion());
    EXPECT_LOG(1, "UseDefaultVersion: default camera dir has invalid version info.\n");
    RemoveTvFiles();
}

// --- boot code -----------------------------------------------------------------------------------

class BootCodeUpdate : public FirmwareLoader {
  protected:
    int Update(unsigned long deviceVersion) {
        return loader_->UpdateBootCode(nullptr, path_, deviceVersion);
    }
    void WriteBootCode(uint32_t word, size_t size = 0x3000) {
        std::string image = ImageOf(size);
        for (size_t i = 0; i < 4; ++i) {
            image[0x2032 + i] = static_cast<char>(word >> (8 * i));
        }
        WriteFile(path_, image);
    }
    char path_[64] = "/dtv/boot.bin";
};

TEST_F(BootCodeUpdate, WithoutFile) {
    EXPECT_EQ(Update(0), 0);
    EXPECT_LOG(4, "New firmware file does not found. skip firmware update procdure.\r\n");
}

TEST_F(BootCodeUpdate, WithoutMark) {
    for (const uint32_t word : {0xFAD00123u, 0xFAB00123u, 0x0AC00123u, 0u}) {
        WriteBootCode(word);
        log().reset();
        EXPECT_EQ(Update(0), AIT_ERR_DEVICE);
        EXPECT_LOG(4, "Boot code binary incorrect. skip update procedure.\r\n");
    }
    WriteFile(path_, ImageOf(0x2035));
    log().reset();
    EXPECT_EQ(Update(0), AIT_ERR_DEVICE);
    EXPECT_EQ(log().texts(4),
              (std::vector<std::string>{"FwVerCode=0x0\r\n",
                                        "Boot code binary incorrect. skip update procedure.\r\n"}));
    WriteBootCode(0xFAC00007, 0x2036);  // just long enough
    log().reset();
    EXPECT_EQ(Update(7), 0);
    EXPECT_LOG(4, "FwVerCode=0xFAC00007\r\n");
}

TEST_F(BootCodeUpdate, OnlyANewerOneIsWritten) {
    WriteBootCode(0xFACABCDE);
    EXPECT_EQ(Update(0xABCDE), 0);
    EXPECT_EQ(Update(0xABCDF), 0);
    EXPECT_LOG(4, "FwVerCode=0xFACABCDE\r\n");
    EXPECT_LOG(4, "Bootcode file path is: /dtv/boot.bin\r\n");
    EXPECT_LOG(
        4, "Found a new bootcode binary. binary version is 0xABCDE, device version is 0xABCDE\r\n");
    EXPECT_EQ(log().count_containing("Start to update bootcode"), 0u);
    EXPECT_EQ(clock().sleeps().size(), 0u);
}

TEST_F(BootCodeUpdate, WritesByTheExtensionUnitPathOnItsOwnDevice) {
    ASSERT_EQ(Result(), unsigned{CAMERA_STATUS_OK});
    WriteBootCode(0xFACABCDE);
    log().reset();
    EXPECT_EQ(Update(0xABCDD), 0);
    EXPECT_EQ(Log(OfThisThread),
              (Lines{{4, "FwVerCode=0xFACABCDE\r\n"},
                     {4, "Bootcode file path is: /dtv/boot.bin\r\n"},
                     {4,
                      "Found a new bootcode binary. binary version is 0xABCDE, device "
                      "version is 0xABCDD\r\n"},
                     {4, "Start to update bootcode. New version is 0xABCDE.\r\n"},
                     {4, "binary size=12288 bytes\r\n"},
                     {4, "UVC path fw update init.\r\n"},
                     {4, "UVC path fw data transfer.\r\n"},
                     {4, "Start burning.\r\n"},
                     {1, "Update flash successfully.\r\n"},
                     {4, "Boot code update done.\r\n"}}));
    EXPECT_EQ(clock().count(3s), 1u);
    const auto flash = virtcam::bus::camera().flash();
    EXPECT_EQ(std::string(flash.begin(), flash.end()), ReadFile(path_));
}

TEST_F(BootCodeUpdate, AFailureIsReportedAndDone) {
    WriteBootCode(0xFAC00002);
    const int result = Update(1);  // no device is open
    EXPECT_EQ(result, AIT_ERR_DEVICE);
    EXPECT_LOG(1, "CCameraFwLoader :Failed to load firmware, exit. \r\n");
    EXPECT_LOG(4, "Boot code update done.\r\n");
}

}  // namespace
}  // namespace test
