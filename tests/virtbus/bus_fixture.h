// Base of the tests of the virtual bus: a fresh camera, a bus listing of its own, and every
// complaint and leak accounted for.
#pragma once

#include <gtest/gtest.h>
#include <libusb-1.0/libusb.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "virtcam/bus/control.h"

namespace virtcam::bus::test {

using namespace std::chrono_literals;

constexpr uint16_t kVendor = 0x114D;
constexpr uint16_t kBootProduct = 0x2065;
constexpr uint16_t kRunProduct = 0x2066;
constexpr uint8_t kVideo = 0x81;
constexpr uint8_t kAudio = 0x82;

/// A transfer with buffer and a record of its completions. Frees itself unless told to leak.
class Transfer {
  public:
    static Transfer bulk(libusb_device_handle* handle, int length = 512, unsigned timeout_ms = 0);
    static Transfer iso(libusb_device_handle* handle, int packets = 10, unsigned timeout_ms = 0);
    static Transfer control(libusb_device_handle* handle, uint8_t type, uint8_t request,
                            uint16_t value, uint16_t index, uint16_t length,
                            unsigned timeout_ms = 0);
    Transfer(Transfer&& other) noexcept;
    Transfer& operator=(Transfer&&) = delete;
    ~Transfer();

    int submit() { return libusb_submit_transfer(get()); }
    int cancel() { return libusb_cancel_transfer(get()); }
    libusb_transfer* get() const { return transfer_; }
    libusb_transfer* operator->() const { return transfer_; }
    /// Gives up ownership.
    libusb_transfer* release() { return std::exchange(transfer_, nullptr); }

    int completions() const { return state_->completions; }
    libusb_transfer_status status() const { return state_->status; }
    std::vector<uint8_t>& buffer() { return state_->buffer; }
    /// Called from the callback.
    void on_completion(std::function<void(libusb_transfer*)> action) {
        state_->action = std::move(action);
    }

  private:
    struct State {
        std::vector<uint8_t> buffer;
        std::atomic<int> completions{0};
        std::atomic<libusb_transfer_status> status{LIBUSB_TRANSFER_COMPLETED};
        std::function<void(libusb_transfer*)> action;
    };

    Transfer(int packets, size_t size);
    static void LIBUSB_CALL done(libusb_transfer* transfer);

    libusb_transfer* transfer_;
    std::unique_ptr<State> state_;
};

class BusFixture : public testing::Test {
  protected:
    BusFixture();
    ~BusFixture() override;

    /// Starts anew with these members of the configuration in place of the defaults, which are a
    /// camera that runs its firmware, as fast as possible, and kernel drivers bound to nothing.
    void restart(const nlohmann::json& changes = nlohmann::json::object());

    /// One round of event handling that does not wait.
    static void handle_events(libusb_context* context);
    /// Event handling until the condition holds; false after 20 s, more than a
    /// busy machine takes.
    static bool handle_events_until(libusb_context* context, const std::function<bool()>& done);

    /// A context that the test exits.
    static libusb_context* make_context();
    static libusb_device_handle* open_camera(libusb_context* context,
                                             uint16_t product = kRunProduct);
    /// Reads the version of the firmware by two control transfers; the result of the second.
    static int read_version(libusb_device_handle* handle, std::array<uint8_t, 8>& reply);

    /// Says that the test misuses the bus on purpose.
    void expect_complaint(const std::string& text, int count = 1);
    /// Checks and forgets what was complained of so far.
    void check_complaints();

    std::string listing_path() const { return (folder_ / "devices").string(); }
    const std::filesystem::path& folder() const { return folder_; }

  private:
    std::filesystem::path folder_;
    std::vector<std::string> expected_;
};

/// The usual case: one context, the camera open, its four interfaces claimed.
class OpenFixture : public BusFixture {
  protected:
    OpenFixture();
    ~OpenFixture() override;

    /// Closes and exits before the end of the test.
    void shut_down();
    void reopen(const nlohmann::json& changes);
    void start_video();

    libusb_context* context_ = nullptr;
    libusb_device_handle* handle_ = nullptr;
};

}  // namespace virtcam::bus::test
