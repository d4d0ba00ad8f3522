// Contexts, device lists and descriptors.
#include <algorithm>
#include <cstdio>

#include "virtcam/bus/bus.h"

namespace virtcam::bus {
namespace {

std::string count_of(size_t number, const char* what) {
    return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

}  // namespace

int Bus::init(libusb_context** context) {
    const std::lock_guard lock(mutex_);
    if (!broken_.empty()) {
        std::fprintf(stderr, "virtbus: libusb_init fails, configuration: %s\n", broken_.c_str());
        return LIBUSB_ERROR_OTHER;
    }
    if (context == nullptr && default_context_ != nullptr) {
        ++default_context_->references;
        return LIBUSB_SUCCESS;
    }
    auto made = std::make_unique<libusb_context>();
    made->generation = generation_;
    libusb_context* const result = made.get();
    for (const auto& info : fixed_devices_) {
        add_device(*result, info);
    }
    if (camera_info_) {
        add_device(*result, camera_info_);
    }
    contexts_.emplace(result, std::move(made));
    if (context == nullptr) {
        default_context_ = result;
    } else {
        *context = result;
    }
    return LIBUSB_SUCCESS;
}

libusb_context* Bus::resolve(libusb_context* context, const char* call) {
    const std::lock_guard lock(mutex_);
    if (context != nullptr) {
        if (contexts_.count(context) != 0) {
            return context;
        }
        complaints_.raise("unknown_context", std::string(call) + ": not an open context");
        return nullptr;
    }
    if (default_context_ == nullptr) {
        complaints_.raise("no_default_context",
                          std::string(call) + ": no default context was made by libusb_init");
        return contexts_.empty() ? nullptr : contexts_.begin()->first;
    }
    return default_context_;
}

void Bus::exit(libusb_context* context) {
    const bool default_without_init = context == nullptr && [this] {
        const std::lock_guard lock(mutex_);
        return default_context_ == nullptr;
    }();
    if (default_without_init) {
        return;  // libusb allows it
    }
    libusb_context* const meant = resolve(context, "libusb_exit");
    if (meant == nullptr) {
        return;
    }
    bool last = false;
    {
        const std::lock_guard lock(mutex_);
        if (--meant->references > 0) {
            return;
        }
        const auto open = static_cast<size_t>(
            std::count_if(handles_.begin(), handles_.end(),
                          [&](const auto& entry) { return entry.second->context == meant; }));
        if (open != 0) {
            complaints_.raise("exit_with_handles",
                              "libusb_exit: " + count_of(open, "device handle") + " still open");
        }
        for (libusb_device* device : std::exchange(meant->devices, {})) {
            drop_reference(device);
        }
        size_t referenced = 0;
        for (auto& [key, device] : devices_) {
            if (device->context == meant) {
                device->context = nullptr;
                referenced += references_of_program(device.get()) > 0 ? 1 : 0;
            }
        }
        if (referenced != 0) {
            complaints_.raise(
                "exit_with_devices",
                "libusb_exit: " + count_of(referenced, "device") + " still referenced");
        }
        auto entry = contexts_.extract(meant);
        if (open != 0) {
            exited_contexts_.push_back(std::move(entry.mapped()));
        }
        if (meant == default_context_) {
            default_context_ = nullptr;
        }
        last = contexts_.empty();
    }
    if (last) {
        write_status();
    }
}

void Bus::add_device(libusb_context& context, const std::shared_ptr<const DeviceInfo>& info) {
    auto device = std::make_unique<libusb_device>();
    device->context = &context;
    device->info = info;
    device->references = 1;
    device->generation = generation_;
    context.devices.push_back(device.get());
    libusb_device* const key = device.get();
    devices_.emplace(key, std::move(device));
}

void Bus::drop_reference(libusb_device* device) {
    if (--device->references == 0) {
        devices_.erase(device);
    }
}

int Bus::references_of_program(const libusb_device* device) const {
    int references = device->references;
    if (device->context != nullptr && device->attached) {
        --references;
    }
    for (const auto& [key, handle] : handles_) {
        references -= handle->device == device ? 1 : 0;
    }
    for (const auto& [key, list] : lists_) {
        for (libusb_device** entry = list.devices.get(); *entry != nullptr; ++entry) {
            references -= *entry == device ? 1 : 0;
        }
    }
    return references;
}

ssize_t Bus::list_devices(libusb_context* context, libusb_device*** list) {
    const std::lock_guard lock(mutex_);
    const auto& devices = context->devices;
    auto array = std::make_unique<libusb_device*[]>(devices.size() + 1);
    std::copy(devices.begin(), devices.end(), array.get());
    for (libusb_device* device : devices) {
        ++device->references;
    }
    *list = array.get();
    lists_.emplace(*list, DeviceList{std::move(array), generation_});
    return static_cast<ssize_t>(devices.size());
}

void Bus::free_list(libusb_device** list, bool unreference) {
    if (list == nullptr) {
        return;
    }
    const std::lock_guard lock(mutex_);
    const auto found = lists_.find(list);
    if (found == lists_.end()) {
        complaints_.raise("unknown_list", "libusb_free_device_list: not a list, or freed already");
        return;
    }
    const auto array = std::move(found->second.devices);
    lists_.erase(found);
    for (libusb_device** entry = array.get(); unreference && *entry != nullptr; ++entry) {
        if (known(*entry)) {
            drop_reference(*entry);
        }
    }
}

libusb_device* Bus::reference(libusb_device* device) {
    const std::lock_guard lock(mutex_);
    if (known(device)) {
        ++device->references;
    } else {
        complaints_.raise("unknown_device", "libusb_ref_device: not a device");
    }
    return device;
}

void Bus::unreference(libusb_device* device) {
    if (device == nullptr) {
        return;
    }
    const std::lock_guard lock(mutex_);
    if (!known(device) || references_of_program(device) <= 0) {
        complaints_.raise("unknown_device",
                          "libusb_unref_device: no reference of the program is left");
        return;
    }
    drop_reference(device);
}

std::shared_ptr<const DeviceInfo> Bus::info(libusb_device* device, const char* call) {
    const std::lock_guard lock(mutex_);
    if (!known(device)) {
        complaints_.raise("unknown_device", std::string(call) + ": not a device");
        return nullptr;
    }
    return device->info;
}

libusb_device* Bus::parent(libusb_device* device) {
    const std::lock_guard lock(mutex_);
    if (!known(device) || device->context == nullptr ||
        device->info->kind == DeviceInfo::Kind::kRootHub) {
        return nullptr;
    }
    return device->context->devices.front();
}

libusb_config_descriptor* Bus::make_config(const DeviceInfo& device) {
    auto config = ConfigDescriptor::parse(device.config_bytes);
    if (!config) {
        return nullptr;
    }
    const std::lock_guard lock(mutex_);
    libusb_config_descriptor* const key = config->get();
    configs_.emplace(key, ConfigCopy{std::move(config), generation_});
    return key;
}

void Bus::free_config(libusb_config_descriptor* config) {
    if (config == nullptr) {
        return;
    }
    const std::lock_guard lock(mutex_);
    if (configs_.erase(config) == 0) {
        complaints_.raise("unknown_descriptor",
                          "libusb_free_config_descriptor: not a descriptor, or freed already");
    }
}

std::shared_ptr<DeviceInfo> Bus::describe_camera() {
    auto info = std::make_shared<DeviceInfo>();
    info->kind = DeviceInfo::Kind::kCamera;
    info->port = static_cast<uint8_t>(fixed_devices_.size());  // the hub is one of them
    constexpr uint8_t kLastAddress = 127;
    last_address_ = last_address_ >= kLastAddress ? static_cast<uint8_t>(fixed_devices_.size() + 1)
                                                  : static_cast<uint8_t>(last_address_ + 1);
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

void Bus::write_listing() {
    auto devices = fixed_devices_;
    if (camera_info_) {
        devices.push_back(camera_info_);
    }
    listing_.write(devices, [this](const DeviceInfo& device, int interface) -> std::string {
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
