// The host's requests to an imported camera: queued per endpoint, answered when due, given up.
#pragma once

#include <map>

#include "virtcam/line/endpoint.h"
#include "virtcam/usbip/pdu.h"

namespace virtcam::usbip {

/// Requests of one endpoint are answered in their order, those of different endpoints as they
/// become due. Not thread-safe; nothing blocks.
class UrbStream {
  public:
    static constexpr size_t kMostRequests = 1024;   ///< that wait at once
    static constexpr size_t kMostUnsent = 8 << 20;  ///< bytes; more answers wait

    /// Puts the camera into the state that a new attachment finds it in. `device` is borrowed.
    explicit UrbStream(line::Device& device);

    /// Queues a request. Throws ProtocolError when its number is in use or too many wait.
    void submit(Submit&& submit);
    /// Gives a request up and says so in `wire`; one that is unknown counts as answered before.
    void unlink(const Unlink& unlink, Bytes& wire);
    /// Appends what is due to `wire`. Returns when there is more to do; news of the camera aside.
    model::TimePoint serve(model::TimePoint now, Bytes& wire);

    /// From now on requests get no answer, until they are given up.
    void mute() { muted_ = true; }
    /// From now on a request that is given up has been answered just before: the race that a busy
    /// device wins now and then.
    void answer_before_unlink() { answers_before_unlink_ = true; }
    size_t waiting() const { return urbs_.size(); }

  private:
    struct Urb : line::Request {
        explicit Urb(Submit given);
        Urb(const Urb&) = delete;
        Urb& operator=(const Urb&) = delete;

        const Submit submit;
    };

    line::Endpoint& endpoint_of(const Urb& urb);
    bool on_the_bus() const;
    void send(line::Endpoint::Answer answer, Bytes& wire);

    line::Device& device_;
    uint64_t attachment_;                          ///< of the camera that was imported
    std::map<uint32_t, Urb> urbs_;                 ///< that wait, by number
    std::map<uint8_t, line::Endpoint> endpoints_;  ///< by address; control under 0
    bool muted_ = false;
    bool answers_before_unlink_ = false;
};

}  // namespace virtcam::usbip
