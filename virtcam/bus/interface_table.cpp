#include "virtcam/bus/interface_table.h"

#include <algorithm>
#include <span>

namespace virtcam::bus {
namespace {

constexpr uint8_t kControlSubclass = 1;  // of the video and of the audio class alike

}  // namespace

InterfaceTable::InterfaceTable(const libusb_config_descriptor& config, bool drivers) {
    for (const auto& interface : std::span(config.interface, config.bNumInterfaces)) {
        for (const auto& setting :
             std::span(interface.altsetting, static_cast<size_t>(interface.num_altsetting))) {
            Interface& entry = interfaces_[setting.bInterfaceNumber];
            entry.settings.push_back(&setting);
            if (drivers) {
                entry.driver = driver_for(setting);
            }
        }
    }
}

std::string InterfaceTable::driver_for(const libusb_interface_descriptor& setting) {
    switch (setting.bInterfaceClass) {
        case LIBUSB_CLASS_VIDEO:
            return "uvcvideo";
        case LIBUSB_CLASS_AUDIO:
            return "snd-usb-audio";
        default:
            return "";
    }
}

bool InterfaceTable::is_control(const Interface& interface) {
    return interface.settings.front()->bInterfaceSubClass == kControlSubclass;
}

bool InterfaceTable::claimed_by(int interface, const libusb_device_handle* handle) const {
    const auto found = interfaces_.find(interface);
    return found != interfaces_.end() && found->second.owner == handle;
}

std::vector<int> InterfaceTable::claims_of(const libusb_device_handle* handle) const {
    std::vector<int> claims;
    for (const auto& [number, interface] : interfaces_) {
        if (interface.owner == handle) {
            claims.push_back(number);
        }
    }
    return claims;
}

bool InterfaceTable::anything_claimed() const {
    return std::any_of(interfaces_.begin(), interfaces_.end(),
                       [](const auto& entry) { return entry.second.owner != nullptr; });
}

int InterfaceTable::claim(int interface, libusb_device_handle* handle) {
    const auto found = interfaces_.find(interface);
    if (found == interfaces_.end()) {
        return LIBUSB_ERROR_NOT_FOUND;
    }
    Interface& entry = found->second;
    if (!entry.driver.empty() || (entry.owner != nullptr && entry.owner != handle)) {
        return LIBUSB_ERROR_BUSY;
    }
    entry.owner = handle;
    return LIBUSB_SUCCESS;
}

void InterfaceTable::release(int interface) {
    if (const auto found = interfaces_.find(interface); found != interfaces_.end()) {
        found->second.owner = nullptr;
    }
}

int InterfaceTable::driver_active(int interface) const {
    const auto found = interfaces_.find(interface);
    return found != interfaces_.end() && !found->second.driver.empty() ? 1 : 0;
}

std::string InterfaceTable::driver_name(int interface) const {
    const auto found = interfaces_.find(interface);
    if (found == interfaces_.end()) {
        return "(none)";
    }
    if (found->second.owner != nullptr) {
        return "usbfs";
    }
    return found->second.driver.empty() ? "(none)" : found->second.driver;
}

int InterfaceTable::detach_driver(int interface) {
    if (driver_active(interface) == 0) {
        return LIBUSB_ERROR_NOT_FOUND;
    }
    Interface& entry = interfaces_[interface];
    const std::string driver = entry.driver;
    entry.driver.clear();
    if (is_control(entry)) {
        // Class drivers hold their streaming interfaces through the control interface.
        for (auto& [number, other] : interfaces_) {
            if (other.driver == driver) {
                other.driver.clear();
            }
        }
    }
    return LIBUSB_SUCCESS;
}

int InterfaceTable::attach_driver(int interface) {
    const auto found = interfaces_.find(interface);
    if (found == interfaces_.end()) {
        return LIBUSB_ERROR_NOT_FOUND;
    }
    Interface& entry = found->second;
    if (!entry.driver.empty() || entry.owner != nullptr) {
        return LIBUSB_ERROR_BUSY;
    }
    const std::string driver = driver_for(*entry.settings.front());
    if (driver.empty() || !is_control(entry)) {
        return LIBUSB_ERROR_NOT_FOUND;  // a streaming interface alone is taken by no driver
    }
    for (auto& [number, other] : interfaces_) {
        if (other.owner == nullptr && driver_for(*other.settings.front()) == driver) {
            other.driver = driver;
        }
    }
    return LIBUSB_SUCCESS;
}

int InterfaceTable::setting(int interface) const {
    const auto found = interfaces_.find(interface);
    return found == interfaces_.end() ? 0 : found->second.setting;
}

bool InterfaceTable::has_setting(int interface, int setting) const {
    const auto found = interfaces_.find(interface);
    return found != interfaces_.end() &&
           std::any_of(found->second.settings.begin(), found->second.settings.end(),
                       [&](const auto* entry) { return entry->bAlternateSetting == setting; });
}

void InterfaceTable::select(int interface, int setting) {
    if (const auto found = interfaces_.find(interface); found != interfaces_.end()) {
        found->second.setting = setting;
    }
}

void InterfaceTable::reset_settings() {
    for (auto& [number, interface] : interfaces_) {
        interface.setting = 0;
    }
}

int InterfaceTable::interface_of(uint8_t endpoint) const {
    for (const auto& [number, interface] : interfaces_) {
        for (const auto* setting : interface.settings) {
            for (const auto& entry : std::span(setting->endpoint, setting->bNumEndpoints)) {
                if (entry.bEndpointAddress == endpoint) {
                    return number;
                }
            }
        }
    }
    return -1;
}

const libusb_interface_descriptor* InterfaceTable::present(const Interface& interface) const {
    for (const auto* setting : interface.settings) {
        if (setting->bAlternateSetting == interface.setting) {
            return setting;
        }
    }
    return nullptr;
}

const libusb_endpoint_descriptor* InterfaceTable::active_endpoint(uint8_t endpoint) const {
    for (const auto& [number, interface] : interfaces_) {
        const auto* setting = present(interface);
        if (setting == nullptr) {
            continue;
        }
        for (const auto& entry : std::span(setting->endpoint, setting->bNumEndpoints)) {
            if (entry.bEndpointAddress == endpoint) {
                return &entry;
            }
        }
    }
    return nullptr;
}

std::vector<uint8_t> InterfaceTable::endpoints_of(int interface) const {
    std::vector<uint8_t> endpoints;
    const auto found = interfaces_.find(interface);
    const auto* setting = found == interfaces_.end() ? nullptr : present(found->second);
    if (setting != nullptr) {
        for (const auto& entry : std::span(setting->endpoint, setting->bNumEndpoints)) {
            endpoints.push_back(entry.bEndpointAddress);
        }
    }
    return endpoints;
}

}  // namespace virtcam::bus
