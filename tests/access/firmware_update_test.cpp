// Flashing: both download paths, compared with the camera's flash, and every way to fail.
#include "AitFirmware.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <numeric>
#include <utility>

#include "AitXu.h"
#include "LibusbWrap.h"
#include "tests/access/UsbCalls.h"
#include "tests/support/BusTest.h"
#include "tests/support/ControlSequence.h"
#include "tests/support/TvFiles.h"

namespace test {
namespace {

constexpr char kPath[] = "/dtv/image.bin";
constexpr size_t kSizes[] = {0, 1, 31, 32, 33, 511, 512, 513, 1025, 32767, 32768, 32769, 1048576};

const char kFailed[] = "Update flash failed.\r\n";
const char kDone[] = "Update flash successfully.\r\n";

class FirmwareUpdate : public BusTest {
  protected:
    FirmwareUpdate() : BusTest(BootCodeCamera()) { Reopen(); }
    ~FirmwareUpdate() override { CloseAitDevice(device_); }

    void Reopen() {
        device_ = OpenAitDevice(0x114D, 0x2065, 2);
        ASSERT_NE(device_, nullptr);
        virtcam::bus::clear_logs();
        log().reset();
    }
    /// A camera that has never been flashed.
    void FreshCamera() {
        CloseAitDevice(device_);
        virtcam::bus::reset(BootCodeCamera());
        Reopen();
    }
    std::string Image(size_t size) {
        const std::string image = ImageOf(size);
        WriteFile(kPath, image);
        return image;
    }
    static std::string Flash() {
        const auto flash = virtcam::bus::camera().flash();
        return {flash.begin(), flash.end()};
    }
    char* Path() { return path_; }
    static std::vector<unsigned> BulkPieces() {
        std::vector<unsigned> pieces;
        for (const auto& call : virtcam::bus::call_log()) {
            if (call.name == "libusb_bulk_transfer") {
                EXPECT_EQ(call.argument, 1);
                pieces.push_back(static_cast<unsigned>(call.result));
            }
        }
        return pieces;
    }
    static size_t BulkCalls() { return BulkPieces().size(); }
    static Request Size(uint8_t request, uint32_t size, unsigned timeout) {
        return Write(0x40, request, static_cast<uint16_t>(size), static_cast<uint16_t>(size >> 16),
                     {}, timeout);
    }
    static void FailRequest(int request, const nlohmann::json& action) {
        virtcam::bus::add_fault(
            {{"on", {{"control", {{"type", 0x40}, {"request", request}}}}}, {"do", action}});
    }
    static void FailBulk(const nlohmann::json& action, int nth) {
        virtcam::bus::add_fault(
            {{"on", {{"call", "libusb_bulk_transfer"}}}, {"nth", nth}, {"do", action}});
    }

