#include "tests/virtbus/bus_fixture.h"

#include <unistd.h>

#include <algorithm>
#include <utility>

namespace virtcam::bus::test {
namespace {

constexpr int kInterfaces = 4;

nlohmann::json default_configuration(const std::string& listing) {
    return {{"camera",
             {{"identity", "run-time"},
              {"departure_ms", 1},
              {"reenumerate_ms", 20},
              {"paced", false},
              {"audio_paced", false}}},
            {"bus", {{"listing", listing}, {"quiet", true}}}};
}

}  // namespace

Transfer::Transfer(int packets, size_t size)
    : transfer_(libusb_alloc_transfer(packets)), state_(std::make_unique<State>()) {
    state_->buffer.resize(size);
}

Transfer::Transfer(Transfer&& other) noexcept
    : transfer_(other.release()), state_(std::move(other.state_)) {}

Transfer::~Transfer() {
    if (transfer_ != nullptr) {
        libusb_free_transfer(transfer_);
    }
}

void LIBUSB_CALL Transfer::done(libusb_transfer* transfer) {
    auto* state = static_cast<State*>(transfer->user_data);
    state->status = transfer->status;
    ++state->completions;
    if (state->action) {
        state->action(transfer);
    }
}

Transfer Transfer::bulk(libusb_device_handle* handle, int length, unsigned timeout_ms) {
    Transfer made(0, static_cast<size_t>(length));
    libusb_fill_bulk_transfer(made.get(), handle, kVideo, made.buffer().data(), length, done,
                              made.state_.get(), timeout_ms);
    return made;
}

Transfer Transfer::iso(libusb_device_handle* handle, int packets, unsigned timeout_ms) {
    constexpr int kPacket = 100;
    Transfer made(packets, static_cast<size_t>(packets) * kPacket);
    libusb_fill_iso_transfer(made.get(), handle, kAudio, made.buffer().data(), packets * kPacket,
                             packets, done, made.state_.get(), timeout_ms);
    libusb_set_iso_packet_lengths(made.get(), kPacket);
    return made;
}

Transfer Transfer::control(libusb_device_handle* handle, uint8_t type, uint8_t request,
                           uint16_t value, uint16_t index, uint16_t length, unsigned timeout_ms) {
    Transfer made(0, LIBUSB_CONTROL_SETUP_SIZE + size_t{length});
    libusb_fill_control_setup(made.buffer().data(), type, request, value, index, length);
    libusb_fill_control_transfer(made.get(), handle, made.buffer().data(), done, made.state_.get(),
                                 timeout_ms);
    return made;
}

BusFixture::BusFixture() {
    std::string pattern = (std::filesystem::temp_directory_path() / "virtbus-XXXXXX").string();
    folder_ = mkdtemp(pattern.data());
    restart();
}

BusFixture::~BusFixture() {
    check_complaints();
    std::string leaked;
    for (const auto& leak : virtcam::bus::leaks()) {
        leaked += leak.text + '\n';
    }
    EXPECT_EQ(leaked, "");
    std::filesystem::remove_all(folder_);
}

void BusFixture::restart(const nlohmann::json& changes) {
    nlohmann::json configuration = default_configuration(listing_path());
    configuration.merge_patch(changes);
    virtcam::bus::reset(configuration);
}

void BusFixture::handle_events(libusb_context* context) {
    timeval none{0, 0};
    EXPECT_EQ(libusb_handle_events_timeout(context, &none), 0);
}

bool BusFixture::handle_events_until(libusb_context* context, const std::function<bool()>& done) {
    const auto limit = std::chrono::steady_clock::now() + 20s;
    while (!done()) {
        if (std::chrono::steady_clock::now() > limit) {
            return false;
        }
        timeval round{0, 5000};
        libusb_handle_events_timeout(context, &round);
    }
    return true;
}

libusb_context* BusFixture::make_context() {
    libusb_context* context = nullptr;
    EXPECT_EQ(libusb_init(&context), 0);
    return context;
}

libusb_device_handle* BusFixture::open_camera(libusb_context* context, uint16_t product) {
    libusb_device_handle* handle = libusb_open_device_with_vid_pid(context, kVendor, product);
    EXPECT_NE(handle, nullptr);
    return handle;
}

int BusFixture::read_version(libusb_device_handle* handle, std::array<uint8_t, 8>& reply) {
    std::array<uint8_t, 8> command{0x0B};
    const int sent = libusb_control_transfer(handle, 0x20, 0x01, 0x0100, 0x0600, command.data(),
                                             command.size(), 1000);
    if (sent < 0) {
        return sent;
    }
    return libusb_control_transfer(handle, 0xA0, 0x81, 0x0200, 0x0600, reply.data(), reply.size(),
                                   1000);
}

void BusFixture::expect_complaint(const std::string& text, int count) {
    expected_.insert(expected_.end(), static_cast<size_t>(count), text);
}

void BusFixture::check_complaints() {
    std::vector<std::string> met;
    for (const auto& complaint : virtcam::bus::take_complaints()) {
        met.push_back(complaint.text);
    }
    std::sort(met.begin(), met.end());
    std::sort(expected_.begin(), expected_.end());
    EXPECT_EQ(met, std::exchange(expected_, {}));
}

OpenFixture::OpenFixture() {
    reopen(nlohmann::json::object());
}

OpenFixture::~OpenFixture() {
    shut_down();
}

void OpenFixture::reopen(const nlohmann::json& changes) {
    shut_down();
    restart(changes);
    context_ = make_context();
    handle_ = open_camera(context_);
    for (int interface = 0; interface < kInterfaces; ++interface) {
        EXPECT_EQ(libusb_claim_interface(handle_, interface), 0);
    }
    EXPECT_EQ(libusb_set_interface_alt_setting(handle_, 3, 1), 0);
}

void OpenFixture::shut_down() {
    if (handle_ != nullptr) {
        for (int interface = 0; interface < kInterfaces; ++interface) {
            libusb_release_interface(handle_, interface);
        }
        libusb_close(std::exchange(handle_, nullptr));
    }
    if (context_ != nullptr) {
        libusb_exit(std::exchange(context_, nullptr));
    }
}

void OpenFixture::start_video() {
    std::array<uint8_t, 26> probe{1, 0, 4, 1, 0x15, 0x16, 0x05};
    ASSERT_EQ(libusb_control_transfer(handle_, 0x21, 0x01, 0x0100, 1, probe.data(), 26, 1000), 26);
    ASSERT_EQ(libusb_control_transfer(handle_, 0xA1, 0x81, 0x0100, 1, probe.data(), 26, 1000), 26);
    ASSERT_EQ(libusb_control_transfer(handle_, 0x21, 0x01, 0x0200, 1, probe.data(), 26, 1000), 26);
}

}  // namespace virtcam::bus::test
