// One endpoint of the camera: the requests that wait there, and when each is answered with what.
#pragma once

#include <deque>
#include <optional>
#include <vector>

#include "virtcam/line/device.h"
#include "virtcam/line/iso_clock.h"
#include "virtcam/line/sub_streams.h"

namespace virtcam::line {

/// Requests are answered in their order. The first one is put to the device, the rules change the
/// answer, and it is handed out when it is due; a rule may also hold it for good, and with it those
/// behind. A bulk or interrupt transfer that ends with a stall, whoever refused it, halts the
/// endpoint of the camera. Not thread-safe.
class Endpoint {
  public:
    struct Answer {
        Request& request;  ///< no longer the endpoint's
        Ending ending;
        model::TimePoint due;
        std::vector<faults::DeviceAction> afterwards;  ///< to run when the answer is on its way
    };

    /// `device` is borrowed.
    explicit Endpoint(Device& device) : device_(&device) {}

    /// Queues a request, which stays the caller's.
    void submit(Request& request) { queue_.push_back(&request); }
    /// Takes a request out of the queue unanswered. One that is not there is passed over.
    void withdraw(const Request& request, model::TimePoint now);
    /// The next answer that is due, nothing when there is none (yet).
    std::optional<Answer> serve(model::TimePoint now);
    /// When serve() is to be called again though nothing has happened.
    std::optional<model::TimePoint> due() const;

    /// In order of submission.
    const std::deque<Request*>& waiting() const { return queue_; }
    /// What ran has ended: the next isochronous request starts a clock of its own, and answers that
    /// rules have kept back are gone.
    void end_stream();

  private:
    bool prepare(model::TimePoint now);
    std::optional<Ending> ask_control(const Request& request, model::TimePoint now);
    std::optional<Ending> ask_transfer(const Request& request, model::TimePoint now);
    std::optional<Ending> ask_stream(const Request& request, model::TimePoint now);
    void change_sub_streams(Ending& ending);
    bool paced(const Request& request) const { return request.is_iso() && device_->iso_paced(); }

    Device* device_;
    std::deque<Request*> queue_;
    IsoClock clock_;
    SubStreams sub_streams_;
    std::vector<faults::FieldChange> fields_;  ///< of the header found last
    std::optional<Ending> held_;               ///< lets the next answer go first
    std::deque<Ending> again_;                 ///< to be handed out before the device is asked
    // Of the request at the front:
    std::optional<Ending> prepared_;  ///< its answer; nothing: the device was not asked yet
    model::TimePoint due_{};          ///< of that answer
    std::vector<faults::DeviceAction> afterwards_;
    bool stuck_ = false;                          ///< it is never answered
    faults::Fate fate_ = faults::Fate::kArrives;  ///< of what ask_stream() returned last
};

}  // namespace virtcam::line