    AitDevHandle* device_ = nullptr;
    char path_[64] = "/dtv/image.bin";
};

TEST_F(FirmwareUpdate, UvcPathFillsTheFlashPaddedTo32) {
    for (const size_t size : kSizes) {
        SCOPED_TRACE(size);
        FreshCamera();
        std::string image = Image(size);
        EXPECT_EQ(UpdateFirmwareUvcPath(device_, Path(), 4), 0);
        image.resize((size + 31) / 32 * 32);
        EXPECT_EQ(Flash(), image);
        EXPECT_EQ(Requests().size(), 2 + (size + 31) / 32);
    }
}

TEST_F(FirmwareUpdate, UvcPathSendsPiecesOf32) {
    const std::string image = Image(1000);
    EXPECT_EQ(UpdateFirmwareUvcPath(device_, Path(), 4), 0);
    Sequence expected = {
        Write(0x20, 0x01, 0x0400, 0x0600, {0x01, 0x00, 0x03, 0, 0, 0, 0, 0}, 1000)};
    for (size_t i = 0; i < 32; ++i) {
        std::vector<uint8_t> piece(
            image.begin() + static_cast<long>(32 * i),
            image.begin() + static_cast<long>(std::min<size_t>(32 * i + 32, 1000)));
        piece.resize(32);
        expected.push_back(Write(0x20, 0x01, 0x0300, 0x0600, piece, 1000));
    }
    expected.push_back(Write(0x20, 0x01, 0x0400, 0x0600, {0x01, 0x01, 0x03, 0, 0, 0, 0, 0}, 1000));
    EXPECT_EQ(Requests(), expected);
    EXPECT_EQ(Log(), (Lines{{4, "binary size=1000 bytes\r\n"},
                            {4, "UVC path fw update init.\r\n"},
                            {4, "UVC path fw data transfer.\r\n"},
                            {4, "Start burning.\r\n"},
                            {1, kDone}}));
}

TEST_F(FirmwareUpdate, UvcPathWithoutFile) {
    std::filesystem::remove(kPath);
    EXPECT_EQ(UpdateFirmwareUvcPath(device_, Path(), 4), AIT_ERR_DEVICE);
    EXPECT_EQ(Log(), (Lines{{1, "file /dtv/image.bin not exist. \r\n"}}));
}

TEST_F(FirmwareUpdate, UvcPathStopsAtTheFirstFailure) {
    Image(100);
    const auto failWrite = [](uint16_t value, int nth) {
        virtcam::bus::clear_faults();
        virtcam::bus::clear_logs();
        virtcam::bus::add_fault({{"on", {{"control", {{"type", 0x20}, {"value", value}}}}},
                                 {"nth", nth},
                                 {"do", {{"return", "LIBUSB_ERROR_PIPE"}}}});
    };
    failWrite(0x0400, 1);
    EXPECT_EQ(UpdateFirmwareUvcPath(device_, Path(), 4), AIT_ERR_DEVICE);
    EXPECT_EQ(Requests().size(), 1u);
    EXPECT_NO_LOG(4, "UVC path fw data transfer.\r\n");
    failWrite(0x0300, 3);
    EXPECT_EQ(UpdateFirmwareUvcPath(device_, Path(), 4), AIT_ERR_DEVICE);
    EXPECT_EQ(Requests().size(), 4u);
    EXPECT_NO_LOG(4, "Start burning.\r\n");
    EXPECT_NO_LOG(1, kFailed);
    failWrite(0x0400, 2);
    EXPECT_EQ(UpdateFirmwareUvcPath(device_, Path(), 4), 0);  // whatever the burn command says
    EXPECT_LOG(1, kDone);
    EXPECT_EQ(Flash(), "");
}

TEST_F(FirmwareUpdate, PcsyncPathFillsTheFlash) {
    for (const size_t size : kSizes) {
        SCOPED_TRACE(size);
        FreshCamera();
        const std::string image = Image(size);
        const int result = UpdateFirmwarePcsyncPath(device_, Path(), 4);
        if (size == 0) {
            EXPECT_EQ(result, AIT_ERR_DEVICE);
            EXPECT_EQ(Log(), (Lines{{4, "file /dtv/image.bin size is incorrect. \r\n"}}));
            EXPECT_TRUE(Requests().empty());
        } else {
            EXPECT_EQ(result, 0);
            EXPECT_EQ(BulkCalls(), (size + 511) / 512);
        }
        EXPECT_EQ(Flash(), image);
    }
}

TEST_F(FirmwareUpdate, PcsyncPathAnnouncesAndBurns) {
    Image(70000);
    EXPECT_EQ(UpdateFirmwarePcsyncPath(device_, Path(), 4), 0);
    EXPECT_EQ(Requests(), (Sequence{Size(130, 70000, 1000), Size(8, 70000, 1000)}));
    EXPECT_EQ(virtcam::bus::last_timeout(0x01), 100u);
    EXPECT_EQ(BulkCalls(), 137u);
    EXPECT_EQ(Log(),
              (Lines{{4, "binary size=70000 bytes\r\n"}, {4, "Start burning.\r\n"}, {1, kDone}}));
}

TEST_F(FirmwareUpdate, PcsyncPathWithoutFile) {
    std::filesystem::remove(kPath);
    EXPECT_EQ(UpdateFirmwarePcsyncPath(device_, Path(), 4), AIT_ERR_DEVICE);
    EXPECT_EQ(Log(), (Lines{{4, "file /dtv/image.bin not exist. \r\n"}}));
}

TEST_F(FirmwareUpdate, PcsyncPathIgnoresAnnounceAndPieces) {
    Image(1025);
    FailRequest(130, {{"return", "LIBUSB_ERROR_IO"}});
    FailBulk({{"return", "LIBUSB_ERROR_IO"}}, 2);
    FailRequest(8, {{"return", 0}});
    EXPECT_EQ(UpdateFirmwarePcsyncPath(device_, Path(), 4), 0);
    EXPECT_EQ(BulkCalls(), 3u);
}

TEST_F(FirmwareUpdate, PcsyncPathTakesALostCameraForASuccess) {
    Image(100);
    FailRequest(8, {{"return", "LIBUSB_ERROR_NO_DEVICE"}});
    EXPECT_EQ(UpdateFirmwarePcsyncPath(device_, Path(), 4), 0);
    EXPECT_LOG(1, kDone);
    for (const char* error :
         {"LIBUSB_ERROR_PIPE", "LIBUSB_ERROR_NOT_FOUND", "LIBUSB_ERROR_ACCESS"}) {
        virtcam::bus::clear_faults();
        log().reset();
        FailRequest(8, {{"return", error}});
        EXPECT_EQ(UpdateFirmwarePcsyncPath(device_, Path(), 4), AIT_ERR_DEVICE);
        EXPECT_LOG(1, kFailed);
        EXPECT_NO_LOG(1, kDone);
    }
    virtcam::bus::clear_faults();
    FailRequest(8, {{"return", 1}});
    EXPECT_EQ(UpdateFirmwarePcsyncPath(device_, Path(), 4), AIT_ERR_DEVICE);
}

TEST_F(FirmwareUpdate, BulkPathFillsTheFlashAndChoosesTheBurnRequest) {
    const std::pair<unsigned, uint8_t> chips[] = {{0, 3}, {1, 3}, {2, 6}, {3, 5}, {4, 8}, {7, 3}};
    size_t next = 0;
    for (const size_t size : kSizes) {
        SCOPED_TRACE(size);
        FreshCamera();
        const std::string image = Image(size);
        const auto [chip, request] = chips[next++ % std::size(chips)];
        EXPECT_EQ(UpdateFirmware(device_, Path(), chip), 0);
        EXPECT_EQ(Flash(), image);
        const auto bits = static_cast<uint32_t>(size);
        EXPECT_EQ(Requests(), (Sequence{Size(130, bits, 1000), Size(request, bits, 30000)}));
        EXPECT_EQ(BulkCalls(), (size + 32767) / 32768);
        if (size != 0) {
            EXPECT_EQ(virtcam::bus::last_timeout(0x01), 5000u);
        }
        EXPECT_LOG_COUNT(1, kDone, 1);
    }
}

TEST_F(FirmwareUpdate, BulkPathPassesOverATimeoutAndEndsAtAnError) {
    Image(70000);
    FailBulk({{"return", "LIBUSB_ERROR_TIMEOUT"}}, 2);
    FailRequest(3, {{"return", 0}});
    EXPECT_EQ(UpdateFirmware(device_, Path(), 0), 0);
    EXPECT_LOG_COUNT(4, "PCSYNC_BULK_OUT_EP(1) timeout.\r\n", 1);
    EXPECT_EQ(BulkCalls(), 3u);
    virtcam::bus::clear_faults();
    virtcam::bus::clear_logs();
    log().reset();
    FailBulk({{"return", "LIBUSB_ERROR_PIPE"}}, 1);
    EXPECT_EQ(UpdateFirmware(device_, Path(), 0), AIT_ERR_DEVICE);
    EXPECT_EQ(Log(),
              (Lines{{4, "binary size=70000 bytes\r\n"}, {4, "PCSYNC_BULK_OUT_EP(1) Error.\r\n"}}));
    EXPECT_EQ(BulkCalls(), 1u);
    EXPECT_EQ(Requests().size(), 1u);
}

TEST_F(FirmwareUpdate, BulkPathFailsWithItsBurnRequest) {
    Image(100);
    FailRequest(3, {{"return", "LIBUSB_ERROR_NO_DEVICE"}});
    EXPECT_EQ(UpdateFirmware(device_, Path(), 0), AIT_ERR_DEVICE);
    EXPECT_EQ(Log(),
              (Lines{{4, "binary size=100 bytes\r\n"}, {4, "Start burning.\r\n"}, {1, kFailed}}));
    std::filesystem::remove(kPath);
    log().reset();
    EXPECT_EQ(UpdateFirmware(device_, Path(), 0), AIT_ERR_DEVICE);
    EXPECT_EQ(Log(), (Lines{{4, "file /dtv/image.bin not exist. \r\n"}}));
}

long long SumOf(const std::string& image) {
    return std::accumulate(image.begin(), image.end(), 0LL, [](long long sum, char byte) {
        return sum + static_cast<unsigned char>(byte);
    });
}

TEST_F(FirmwareUpdate, ChecksumPathFillsTheFlash) {
    for (const size_t size : kSizes) {
        SCOPED_TRACE(size);
        FreshCamera();
        const std::string image = Image(size);
        EXPECT_EQ(UpdateAitFirmwareWithCheckSum(device_, Path(), SumOf(image)), 0);
        EXPECT_EQ(Flash(), image);
        EXPECT_EQ(BulkCalls(), (size + 32767) / 32768);
        EXPECT_LOG_COUNT(1, kDone, 1);
    }
    EXPECT_EQ(virtcam::bus::last_timeout(0x01), 1000u);
}

TEST_F(FirmwareUpdate, ChecksumTravelsWithTheSize) {
    Image(0x010203);
    FailRequest(7, {{"return", 12}});
    FailRequest(3, {{"return", 0}});
    EXPECT_EQ(UpdateAitFirmwareWithCheckSum(device_, Path(), 0x1122334455667788LL), 0);
    EXPECT_EQ(
        Requests(),
        (Sequence{
            Size(130, 0x010203, 1000),
            Write(0x40, 7, 0, 0,
                  {0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11, 0x03, 0x02, 0x01, 0x00}, 30000),
            Size(3, 0x010203, 30000)}));
}

TEST_F(FirmwareUpdate, AWrongChecksumIsRefused) {
    const std::string image = Image(1000);
    EXPECT_EQ(UpdateAitFirmwareWithCheckSum(device_, Path(), SumOf(image) + 1), AIT_ERR_DEVICE);
    EXPECT_EQ(Log(), (Lines{{4, "binary size=1000 bytes\r\n"},
                            {4, "Start burning.\r\n"},
                            {1, "Check sum does not match.\r\n"}}));
    EXPECT_EQ(Requests().size(), 2u);
    EXPECT_EQ(Flash(), "");
    log().reset();
    FailRequest(3, {{"return", "LIBUSB_ERROR_PIPE"}});
    EXPECT_EQ(UpdateAitFirmwareWithCheckSum(device_, Path(), SumOf(image)), AIT_ERR_DEVICE);
    EXPECT_LOG(1, kFailed);
    EXPECT_NO_LOG(1, "Check sum does not match.\r\n");
}

TEST_F(FirmwareUpdate, ChecksumPathIgnoresItsPieces) {
    const std::string image = Image(40000);
    FailBulk({{"return", "LIBUSB_ERROR_IO"}}, 1);
    FailRequest(7, {{"return", 12}});
    FailRequest(3, {{"return", 0}});
    EXPECT_EQ(UpdateAitFirmwareWithCheckSum(device_, Path(), SumOf(image)), 0);
    EXPECT_EQ(BulkCalls(), 2u);
}

TEST_F(FirmwareUpdate, RequestsThatAnswerNothingAreNoFailure) {
    Image(1000);
    const auto fail = [] {
        FailRequest(130, {{"return", "LIBUSB_ERROR_IO"}});
        FailRequest(7, {{"return", 0}});
        FailRequest(3, {{"return", 0}});
        FailBulk({{"return", 0}}, 1);
    };
    fail();
    EXPECT_EQ(UpdateFirmware(device_, Path(), 0), 0);
    FreshCamera();
    fail();
    EXPECT_EQ(UpdateAitFirmwareWithCheckSum(device_, Path(), 0), 0);
}

TEST_F(FirmwareUpdate, MissingMemory) {
    Image(100);
    const std::string null = "data pointer for loading firmware is NULL!!!\r\n";
    system_calls().calloc = 1;
    EXPECT_EQ(UpdateFirmwareUvcPath(device_, Path(), 4), AIT_ERR_DEVICE);
    EXPECT_EQ(Log(), (Lines{{4, "binary size=100 bytes\r\n"}, {1, null}, {1, kFailed}}));
    log().reset();
    EXPECT_EQ(UpdateFirmwarePcsyncPath(device_, Path(), 4), AIT_ERR_DEVICE);
    EXPECT_EQ(Log(), (Lines{{4, "binary size=100 bytes\r\n"}, {1, null}, {1, kFailed}}));
    log().reset();
    EXPECT_EQ(UpdateFirmware(device_, Path(), 4), AIT_ERR_DEVICE);
    EXPECT_EQ(Log(), (Lines{{4, "binary size=100 bytes\r\n"}, {1, kFailed}}));
    log().reset();
    EXPECT_EQ(UpdateAitFirmwareWithCheckSum(device_, Path(), 0), AIT_ERR_DEVICE);
    EXPECT_EQ(Log(), (Lines{{4, "binary size=100 bytes\r\n"}, {1, kFailed}}));
    EXPECT_TRUE(Requests().empty());
}

/// What each update function does to `path`, by name.
std::vector<std::pair<std::string, std::function<int(AitDevHandle*, char*)>>> Paths() {
    return {{"uvc", [](auto* d, char* path) { return UpdateFirmwareUvcPath(d, path, 4); }},
            {"pcsync", [](auto* d, char* path) { return UpdateFirmwarePcsyncPath(d, path, 4); }},
            {"bulk", [](auto* d, char* path) { return UpdateFirmware(d, path, 4); }},
            {"checksum",
             [](auto* d, char* path) { return UpdateAitFirmwareWithCheckSum(d, path, 0); }}};
}

TEST_F(FirmwareUpdate, WhatIsNoRegularFileIsMissing) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    char path[64];
    snprintf(path, sizeof path, "/proc/self/fd/%d", ends[0]);
    for (const auto& [name, update] : Paths()) {
        SCOPED_TRACE(name);
        log().reset();
        EXPECT_EQ(update(device_, path), AIT_ERR_DEVICE);
        const unsigned level = name == "uvc" ? 1 : 4;
        EXPECT_EQ(Log(), (Lines{{level, "file " + std::string(path) + " not exist. \r\n"}}));
    }
    EXPECT_TRUE(Requests().empty());
    close(ends[0]);
    close(ends[1]);
}

TEST_F(FirmwareUpdate, AnImageBeyondTheSizeFieldIsRefused) {
    WriteFile(kPath, "");
    ASSERT_EQ(truncate64(kPath, 0x80000000LL), 0);  // sparse
    for (const auto& [name, update] : Paths()) {
        SCOPED_TRACE(name);
        log().reset();
        EXPECT_EQ(update(device_, Path()), AIT_ERR_DEVICE);
        if (sizeof(long) > sizeof(int)) {  // else the C library opens no such file, or has no size
            EXPECT_LOG(1, kFailed);
        }
    }
    EXPECT_TRUE(Requests().empty());
    std::filesystem::remove(kPath);
}

TEST_F(FirmwareUpdate, AFileThatEndsBeforeItsSizeIsNotBurnt) {
    char path[] = "/sys/class/net/lo/mtu";  // says 4096 bytes and holds a number
    ASSERT_EQ(std::filesystem::file_size(path), 4096u);
    ASSERT_LT(ReadFile(path).size(), 4096u);
    EXPECT_EQ(UpdateFirmware(device_, path, 0), AIT_ERR_DEVICE);
    EXPECT_EQ(UpdateFirmwarePcsyncPath(device_, path, 0), AIT_ERR_DEVICE);
    EXPECT_EQ(UpdateFirmwareUvcPath(device_, path, 0), AIT_ERR_DEVICE);
    EXPECT_EQ(UpdateAitFirmwareWithCheckSum(device_, path, 0), AIT_ERR_DEVICE);
    EXPECT_TRUE(Requests().empty());
    EXPECT_EQ(BulkCalls(), 0u);
}

TEST_F(FirmwareUpdate, AStopDuringTheLastPieceBurnsNothing) {
    Image(1024);
    const std::pair<int (*)(AitDevHandle*, char*, unsigned int, const std::atomic<bool>*), int>
        paths[] = {{UpdateFirmwareUvcPath, 1 + 1024 / 32},
                   {UpdateFirmwarePcsyncPath, 1 + 1024 / 512}};
    for (const auto& [update, last] : paths) {
        std::atomic<bool> stop{false};
        int count = 0;
        before_each_transfer([&, last = last] { stop = ++count == last; });
        EXPECT_EQ(update(device_, Path(), 4, &stop), AIT_ERR_DEVICE);
        before_each_transfer(nullptr);
        EXPECT_EQ(count, last);
        EXPECT_NO_LOG(4, "Start burning.\r\n");
    }
}

TEST_F(FirmwareUpdate, WithoutADeviceNothingIsWritten) {
    Image(1000);
    EXPECT_EQ(UpdateFirmware(nullptr, Path(), 0), AIT_ERR_DEVICE);
    EXPECT_EQ(UpdateFirmwarePcsyncPath(nullptr, Path(), 0), AIT_ERR_DEVICE);
    EXPECT_EQ(UpdateAitFirmwareWithCheckSum(nullptr, Path(), 0), AIT_ERR_DEVICE);
    EXPECT_EQ(UpdateFirmwareUvcPath(nullptr, Path(), 0), AIT_ERR_DEVICE);
    EXPECT_LOG_COUNT(1, kFailed, 3);
}

TEST_F(FirmwareUpdate, PiecesAndTimeoutsOfEachPath) {
    struct Case {
        const char* path;
        size_t size;
        std::vector<int> pieces;
        unsigned timeout;
    };
    const Case cases[] = {{"uvc", 1025, {}, 0},
                          {"pcsync", 1025, {512, 512, 1}, 100},
                          {"pcsync", 1024, {512, 512}, 100},
                          {"bulk", 70000, {32768, 32768, 4464}, 5000},
                          {"checksum", 70000, {32768, 32768, 4464}, 1000}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path);
        FreshCamera();
        Image(c.size);
        watch_usb_calls();
        for (const auto& [name, update] : Paths()) {
            if (name == c.path) {
                update(device_, Path());
            }
        }
        std::vector<int> pieces;
        bool serialised = true;
        for (const UsbCall& call : take_usb_calls()) {
            if (call.name == "bulk_transfer") {
                pieces.push_back(call.length);
                EXPECT_EQ(call.timeout_ms, c.timeout);
            } else {
                serialised = serialised && call.control_lock_held;
            }
        }
        EXPECT_EQ(pieces, c.pieces);
        EXPECT_EQ(serialised, std::string(c.path) != "pcsync");
    }
}

