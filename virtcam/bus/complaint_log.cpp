#include "virtcam/bus/complaint_log.h"

#include <cstdio>
#include <utility>

namespace virtcam::bus {

void ComplaintLog::raise(const std::string& code, const std::string& text) {
    const std::lock_guard lock(mutex_);
    if (!quiet_) {
        std::fprintf(stderr, "virtbus: complaint: %s\n", text.c_str());
    }
    list_.push_back({code, text});
}

void ComplaintLog::set_quiet(bool quiet) {
    const std::lock_guard lock(mutex_);
    quiet_ = quiet;
}

std::vector<Complaint> ComplaintLog::all() const {
    const std::lock_guard lock(mutex_);
    return list_;
}

std::vector<Complaint> ComplaintLog::take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(list_, {});
}

}  // namespace virtcam::bus
