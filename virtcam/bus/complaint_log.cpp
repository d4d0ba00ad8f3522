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
    const bool expected = std::find(expected_.begin(), expected_.end(), text) != expected_.end();
    list_.push_back({code, text, expected});
    if (expected) {
        return;
    }
    Tally& tally = tally_of(text);
    ++tally.count;
    if (is_power_of_ten(tally.count)) {
        print(tally);
    }
}

void ComplaintLog::tell_counts() {
    const std::lock_guard lock(mutex_);
    for (Tally& tally : tallies_) {
        if (tally.told != tally.count) {
            print(tally);
        }
    }
}

ComplaintLog::Tally& ComplaintLog::tally_of(const std::string& text) {
    const auto found = std::find_if(tallies_.begin(), tallies_.end(),
                                    [&](const Tally& each) { return each.text == text; });
    return found != tallies_.end() ? *found : tallies_.emplace_back(Tally{text, 0, 0});
}

void ComplaintLog::print(Tally& tally) {
    tally.told = tally.count;
    if (quiet_) {
        return;
    }
    const std::string times =
        tally.count == 1 ? "" : " (" + std::to_string(tally.count) + " times)";
    std::fprintf(stderr, "virtbus: complaint: %s%s\n", tally.text.c_str(), times.c_str());
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
    return list_;
}

std::vector<Complaint> ComplaintLog::take() {
    const std::lock_guard lock(mutex_);
    tallies_.clear();
    return std::exchange(list_, {});
}

}  // namespace virtcam::bus