TEST_F(FirmwareUpdate, NoRequestOfThePcsyncPathIsSerialised) {
    Image(100);
    watch_usb_calls();
    EXPECT_EQ(UpdateFirmwarePcsyncPath(device_, Path(), 4), 0);
    const auto calls = take_usb_calls();
    EXPECT_EQ(calls.size(), 3u);
    for (const UsbCall& call : calls) {
        EXPECT_FALSE(call.control_lock_held) << call.name;
    }
}

TEST_F(FirmwareUpdate, AFolderIsNoImage) {
    std::filesystem::remove(kPath);
    std::filesystem::create_directory(kPath);
    EXPECT_EQ(UpdateFirmwareUvcPath(device_, Path(), 4), AIT_ERR_DEVICE);
    EXPECT_EQ(UpdateFirmwarePcsyncPath(device_, Path(), 4), AIT_ERR_DEVICE);
    EXPECT_TRUE(Requests().empty());
    std::filesystem::remove(kPath);
}

TEST_F(FirmwareUpdate, WriteProtection) {
    EXPECT_EQ(DisableFlashWP(device_), 0);
    EXPECT_EQ(Requests(),
              (Sequence{Write(0x20, 0x01, 0x0E00, 0x0600, Block(16, {0x07, 0x00}), 1000),
                        Write(0x20, 0x01, 0x0E00, 0x0600, Block(16, {0x07, 0x02}), 1000)}));
    EXPECT_EQ(DisableFlashWP(nullptr), 0);
}

}  // namespace
}  // namespace test
