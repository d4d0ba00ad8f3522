// The host's requests to an imported camera: queued per endpoint, answered when due, given up.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <vector>

#include "virtcam/faults/rule_set.h"
#include "virtcam/model/camera.h"
#include "virtcam/usbip/iso_clock.h"
#include "virtcam/usbip/pdu.h"

namespace virtcam::usbip {

/// Requests of one endpoint are answered in their order, those of different endpoints as they
/// become due. Not thread-safe; nothing blocks.
class UrbStream {
  public:
    static constexpr size_t kMostRequests = 1024;   ///< that wait at once
    static constexpr size_t kMostUnsent = 8 << 20;  ///< bytes; more answers wait

    struct Device {
        model::Camera& camera;
        faults::RuleSet& rules;
        /// Carries out a change of presence that a rule asks for.
        std::function<void(faults::DeviceAction)> run;
        bool iso_paced = true;
    };

    /// Puts the camera into the state that a new attachment finds it in.
    explicit UrbStream(Device device);

    /// Queues a request. Throws ProtocolError when its number is in use or too many wait.
    void submit(Submit submit);
    /// Gives a request up and says so in `wire`; one that is unknown counts as answered before.
    void unlink(const Unlink& unlink, Bytes& wire);
    /// Appends what is due to `wire`. Returns when there is more to do; news of the camera aside.
    model::TimePoint serve(model::TimePoint now, Bytes& wire);

    /// From now on requests get no answer, until they are given up.
    void mute() { muted_ = true; }
    /// From now on a request that is given up has been answered just before: the race that a busy
    /// device wins now and then.
    void answer_before_unlink() { answers_before_unlink_ = true; }
    size_t waiting() const { return waiting_; }

  private:
    struct Request {
        Submit submit;
        bool stuck = false;            ///< waits until it is given up
        std::optional<Result> result;  ///< the answer, which is sent at `due`
        model::TimePoint due{};
        std::vector<faults::DeviceAction> afterwards;
    };
    struct Endpoint {
        std::deque<Request> requests;
        IsoClock clock;
    };

    bool advance(Endpoint& endpoint, model::TimePoint now, model::TimePoint& wake, Bytes& wire);
    bool prepare(Endpoint& endpoint, model::TimePoint now, model::TimePoint& wake);
    void answer(Endpoint& endpoint, Bytes& wire);
    void run(const std::vector<faults::DeviceAction>& actions);
    std::optional<Result> ask(Request& request);
    std::optional<Result> ask_control(Request& request);
    std::optional<Result> ask_bulk_in(const Submit& submit);
    Result ask_bulk_out(const Submit& submit);
    Result ask_iso(const Submit& submit);
    void apply_transfer_rules(Request& request);
    uint32_t frame_number(model::TimePoint now) const;

    Device device_;
    std::map<uint8_t, Endpoint> endpoints_;  ///< by address; control under 0
    size_t waiting_ = 0;
    bool muted_ = false;
    bool answers_before_unlink_ = false;
    model::TimePoint started_ = model::Clock::now();
};

}  // namespace virtcam::usbip
