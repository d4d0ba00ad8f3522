#include "virtcam/bus/port.h"

#include <utility>

#include "virtcam/bus/fixed_devices.h"
#include "virtcam/line/fault_effect.h"
#include "virtcam/model/usb.h"

namespace virtcam::bus {

using faults::DeviceAction;

void Port::power_on(line::Equipment equipment) {
    if (attachment_ != 0) {
        depart();
    }
    config_ = std::move(equipment.config);
    rules_ = std::move(equipment.rules);
    camera_ = std::move(equipment.camera);
    started_ = model::Clock::now();
    journal_.begin(started_);
    shared_.complaints.set_quiet(config_.quiet);
    shared_.complaints.expect(config_.expected_complaints);
    listing_.move_to(config_.listing);
    fixed_devices_ = make_fixed_devices(config_.other_devices);
    last_address_ = static_cast<uint8_t>(fixed_devices_.size());
    write_listing();
    sync();
}

void Port::run(DeviceAction action) {
    faults::perform(action, *camera_);
    sync();
}

void Port::run(const std::vector<DeviceAction>& actions) {
    for (const auto action : actions) {
        run(action);
    }
}

TimePoint Port::run_due() {
    run(rules_.take_due(
        std::chrono::duration_cast<std::chrono::milliseconds>(model::Clock::now() - started_)));
    const auto next = rules_.next_due();
    return next ? started_ + *next : TimePoint::max();
}

void Port::sync() {
    const uint64_t now = camera_->attached() ? camera_->attachment() : 0;
    if (now == attachment_) {
        return;
    }
    if (attachment_ != 0) {
        depart();
    }
    if (now != 0) {
        attachment_ = now;
        arrive();
    }
    shared_.changed();
}

void Port::depart() {
    attachment_ = 0;
    interfaces_ = InterfaceTable();
    configuration_.reset();
    neighbour_.camera_left(std::exchange(info_, nullptr));
    write_listing();
}

void Port::arrive() {
    info_ = describe_camera();
    note_enumeration();
    configuration_ = ConfigDescriptor::parse(info_->config_bytes);
    if (configuration_) {
        interfaces_ = InterfaceTable(**configuration_, config_.kernel_drivers);
        configure_camera();
    }
    neighbour_.camera_came(info_);
    write_listing();
}

std::vector<std::shared_ptr<const DeviceInfo>> Port::devices() const {
    auto devices = fixed_devices_;
    if (info_) {
        devices.push_back(info_);
    }
    return devices;
}

bool Port::kernel_request(const model::Setup& setup) {
    const faults::Action action = rules_.on_control(setup, {});
    run(action.device);
    bool done = attachment_ != 0;
    if (const auto refused = line::refusal(action)) {
        done = done && !refused->never && refused->status == faults::Status::kCompleted;
    } else {
        done = done && !camera_->control(setup, {}).stall;
    }
    journal_.note_kernel_request(info_ ? info_->address : 0, setup, {}, done);
    sync();
    return done;
}

void Port::reset_camera() {
    camera_->bus_reset();
    interfaces_.reset_settings();
    configure_camera();
}

/// The kernel's reading of the descriptors: a capture makes no sense to its reader without them.
void Port::note_enumeration() {
    constexpr uint16_t kDeviceDescriptor = 0x0100;
    constexpr uint16_t kConfigurationDescriptor = 0x0200;
    for (const auto& [value, bytes] : {std::pair(kDeviceDescriptor, &info_->device_bytes),
                                       std::pair(kConfigurationDescriptor, &info_->config_bytes)}) {
        journal_.note_kernel_request(info_->address,
                                     {model::usb::kDirectionIn, model::usb::kGetDescriptor, value,
                                      0, static_cast<uint16_t>(bytes->size())},
                                     *bytes, true);
    }
}

/// Selects the camera's only configuration, as the kernel does for a device that arrives.
void Port::configure_camera() {
    // Part of enumeration: out of reach of the scripted failures, which count a program's requests.
    const model::Setup setup{model::usb::kRecipientDevice, model::usb::kSetConfiguration,
                             (*configuration_)->bConfigurationValue, 0, 0};
    journal_.note_kernel_request(info_->address, setup, {}, !camera_->control(setup, {}).stall);
}

std::shared_ptr<DeviceInfo> Port::describe_camera() {
    constexpr uint8_t kLastAddress = 127;
    const auto first = static_cast<uint8_t>(fixed_devices_.size() + 1);
    last_address_ = last_address_ >= kLastAddress ? first : static_cast<uint8_t>(last_address_ + 1);
    auto info = std::make_shared<DeviceInfo>();
    info->kind = DeviceInfo::Kind::kCamera;
    info->port = static_cast<uint8_t>(fixed_devices_.size());  // the hub is one of them
    info->address = last_address_;
    info->device_bytes = camera_->device_descriptor();
    info->config_bytes = camera_->configuration_descriptor();
    libusb_device_descriptor descriptor{};
    if (parse_device_descriptor(info->device_bytes, descriptor)) {
        info->manufacturer = camera_->string(descriptor.iManufacturer);
        info->product = camera_->string(descriptor.iProduct);
        info->serial = camera_->string(descriptor.iSerialNumber);
    }
    return info;
}

void Port::write_listing() {
    listing_.write(devices(), [this](const DeviceInfo& device, int interface) -> std::string {
        switch (device.kind) {
            case DeviceInfo::Kind::kRootHub:
                return "hub";
            case DeviceInfo::Kind::kOther:
                return "usbhid";
            case DeviceInfo::Kind::kCamera:
                return interfaces_.driver_name(interface);
        }
        return "(none)";
    });
}

}  // namespace virtcam::bus
