// Holds the firmware loader's thread still.
#pragma once

#include <pthread.h>

#include <functional>
#include <latch>
#include <memory>
#include <string_view>

#include "tests/support/TestClock.h"

namespace test {

/// Keeps the loader thread in one of its pauses for as long as this lives, so that no request of
/// its own is under way. Takes the clock's hook.
class ParkedLoader {
  public:
    /// `begin` is called before waiting for the thread: it may be what starts it.
    explicit ParkedLoader(const std::function<void()>& begin = [] {}) {
        TestClock::instance().on_sleep([gate = gate_](const SleepCall&) {
            char name[16] = {};
            pthread_getname_np(pthread_self(), name, sizeof(name));
            if (std::string_view(name) == "ait-loader") {
                gate->parked.count_down();
                gate->opened.wait();
            }
        });
        begin();
        gate_->parked.wait();
        TestClock::instance().on_sleep(nullptr);
    }
    ~ParkedLoader() { gate_->opened.count_down(); }
    ParkedLoader(const ParkedLoader&) = delete;
    ParkedLoader& operator=(const ParkedLoader&) = delete;

  private:
    struct Gate {
        std::latch parked{1};
        std::latch opened{1};
    };
    std::shared_ptr<Gate> gate_ = std::make_shared<Gate>();
};

}  // namespace test
