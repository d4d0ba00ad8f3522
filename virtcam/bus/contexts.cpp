#include "virtcam/bus/contexts.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace virtcam::bus {
namespace {

std::string count_of(size_t number, const char* what) {
    return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

}  // namespace

int Contexts::init(libusb_context** context) {
    if (!refusal_.empty()) {
        std::fprintf(stderr, "virtbus: libusb_init fails, configuration: %s\n", refusal_.c_str());
        return LIBUSB_ERROR_OTHER;
    }
    if (context == nullptr && default_ != nullptr) {
        ++default_->references;
        return LIBUSB_SUCCESS;
    }
    auto made = std::make_unique<libusb_context>();
    made->generation = shared_.generation;
    libusb_context* const result = made.get();
    for (const auto& info : port_.devices()) {
        devices_.add(*result, info);
    }
    contexts_.emplace(result, std::move(made));
    if (context == nullptr) {
        default_ = result;
    } else {
        *context = result;
    }
    return LIBUSB_SUCCESS;
}

libusb_context* Contexts::resolve(libusb_context* context, const char* call) {
    if (context != nullptr) {
        if (contexts_.count(context) != 0) {
            return context;
        }
        shared_.complaints.raise("unknown_context", std::string(call) + ": not an open context");
        return nullptr;
    }
    if (default_ == nullptr) {
        shared_.complaints.raise(
            "no_default_context",
            std::string(call) + ": no default context was made by libusb_init");
        return contexts_.empty() ? nullptr : contexts_.begin()->first;
    }
    return default_;
}

bool Contexts::exit(libusb_context* context) {
    if (context == nullptr && default_ == nullptr) {
        return false;  // libusb allows it
    }
    libusb_context* const meant = resolve(context, "libusb_exit");
    if (meant == nullptr || --meant->references > 0) {
        return false;
    }
    end(meant);
    return contexts_.empty();
}

void Contexts::end(libusb_context* context) {
    const size_t open = handles_.open_in(context);
    if (open != 0) {
        shared_.complaints.raise("exit_with_handles",
                                 "libusb_exit: " + count_of(open, "device handle") + " still open");
    }
    for (libusb_device* device : std::exchange(context->devices, {})) {
        devices_.drop_reference(device);
    }
    if (const size_t referenced = devices_.orphan(context); referenced != 0) {
        shared_.complaints.raise(
            "exit_with_devices",
            "libusb_exit: " + count_of(referenced, "device") + " still referenced");
    }
    auto entry = contexts_.extract(context);
    if (open != 0) {
        exited_.push_back(std::move(entry.mapped()));
    }
    if (context == default_) {
        default_ = nullptr;
    }
}

void Contexts::camera_left(const std::shared_ptr<const DeviceInfo>& camera) {
    for (auto& [key, context] : contexts_) {
        const auto found = std::find_if(context->devices.begin(), context->devices.end(),
                                        [&](const auto* device) { return device->info == camera; });
        if (found != context->devices.end()) {
            libusb_device* const device = *found;
            context->devices.erase(found);
            device->attached = false;
            devices_.drop_reference(device);
        }
    }
}

void Contexts::camera_came(const std::shared_ptr<const DeviceInfo>& camera) {
    for (auto& [key, context] : contexts_) {
        devices_.add(*context, camera);
    }
}

size_t Contexts::unreported() const {
    return static_cast<size_t>(
        std::count_if(contexts_.begin(), contexts_.end(), [&](const auto& entry) {
            return entry.second->generation == shared_.generation && !entry.second->leak_reported;
        }));
}

void Contexts::tell_leaks(std::vector<Complaint>& leaks) {
    for (const auto& [key, context] : contexts_) {
        if (context->generation == shared_.generation) {
            context->leak_reported = true;
            leaks.push_back({"leaked_context", "a context was never exited"});
        }
    }
}

}  // namespace virtcam::bus
