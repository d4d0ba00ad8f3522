#include "virtcam/bus/handle_table.h"

#include <algorithm>
#include <string>

namespace virtcam::bus {

libusb_device_handle* HandleTable::add(libusb_device* device) {
    auto made = std::make_unique<libusb_device_handle>();
    made->context = device->context;
    made->device = device;
    made->generation = shared_.generation;
    ++device->references;
    libusb_device_handle* const key = made.get();
    handles_.emplace(key, std::move(made));
    return key;
}

bool HandleTable::usable(libusb_device_handle* handle, const char* call) {
    if (handles_.count(handle) != 0) {
        return true;
    }
    shared_.complaints.raise("unknown_handle", std::string(call) + ": not an open device handle");
    return false;
}

size_t HandleTable::open_in(const libusb_context* context) const {
    return static_cast<size_t>(
        std::count_if(handles_.begin(), handles_.end(),
                      [&](const auto& entry) { return entry.second->context == context; }));
}

int HandleTable::open_on(const libusb_device* device) const {
    return static_cast<int>(std::count_if(handles_.begin(), handles_.end(), [&](const auto& entry) {
        return entry.second->device == device;
    }));
}

std::vector<const libusb_device_handle*> HandleTable::leaked() const {
    std::vector<const libusb_device_handle*> list;
    for (const auto& [key, handle] : handles_) {
        if (handle->generation == shared_.generation) {
            list.push_back(key);
        }
    }
    return list;
}

}  // namespace virtcam::bus
