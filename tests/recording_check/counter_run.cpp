#include "tests/recording_check/counter_run.h"

namespace recording_check {

void CounterRun::add(std::optional<uint32_t> counter) {
    ++pictures_;
    const std::string picture = "picture " + std::to_string(pictures_);
    if (!counter) {
        fault(picture + ": no readable counter");
        return;
    }
    // 0 is never shown: the wrap goes from the highest number to 1.
    const auto expected = [&] { return *last_ == UINT32_MAX ? 1 : *last_ + 1; };
    if (last_ && *counter != expected()) {
        fault(picture + ": counter " + std::to_string(*counter) + " after " +
              std::to_string(*last_));
    }
    if (!first_) {
        first_ = counter;
    }
    last_ = counter;
}

void CounterRun::fault(const std::string& sentence) {
    if (faults_.size() < kMaxFaults) {
        faults_.push_back(sentence);
    }
}

}  // namespace recording_check
