// A thread that does work when it is due, or when poked.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace virtcam::line {

class Ticker {
  public:
    using TimePoint = std::chrono::steady_clock::time_point;
    /// Does what is due and returns when it wants to be called again at the latest.
    using Step = std::function<TimePoint()>;

    explicit Ticker(Step step) : step_(std::move(step)) {}
    ~Ticker() { stop(); }
    Ticker(const Ticker&) = delete;
    Ticker& operator=(const Ticker&) = delete;

    void start();
    /// Ends and joins the thread; does nothing when it does not run. Not from within the step.
    void stop();
    /// Makes the next call of the step happen at once. Never blocks on the step.
    void poke();
    /// Makes it happen at `when` at the latest. Never blocks on the step.
    void wake_by(TimePoint when);

  private:
    void run();

    Step step_;
    std::mutex mutex_;
    std::condition_variable wake_;
    bool poked_ = false;
    TimePoint wake_at_;  ///< when the step is due although nobody pokes
    bool stopping_ = false;
    std::thread thread_;
};

}  // namespace virtcam::line
