// The frame of every exported function: counting, scripted failures, the call log.
#pragma once

#include <optional>

#include "virtcam/bus/bus.h"

namespace virtcam::bus {

inline Bus& bus() {
    return Bus::instance();
}

class Call {
  public:
    /// @param argument the call's first number, for rules and for the log.
    explicit Call(const char* name, std::optional<int> argument = std::nullopt)
        : name_(name), argument_(argument), action_(bus().begin_call(name, argument)) {}

    /// Does `work`, or returns what a rule dictates, and logs the result.
    template <typename Work>
    int run(Work work) {
        const int result = action_.result ? *action_.result : work();
        bus().end_call(name_, argument_, result);
        return result;
    }

    /// The same for functions that return a pointer; a rule can make it null.
    template <typename Work>
    auto run_pointer(Work work) -> decltype(work()) {
        const auto result = action_.null_result ? nullptr : work();
        bus().end_call(name_, argument_, result == nullptr ? -1 : 0);
        return result;
    }

    bool null_result() const { return action_.null_result; }

  private:
    const char* name_;
    std::optional<int> argument_;
    faults::Action action_;
};

}  // namespace virtcam::bus
