// What the bus tells about itself: logs, leaks, status.
#include <algorithm>
#include <cstdio>
#include <fstream>

#include "virtcam/bus/bus.h"
#include "virtcam/bus/status_codes.h"

namespace virtcam::bus {
namespace {

/// Old entries go when a log reaches this length, so that a long run does not eat the memory.
constexpr size_t kControlLogLimit = 100'000;

const char* type_name(int type) {
    switch (type) {
        case LIBUSB_TRANSFER_TYPE_CONTROL:
            return "control";
        case LIBUSB_TRANSFER_TYPE_ISOCHRONOUS:
            return "iso";
        case LIBUSB_TRANSFER_TYPE_BULK:
            return "bulk";
        default:
            return "interrupt";
    }
}

const char* status_name(int status) {
    constexpr const char* kNames[] = {"completed", "error",     "timed_out", "cancelled",
                                      "stall",     "no_device", "overflow"};
    return kNames[status];
}

std::string device_text(const DeviceInfo& device) {
    libusb_device_descriptor descriptor{};
    parse_device_descriptor(device.device_bytes, descriptor);
    char text[32];
    std::snprintf(text, sizeof text, "%04x:%04x", descriptor.idVendor, descriptor.idProduct);
    return text;
}

/// What the program saw of a control transfer: bytes, or the error of the synchronous call.
int result_of(const line::Ending& ending) {
    if (ending.code) {
        return *ending.code;
    }
    return ending.status == faults::Status::kCompleted ? static_cast<int>(ending.count)
                                                       : error_for(to_libusb(ending.status));
}

nlohmann::json to_json(const std::vector<Complaint>& list) {
    nlohmann::json result = nlohmann::json::array();
    for (const auto& complaint : list) {
        result.push_back({{"code", complaint.code}, {"text", complaint.text}});
    }
    return result;
}

}  // namespace

void Bus::log_control(Urb& urb) {
    if (control_log_.size() == kControlLogLimit) {
        control_log_.pop_front();
        ++control_log_first_;
    }
    urb.control_record = control_log_first_ + control_log_.size();
    control_log_.push_back({std::chrono::steady_clock::now(),
                            urb.setup,
                            {urb.out.begin(), urb.out.end()},
                            urb.transfer->timeout,
                            std::nullopt,
                            std::this_thread::get_id()});
}

void Bus::log_result(const Urb& urb) {
    if (!urb.control_record) {
        return;
    }
    const model::ByteView data = urb.setup.device_to_host() ? urb.ending.data : urb.out;
    const int result = result_of(urb.ending);
    trace_.control(elapsed(), "", urb.setup, data, urb.transfer->timeout, result);
    if (*urb.control_record >= control_log_first_ &&
        *urb.control_record - control_log_first_ < control_log_.size()) {
        auto& record = control_log_[*urb.control_record - control_log_first_];
        record.data.assign(data.begin(), data.end());
        record.result = result;
    }
}

std::vector<ControlRecord> Bus::control_log() {
    const std::lock_guard lock(mutex_);
    return {control_log_.begin(), control_log_.end()};
}

std::vector<CallRecord> Bus::call_log() {
    const std::lock_guard lock(mutex_);
    return {call_log_.begin(), call_log_.end()};
}

std::map<std::string, uint64_t> Bus::call_counts() {
    const std::lock_guard lock(mutex_);
    return {call_counts_.begin(), call_counts_.end()};
}

void Bus::clear_logs() {
    const std::lock_guard lock(mutex_);
    control_log_first_ += control_log_.size();
    control_log_.clear();
    call_log_.clear();
}

std::vector<Complaint> Bus::leaks() {
    const std::lock_guard lock(mutex_);
    std::vector<Complaint> leaks;
    for (const auto& [key, context] : contexts_) {
        if (context->generation == generation_) {
            context->leak_reported = true;
            leaks.push_back({"leaked_context", "a context was never exited"});
        }
    }
    for (const auto& [key, handle] : handles_) {
        if (handle->generation == generation_) {
            leaks.push_back({"leaked_handle", leaked_handle_text(*handle)});
        }
    }
    for (const auto& [key, list] : lists_) {
        if (list.generation == generation_) {
            leaks.push_back({"leaked_list", "a device list was never freed"});
        }
    }
    for (const auto& [key, device] : devices_) {
        const int references = references_of_program(device.get());
        if (device->generation == generation_ && references > 0) {
            leaks.push_back({"leaked_device", "references to " + device_text(*device->info) +
                                                  " never dropped: " + std::to_string(references)});
        }
    }
    for (const auto& [key, config] : configs_) {
        if (config.generation == generation_) {
            leaks.push_back({"leaked_descriptor", "a configuration descriptor was never freed"});
        }
    }
    for (const auto& [key, urb] : urbs_) {
        if (urb->generation == generation_ && !urb->internal) {
            leaks.push_back({"leaked_transfer", "a transfer was never freed"});
        }
    }
    return leaks;
}

std::string Bus::leaked_handle_text(const libusb_device_handle& handle) const {
    std::string text = "a handle of " + device_text(*handle.device->info) + " was never closed";
    for (const int interface : interfaces_.claims_of(&handle)) {
        text += ", interface " + std::to_string(interface) + " is claimed";
    }
    return text;
}

nlohmann::json Bus::bus_status() {
    const auto leaked = leaks();
    const std::lock_guard lock(mutex_);
    nlohmann::json transfers = nlohmann::json::object();
    for (const auto& [kind, count] : transfer_counts_) {
        transfers[type_name(kind.first)][status_name(kind.second)] = count;
    }
    return {{"attached", attachment_ != 0},
            {"attachment", attachment_},
            {"address", camera_info_ ? camera_info_->address : 0},
            {"configuration_error", broken_},
            {"listing", {{"path", listing_.path()}, {"state", listing_.state()}}},
            {"calls", call_counts_},
            {"transfers", std::move(transfers)},
            {"complaints", to_json(complaints_.all())},
            {"leaks", to_json(leaked)}};
}

nlohmann::json Bus::status() {
    return {{"camera", camera()->status()}, {"bus", bus_status()}};
}

void Bus::write_status() {
    if (status_path_.empty()) {
        return;
    }
    const std::string temporary = status_path_ + ".new";
    std::ofstream file(temporary, std::ios::trunc);
    file << status().dump(2) << '\n';
    file.close();
    if (!file || std::rename(temporary.c_str(), status_path_.c_str()) != 0) {
        std::fprintf(stderr, "virtbus: cannot write the status \"%s\"\n", status_path_.c_str());
    }
}

}  // namespace virtcam::bus
