// Open devices: configuration, interfaces, alternate settings and kernel drivers.
#include <algorithm>
#include <cstdio>

#include "virtcam/bus/bus.h"
#include "virtcam/line/fault_effect.h"

namespace virtcam::bus {
namespace {

// Standard requests and their codes (USB 2.0, tables 9-3 to 9-6).
constexpr uint8_t kToDevice = 0x00;
constexpr uint8_t kToInterface = 0x01;
constexpr uint8_t kToEndpoint = 0x02;
constexpr uint16_t kEndpointHalt = 0;

constexpr unsigned kKernelTimeOutMs = 5000;  // of the kernel's own control messages

constexpr int kMaxInterfaces = 32;  // libusb's limit: claims are bits of a word

std::string interface_text(int interface) {
    return "interface " + std::to_string(interface);
}

}  // namespace

bool Bus::usable(libusb_device_handle* handle, const char* call) {
    if (handles_.count(handle) != 0) {
        return true;
    }
    complaints_.raise("unknown_handle", std::string(call) + ": not an open device handle");
    return false;
}

int Bus::open(libusb_device* device, libusb_device_handle** handle) {
    const std::lock_guard lock(mutex_);
    return open_locked(device, handle);
}

int Bus::open_locked(libusb_device* device, libusb_device_handle** handle) {
    if (!known(device) || device->context == nullptr) {
        complaints_.raise("unknown_device", "libusb_open: not a device of an open context");
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    if (!device->attached) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    if (device->info->kind != DeviceInfo::Kind::kCamera) {
        return LIBUSB_ERROR_ACCESS;
    }
    auto made = std::make_unique<libusb_device_handle>();
    made->context = device->context;
    made->device = device;
    made->generation = generation_;
    ++device->references;
    *handle = made.get();
    handles_.emplace(*handle, std::move(made));
    return LIBUSB_SUCCESS;
}

libusb_device_handle* Bus::open_by_id(libusb_context* context, uint16_t vendor, uint16_t product) {
    const std::lock_guard lock(mutex_);
    for (libusb_device* device : context->devices) {
        libusb_device_descriptor descriptor{};
        if (!parse_device_descriptor(device->info->device_bytes, descriptor) ||
            descriptor.idVendor != vendor || descriptor.idProduct != product) {
            continue;
        }
        libusb_device_handle* handle = nullptr;
        return open_locked(device, &handle) == LIBUSB_SUCCESS ? handle : nullptr;
    }
    return nullptr;
}

void Bus::close_locked(libusb_device_handle* handle) {
    abandon_transfers(handle);
    const std::vector<int> claims = interfaces_.claims_of(handle);
    if (!claims.empty()) {
        std::string text;
        for (const int interface : claims) {
            text += (text.empty() ? "" : ", ") + std::to_string(interface);
        }
        complaints_.raise("close_with_claims",
                          "libusb_close: claimed and not released: interface " + text);
        for (const int interface : claims) {
            release_locked(interface);
        }
    }
    if (handle->poisoned) {
        complaints_.raise("poisoned_handle",
                          "libusb_close: libusb 1.0.26 aborts here, because an alternate setting "
                          "was selected after the device had gone");
    }
    libusb_device* const device = handle->device;
    handles_.erase(handle);
    drop_reference(device);
    changed();
}

void Bus::abandon_transfers(libusb_device_handle* handle) {
    size_t abandoned = 0;
    for (auto& [key, urb] : urbs_) {
        if (urb->handle != handle) {
            continue;
        }
        if (urb->state != Urb::State::kIdle) {
            ++abandoned;
            Channel& queue = channel(urb->endpoint);
            queue.endpoint.withdraw(*urb, model::Clock::now());
            std::erase(queue.held, urb.get());
            std::erase(handle->context->completed, urb.get());
            urb->state = Urb::State::kIdle;
        }
        urb->handle = nullptr;
    }
    if (abandoned != 0) {
        complaints_.raise("close_with_transfers",
                          "libusb_close: transfers still in flight: " + std::to_string(abandoned));
    }
}

libusb_device* Bus::device_of(libusb_device_handle* handle) {
    const std::lock_guard lock(mutex_);
    return usable(handle, "libusb_get_device") ? handle->device : nullptr;
}

int Bus::configuration(libusb_device_handle* handle, int* value) {
    const std::lock_guard lock(mutex_);
    if (!usable(handle, "libusb_get_configuration")) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    if (!handle->device->attached) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    if (!camera_config_) {
        return LIBUSB_ERROR_IO;
    }
    *value = (*camera_config_)->bConfigurationValue;
    return LIBUSB_SUCCESS;
}

int Bus::set_configuration(libusb_device_handle* handle, int value) {
    const std::lock_guard lock(mutex_);
    if (!usable(handle, "libusb_set_configuration") || value < -1 || value > 0xFF) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    if (!handle->device->attached) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    if (interfaces_.anything_claimed()) {
        return LIBUSB_ERROR_BUSY;
    }
    const auto wanted = static_cast<uint16_t>(std::max(value, 0));  // -1 asks for 'unconfigured'
    if (!kernel_request({kToDevice, LIBUSB_REQUEST_SET_CONFIGURATION, wanted, 0, 0})) {
        return LIBUSB_ERROR_NOT_FOUND;
    }
    interfaces_.reset_settings();
    return LIBUSB_SUCCESS;
}

int Bus::claim(libusb_device_handle* handle, int interface) {
    const std::lock_guard lock(mutex_);
    if (!usable(handle, "libusb_claim_interface") || interface < 0 || interface >= kMaxInterfaces) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    if (!handle->device->attached) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    if (handle->auto_detach) {
        interfaces_.detach_driver(interface);
    }
    return interfaces_.claim(interface, handle);
}

int Bus::release(libusb_device_handle* handle, int interface) {
    const std::lock_guard lock(mutex_);
    if (!usable(handle, "libusb_release_interface") || interface < 0 ||
        interface >= kMaxInterfaces) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    if (!handle->device->attached) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    if (!interfaces_.claimed_by(interface, handle)) {
        complaints_.raise("release_unclaimed", "libusb_release_interface: " +
                                                   interface_text(interface) + " was not claimed");
        return LIBUSB_ERROR_NOT_FOUND;
    }
    release_locked(interface);
    if (handle->auto_detach) {
        interfaces_.attach_driver(interface);
    }
    changed();
    return LIBUSB_SUCCESS;
}

void Bus::release_locked(int interface) {
    flush_interface(interface);
    if (interfaces_.setting(interface) != 0) {
        // The kernel leaves no interface streaming without an owner.
        kernel_request(
            {kToInterface, LIBUSB_REQUEST_SET_INTERFACE, 0, static_cast<uint16_t>(interface), 0});
        interfaces_.select(interface, 0);
    }
    interfaces_.release(interface);
}

int Bus::set_alt_setting(libusb_device_handle* handle, int interface, int setting) {
    const std::lock_guard lock(mutex_);
    if (!usable(handle, "libusb_set_interface_alt_setting") || interface < 0 ||
        interface >= kMaxInterfaces || setting < 0 || setting > 0xFF) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    if (!handle->device->attached) {
        // libusb 1.0.26 unlocks a mutex here that it does not hold and aborts when it destroys it.
        handle->poisoned = true;
        return LIBUSB_ERROR_NO_DEVICE;
    }
    if (!interfaces_.claimed_by(interface, handle)) {
        complaints_.raise("setting_unclaimed", "libusb_set_interface_alt_setting: " +
                                                   interface_text(interface) + " is not claimed");
        return LIBUSB_ERROR_NOT_FOUND;
    }
    if (!interfaces_.has_setting(interface, setting)) {
        return LIBUSB_ERROR_NOT_FOUND;
    }
    flush_interface(interface);
    const bool done =
        kernel_request({kToInterface, LIBUSB_REQUEST_SET_INTERFACE, static_cast<uint16_t>(setting),
                        static_cast<uint16_t>(interface), 0});
    if (!handle->device->attached) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    if (!done) {
        return LIBUSB_ERROR_OTHER;
    }
    interfaces_.select(interface, setting);
    changed();
    return LIBUSB_SUCCESS;
}

int Bus::clear_halt(libusb_device_handle* handle, uint8_t endpoint) {
    const std::lock_guard lock(mutex_);
    if (!usable(handle, "libusb_clear_halt")) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    if (!handle->device->attached) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    const int interface = interfaces_.interface_of(endpoint);
    if (interface < 0) {
        return LIBUSB_ERROR_NOT_FOUND;
    }
    if (!interfaces_.claimed_by(interface, handle)) {
        complaints_.raise("halt_unclaimed",
                          "libusb_clear_halt: " + interface_text(interface) + " is not claimed");
        return LIBUSB_ERROR_OTHER;
    }
    const bool done =
        kernel_request({kToEndpoint, LIBUSB_REQUEST_CLEAR_FEATURE, kEndpointHalt, endpoint, 0});
    if (!handle->device->attached) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    return done ? LIBUSB_SUCCESS : LIBUSB_ERROR_OTHER;
}

int Bus::reset_device(libusb_device_handle* handle) {
    const std::lock_guard lock(mutex_);
    if (!usable(handle, "libusb_reset_device")) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    if (!handle->device->attached) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    if (!camera_config_) {
        return LIBUSB_ERROR_IO;
    }
    for (const int interface : interfaces_.claims_of(handle)) {
        flush_interface(interface);
    }
    camera_->bus_reset();
    interfaces_.reset_settings();
    configure_camera();
    return LIBUSB_SUCCESS;
}

int Bus::driver_active(libusb_device_handle* handle, int interface) {
    const std::lock_guard lock(mutex_);
    if (!usable(handle, "libusb_kernel_driver_active") || interface < 0 ||
        interface >= kMaxInterfaces) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    return handle->device->attached ? interfaces_.driver_active(interface) : LIBUSB_ERROR_NO_DEVICE;
}

int Bus::detach_driver(libusb_device_handle* handle, int interface) {
    const std::lock_guard lock(mutex_);
    if (!usable(handle, "libusb_detach_kernel_driver") || interface < 0 ||
        interface >= kMaxInterfaces) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    return handle->device->attached ? interfaces_.detach_driver(interface) : LIBUSB_ERROR_NO_DEVICE;
}

int Bus::attach_driver(libusb_device_handle* handle, int interface) {
    const std::lock_guard lock(mutex_);
    if (!usable(handle, "libusb_attach_kernel_driver") || interface < 0 ||
        interface >= kMaxInterfaces) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    return handle->device->attached ? interfaces_.attach_driver(interface) : LIBUSB_ERROR_NO_DEVICE;
}

int Bus::set_auto_detach(libusb_device_handle* handle, bool enable) {
    const std::lock_guard lock(mutex_);
    if (!usable(handle, "libusb_set_auto_detach_kernel_driver")) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    handle->auto_detach = enable;
    return LIBUSB_SUCCESS;
}

void Bus::configure_camera() {
    // Part of enumeration: out of reach of the scripted failures, which count a program's requests.
    const model::Setup setup{kToDevice, LIBUSB_REQUEST_SET_CONFIGURATION,
                             (*camera_config_)->bConfigurationValue, 0, 0};
    const bool done = !camera_->control(setup, {}).stall;
    trace_.control(elapsed(), "kernel", setup, {}, kKernelTimeOutMs, done ? 0 : LIBUSB_ERROR_PIPE);
}

bool Bus::kernel_request(const model::Setup& setup) {
    faults::Action action;
    if (!rules_.empty()) {
        action = rules_.on_control(setup, {});
        run_actions(action.device);
    }
    bool done = attachment_ != 0;
    if (const auto refused = line::refusal(action)) {
        done = done && !refused->never && refused->status == faults::Status::kCompleted;
    } else {
        done = done && !camera_->control(setup, {}).stall;
    }
    trace_.control(elapsed(), "kernel", setup, {}, kKernelTimeOutMs, done ? 0 : LIBUSB_ERROR_PIPE);
    sync_presence();
    return done;
}

void Bus::flush_interface(int interface) {
    for (const uint8_t endpoint : interfaces_.endpoints_of(interface)) {
        // libusb reports what usbfs unlinks by itself as complete and empty.
        finish_all(channel(endpoint), faults::Status::kCompleted);
    }
}

}  // namespace virtcam::bus
