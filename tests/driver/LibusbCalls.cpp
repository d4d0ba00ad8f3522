#include "tests/driver/LibusbCalls.h"

#include <mutex>

extern "C" {
libusb_device_handle* __real_libusb_open_device_with_vid_pid(libusb_context* context,
                                                             uint16_t vendor, uint16_t product);
const libusb_version* __real_libusb_get_version();
int __real_libusb_handle_events_timeout(libusb_context* context, timeval* timeout);
int __real_libusb_submit_transfer(libusb_transfer* transfer);
int __real_libusb_set_interface_alt_setting(libusb_device_handle* handle, int interface,
                                            int setting);
}

namespace test {

struct LibusbCalls::State {
    std::mutex mutex;
    std::vector<std::pair<int, int>> opens;
    std::vector<std::pair<int, int>> alternate_settings;
    std::vector<SubmitCall> submits;
    std::vector<long> event_timeouts;
    std::optional<int> product;
    std::optional<libusb_version> version;
    std::function<void()> on_alternate_setting;
};

namespace {
constexpr uint16_t kCameraProduct = 0x2066;
constexpr uint16_t kNobodysProduct = 0x0001;
}  // namespace

LibusbCalls& LibusbCalls::instance() {
    static LibusbCalls calls;
    return calls;
}

LibusbCalls::State& LibusbCalls::state() {
    static auto* state = new State;  // outlives every thread of the code under test
    return *state;
}

void LibusbCalls::reset() {
    std::lock_guard lock(state().mutex);
    state().opens.clear();
    state().alternate_settings.clear();
    state().submits.clear();
    state().event_timeouts.clear();
    state().product.reset();
    state().version.reset();
    state().on_alternate_setting = nullptr;
}

std::vector<std::pair<int, int>> LibusbCalls::opens() const {
    std::lock_guard lock(state().mutex);
    return state().opens;
}

std::vector<std::pair<int, int>> LibusbCalls::alternate_settings() const {
    std::lock_guard lock(state().mutex);
    return state().alternate_settings;
}

std::vector<SubmitCall> LibusbCalls::submits() const {
    std::lock_guard lock(state().mutex);
    return state().submits;
}

std::vector<long> LibusbCalls::event_timeouts() const {
    std::lock_guard lock(state().mutex);
    return state().event_timeouts;
}

void LibusbCalls::set_product(int product) {
    std::lock_guard lock(state().mutex);
    state().product = product;
}

void LibusbCalls::on_alternate_setting(std::function<void()> hook) {
    std::lock_guard lock(state().mutex);
    state().on_alternate_setting = std::move(hook);
}

void LibusbCalls::set_version(int major, int minor, int micro) {
    std::lock_guard lock(state().mutex);
    state().version.emplace(libusb_version{static_cast<uint16_t>(major),
                                           static_cast<uint16_t>(minor),
                                           static_cast<uint16_t>(micro), 0, "", ""});
}

}  // namespace test

extern "C" {

libusb_device_handle* __wrap_libusb_open_device_with_vid_pid(libusb_context* context,
                                                             uint16_t vendor, uint16_t product) {
    auto& state = test::LibusbCalls::state();
    {
        std::lock_guard lock(state.mutex);
        state.opens.emplace_back(vendor, product);
        if (state.product) {
            product = product == *state.product ? test::kCameraProduct : test::kNobodysProduct;
        }
    }
    return __real_libusb_open_device_with_vid_pid(context, vendor, product);
}

const libusb_version* __wrap_libusb_get_version() {
    auto& state = test::LibusbCalls::state();
    std::lock_guard lock(state.mutex);
    return state.version ? &*state.version : __real_libusb_get_version();
}

int __wrap_libusb_handle_events_timeout(libusb_context* context, timeval* timeout) {
    auto& state = test::LibusbCalls::state();
    {
        std::lock_guard lock(state.mutex);
        state.event_timeouts.push_back(timeout->tv_sec * 1000000L + timeout->tv_usec);
    }
    return __real_libusb_handle_events_timeout(context, timeout);
}

int __wrap_libusb_submit_transfer(libusb_transfer* transfer) {
    test::SubmitCall call{transfer, *transfer, {}, 0};
    for (int i = 0; i < transfer->num_iso_packets; ++i) {
        call.packet_lengths.push_back(transfer->iso_packet_desc[i].length);
    }
    call.result = __real_libusb_submit_transfer(transfer);
    const int result = call.result;
    auto& state = test::LibusbCalls::state();
    std::lock_guard lock(state.mutex);
    state.submits.push_back(std::move(call));
    return result;
}

int __wrap_libusb_set_interface_alt_setting(libusb_device_handle* handle, int interface,
                                            int setting) {
    auto& state = test::LibusbCalls::state();
    std::function<void()> hook;
    {
        std::lock_guard lock(state.mutex);
        state.alternate_settings.emplace_back(interface, setting);
        hook = state.on_alternate_setting;
    }
    if (hook) {
        hook();
    }
    return __real_libusb_set_interface_alt_setting(handle, interface, setting);
}
}
