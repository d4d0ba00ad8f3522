#include "virtcam/bus/complaint_log.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace virtcam::bus {
namespace {

bool is_power_of_ten(uint64_t number) {
    while (number % 10 == 0 && number != 0) {
        number /= 10;
    }
    return number == 1;
}

}  // namespace

void ComplaintLog::raise(const std::string& code, const std::string& text) {
    const std::lock_guard lock(mutex_);
    auto entry = std::find_if(list_.begin(), list_.end(),
                              [&](const Entry& each) { return each.complaint.text == text; });
    if (entry == list_.end()) {
        const bool expected =
            std::find(expected_.begin(), expected_.end(), text) != expected_.end();
        entry = list_.insert(list_.end(), {{code, text, 0, expected}, 0});
    }
    ++entry->complaint.count;
    if (is_power_of_ten(entry->complaint.count)) {
        print(*entry);
    }
}

void ComplaintLog::tell_counts() {
    const std::lock_guard lock(mutex_);
    for (Entry& entry : list_) {
        if (entry.told != entry.complaint.count) {
            print(entry);
        }
    }
}

void ComplaintLog::print(Entry& entry) {
    const Complaint& complaint = entry.complaint;
    entry.told = complaint.count;
    if (quiet_ || complaint.expected) {
        return;
    }
    const std::string times =
        complaint.count == 1 ? "" : " (" + std::to_string(complaint.count) + " times)";
    std::fprintf(stderr, "virtbus: complaint: %s%s\n", complaint.text.c_str(), times.c_str());
}

void ComplaintLog::set_quiet(bool quiet) {
    const std::lock_guard lock(mutex_);
    quiet_ = quiet;
}

void ComplaintLog::expect(std::vector<std::string> texts) {
    const std::lock_guard lock(mutex_);
    expected_ = std::move(texts);
}

std::vector<Complaint> ComplaintLog::all() const {
    const std::lock_guard lock(mutex_);
    std::vector<Complaint> all;
    for (const Entry& entry : list_) {
        all.push_back(entry.complaint);
    }
    return all;
}

std::vector<Complaint> ComplaintLog::take() {
    const std::lock_guard lock(mutex_);
    std::vector<Complaint> all;
    for (Entry& entry : std::exchange(list_, {})) {
        all.push_back(std::move(entry.complaint));
    }
    return all;
}

}  // namespace virtcam::bus
