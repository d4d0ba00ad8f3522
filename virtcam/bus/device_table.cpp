#include "virtcam/bus/device_table.h"

#include <algorithm>
#include <cstdio>

namespace virtcam::bus {

void DeviceTable::add(libusb_context& context, const std::shared_ptr<const DeviceInfo>& info) {
    auto device = std::make_unique<libusb_device>();
    device->context = &context;
    device->info = info;
    device->references = 1;
    device->generation = shared_.generation;
    context.devices.push_back(device.get());
    libusb_device* const key = device.get();
    devices_.emplace(key, std::move(device));
}

void DeviceTable::drop_reference(libusb_device* device) {
    if (--device->references == 0) {
        devices_.erase(device);
    }
}

size_t DeviceTable::orphan(const libusb_context* context) {
    size_t referenced = 0;
    for (auto& [key, device] : devices_) {
        if (device->context == context) {
            device->context = nullptr;
            referenced += references_of_program(device.get()) > 0 ? 1 : 0;
        }
    }
    return referenced;
}

int DeviceTable::references_of_program(const libusb_device* device) const {
    int references = device->references - handles_.open_on(device);
    if (device->context != nullptr && device->attached) {
        --references;
    }
    for (const auto& [key, list] : lists_) {
        for (libusb_device** entry = list.devices.get(); *entry != nullptr; ++entry) {
            references -= *entry == device ? 1 : 0;
        }
    }
    return references;
}

ssize_t DeviceTable::list(const libusb_context& context, libusb_device*** list) {
    const auto& devices = context.devices;
    auto array = std::make_unique<libusb_device*[]>(devices.size() + 1);
    std::copy(devices.begin(), devices.end(), array.get());
    for (libusb_device* device : devices) {
        ++device->references;
    }
    *list = array.get();
    lists_.emplace(*list, List{std::move(array), shared_.generation});
    return static_cast<ssize_t>(devices.size());
}

void DeviceTable::free_list(libusb_device** list, bool unreference) {
    if (list == nullptr) {
        return;
    }
    const auto found = lists_.find(list);
    if (found == lists_.end()) {
        shared_.complaints.raise("unknown_list",
                                 "libusb_free_device_list: not a list, or freed already");
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

libusb_device* DeviceTable::reference(libusb_device* device) {
    if (known(device)) {
        ++device->references;
    } else {
        shared_.complaints.raise("unknown_device", "libusb_ref_device: not a device");
    }
    return device;
}

void DeviceTable::unreference(libusb_device* device) {
    if (device == nullptr) {
        return;
    }
    if (!known(device) || references_of_program(device) <= 0) {
        shared_.complaints.raise("unknown_device",
                                 "libusb_unref_device: no reference of the program is left");
        return;
    }
    drop_reference(device);
}

std::shared_ptr<const DeviceInfo> DeviceTable::info(libusb_device* device, const char* call) {
    if (!known(device)) {
        shared_.complaints.raise("unknown_device", std::string(call) + ": not a device");
        return nullptr;
    }
    return device->info;
}

libusb_device* DeviceTable::parent(libusb_device* device) const {
    if (!known(device) || device->context == nullptr ||
        device->info->kind == DeviceInfo::Kind::kRootHub) {
        return nullptr;
    }
    return device->context->devices.front();
}

libusb_config_descriptor* DeviceTable::make_config(const DeviceInfo& device) {
    auto config = ConfigDescriptor::parse(device.config_bytes);
    if (!config) {
        return nullptr;
    }
    libusb_config_descriptor* const key = config->get();
    configs_.emplace(key, Config{std::move(config), shared_.generation});
    return key;
}

void DeviceTable::free_config(libusb_config_descriptor* config) {
    if (config != nullptr && configs_.erase(config) == 0) {
        shared_.complaints.raise("unknown_descriptor",
                                 "libusb_free_config_descriptor: not a descriptor, or freed "
                                 "already");
    }
}

void DeviceTable::tell_leaks(std::vector<Complaint>& leaks) const {
    for (const auto& [key, list] : lists_) {
        if (list.generation == shared_.generation) {
            leaks.push_back({"leaked_list", "a device list was never freed"});
        }
    }
    for (const auto& [key, device] : devices_) {
        const int references = references_of_program(device.get());
        if (device->generation == shared_.generation && references > 0) {
            leaks.push_back({"leaked_device", "references to " + id_text(*device->info) +
                                                  " never dropped: " + std::to_string(references)});
        }
    }
    for (const auto& [key, config] : configs_) {
        if (config.generation == shared_.generation) {
            leaks.push_back({"leaked_descriptor", "a configuration descriptor was never freed"});
        }
    }
}

std::string id_text(const DeviceInfo& device) {
    libusb_device_descriptor descriptor{};
    parse_device_descriptor(device.device_bytes, descriptor);
    char text[32];
    std::snprintf(text, sizeof text, "%04x:%04x", descriptor.idVendor, descriptor.idProduct);
    return text;
}

}  // namespace virtcam::bus
