#include "tests/recording_check/counter_run.h"

namespace recording_check {

void CounterRun::add(std::optional<uint32_t> counter) {
    ++pictures_;
    const std::string picture = "picture " + std::to_string(pictures_);
    if (!counter) {
        fault(picture + ": no readable counter");
        return;
    }
    if (last_ && !may_follow(*counter)) {
        fault(picture + ": counter " + std::to_string(*counter) + " after " +
              std::to_string(*last_));
    }
    if (!first_) {
        first_ = counter;
    }
    last_ = counter;
}

bool CounterRun::may_follow(uint32_t counter) const {
    if (order_ == Order::kGrowing) {
        return counter > *last_;
    }
    // 0 is never shown: the wrap goes from the highest number to 1.
    return counter == (*last_ == UINT32_MAX ? 1 : *last_ + 1);
}

void CounterRun::fault(const std::string& sentence) {
    if (faults_.size() < kMaxFaults) {
        faults_.push_back(sentence);
    }
}

}  // namespace recording_check
