// The frame of every exported function: the lock, counting, scripted failures, the call log.
#pragma once

#include <optional>

#include "virtcam/bus/bus.h"

namespace virtcam::bus {

inline Bus& bus() {
    return Bus::instance();
}

/// Does `work`, a function of the bus, with the lock: for look-ups that are neither counted nor
/// logged.
template <typename Work>
auto locked(Work work) {
    return bus().locked(work);
}

class Call {
  public:
    /// @param argument the call's first number, for rules and for the log.
    explicit Call(const char* name, std::optional<int> argument = std::nullopt)
        : name_(name), argument_(argument), action_(bus().begin_call(name, argument)) {}

    /// Does `work`, without the lock, or returns what a rule dictates, and logs the result.
    template <typename Work>
    int run(Work work) {
        const int result = action_.result ? *action_.result : work();
        bus().end_call(name_, argument_, result);
        return result;
    }

    /// The same with the lock, for a function of the bus.
    template <typename Work>
    int locked(Work work) {
        return run([&]() -> int { return bus().locked(work); });
    }

    /// Likewise for functions that return a pointer; a rule can make it null.
    template <typename Work>
    auto locked_pointer(Work work) -> decltype(work(bus())) {
        const auto result = action_.null_result ? nullptr : bus().locked(work);
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
