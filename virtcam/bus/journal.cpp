#include "virtcam/bus/journal.h"

#include <nlohmann/json.hpp>
#include <string_view>
#include <thread>

#include "virtcam/bus/status_codes.h"
#include "virtcam/model/usb.h"

namespace virtcam::bus {
namespace {

/// Old entries go when a log reaches this length, so that a long run does not eat the memory.
constexpr size_t kLogLimit = 100'000;

constexpr unsigned kKernelTimeOutMs = 5000;  // of the kernel's own control messages

const char* status_name(faults::Status status) {
    constexpr const char* kNames[] = {"completed", "error",     "timed_out", "cancelled",
                                      "stall",     "no_device", "overflow"};
    return kNames[static_cast<int>(status)];
}

/// What the program saw of a control transfer: bytes, or the error of the synchronous call.
int result_of(const line::Ending& ending) {
    if (ending.code) {
        return *ending.code;
    }
    return ending.status == faults::Status::kCompleted ? static_cast<int>(ending.count)
                                                       : error_for(to_libusb(ending.status));
}

}  // namespace

void Journal::begin(TimePoint now) {
    begun_ = now;
    clear_logs();
    call_counts_.clear();
    transfer_counts_.clear();
}

void Journal::count_call(const char* name) {
    if (const auto found = call_counts_.find(std::string_view(name)); found != call_counts_.end()) {
        ++found->second;
    } else {
        call_counts_.emplace(name, 1);
    }
}

void Journal::note_call(CallRecord call) {
    if (calls_.size() == kLogLimit) {
        calls_.pop_front();
    }
    calls_.push_back(std::move(call));
}

void Journal::note_submission(Urb& urb) {
    capture_.submitted(urb);
    if (!urb.is_control()) {
        return;
    }
    if (controls_.size() == kLogLimit) {
        controls_.pop_front();
        ++first_control_;
    }
    urb.control_record = first_control_ + controls_.size();
    controls_.push_back({model::Clock::now(),
                         urb.setup,
                         {urb.out.begin(), urb.out.end()},
                         urb.transfer->timeout,
                         std::nullopt,
                         std::this_thread::get_id()});
}

void Journal::note_ending(const Urb& urb) {
    capture_.ended(urb);
    ++transfer_counts_[{urb.transfer->type, urb.ending.status}];
    if (!urb.control_record) {
        return;
    }
    const model::ByteView data = urb.setup.device_to_host() ? urb.ending.data : urb.out;
    const int result = result_of(urb.ending);
    const bool is_kept = *urb.control_record >= first_control_ &&
                         *urb.control_record - first_control_ < controls_.size();
    std::optional<std::chrono::microseconds> took;
    if (is_kept) {
        const auto& record = controls_[*urb.control_record - first_control_];
        took = std::chrono::duration_cast<std::chrono::microseconds>(model::Clock::now() -
                                                                     record.when);
    }
    trace_.control(elapsed(), "", urb.setup, data, urb.transfer->timeout, result, took);
    if (is_kept) {
        auto& record = controls_[*urb.control_record - first_control_];
        record.data.assign(data.begin(), data.end());
        record.result = result;
    }
}

void Journal::note_kernel_request(uint8_t address, const model::Setup& setup, model::ByteView data,
                                  bool done) {
    capture_.kernel_request(address, setup, data, done);
    if (setup.request != model::usb::kGetDescriptor) {
        trace_.control(elapsed(), "kernel", setup, {}, kKernelTimeOutMs,
                       done ? 0 : LIBUSB_ERROR_PIPE, std::nullopt);
    }
}

std::map<std::string, uint64_t> Journal::call_counts() const {
    return {call_counts_.begin(), call_counts_.end()};
}

nlohmann::json Journal::transfer_counts() const {
    nlohmann::json counts = nlohmann::json::object();
    for (const auto& [kind, count] : transfer_counts_) {
        counts[type_name(kind.first)][status_name(kind.second)] = count;
    }
    return counts;
}

void Journal::clear_logs() {
    first_control_ += controls_.size();
    controls_.clear();
    calls_.clear();
}

std::chrono::milliseconds Journal::elapsed() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(model::Clock::now() - begun_);
}

}  // namespace virtcam::bus
