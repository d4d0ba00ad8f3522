// The endpoints with the transfers that wait on them, and what a test does to them: streams from a
// script, completions held back.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <vector>

#include "virtcam/bus/journal.h"
#include "virtcam/bus/port.h"
#include "virtcam/bus/shared.h"
#include "virtcam/line/endpoint.h"
#include "virtcam/line/ticker.h"

namespace virtcam::bus {

/// Takes transfers that have been checked, ends each once, and leaves it to event handling then.
class Channels {
  public:
    /// @param clock serves the channels when it is time.
    Channels(Shared& shared, Journal& journal, Port& port, line::Ticker& clock)
        : shared_(shared), journal_(journal), far_end_(*this, port), clock_(clock) {}

    void submit(Urb& urb);
    /// Ends a pending transfer; what waited behind it has its turn.
    void end(Urb& urb, faults::Status status);
    /// Ends what waits on an endpoint; its clock begins anew.
    void flush(uint8_t address, faults::Status status);
    void flush_all(faults::Status status);
    /// Forgets a transfer in flight: its callback will not run.
    void abandon(Urb& urb);
    /// Ends what has timed out, in the order of the due times.
    void expire(const libusb_context* context, TimePoint now);
    /// When the next transfer of the context times out.
    std::optional<TimePoint> next_expiry(const libusb_context* context) const;

    /// Ends everything that is due.
    void serve_all();
    /// When serve_all() is to be called again though nothing has happened.
    TimePoint due() const;

    // For tests; see control.h.
    size_t pending(uint8_t address) const;
    std::optional<unsigned> last_timeout(uint8_t address) const;
    void script(bool on);
    void push(uint8_t address, line::Ending ending);
    void hold(uint8_t address) { at(address).hold = true; }
    void release(uint8_t address);
    /// Hands out what was held and forgets the rest.
    void reset();

  private:
    struct Channel {
        explicit Channel(line::Device& device) : endpoint(device) {}

        line::Endpoint endpoint;
        std::deque<Urb*> held;              ///< ended, kept back by hold()
        std::deque<line::Ending> scripted;  ///< pushed, not yet taken
        bool hold = false;
        std::optional<unsigned> last_timeout;
    };
    /// The camera as endpoints meet it; while a test scripts the streams, its script instead.
    class FarEnd : public line::Device {
      public:
        FarEnd(Channels& channels, Port& port) : channels_(channels), port_(port) {}
        model::Camera& camera() override { return port_.camera(); }
        faults::RuleSet& rules() override { return port_.rules(); }
        void run(faults::DeviceAction action) override { port_.run(action); }
        bool iso_paced() const override { return port_.iso_paced() && !channels_.scripted_; }
        std::optional<line::Ending> answer(const line::Request& request, TimePoint now) override;

      private:
        Channels& channels_;
        Port& port_;
    };

    Channel& at(uint8_t address) { return channels_.try_emplace(address, far_end_).first->second; }
    void serve(Channel& channel);
    void finish(Urb& urb, line::Ending ending);
    void flush(Channel& channel, faults::Status status);
    void publish(Urb& urb);
    /// Transfers in flight that can time out, by the time at which they do.
    std::vector<Urb*> expiring(const libusb_context* context) const;

    Shared& shared_;
    Journal& journal_;
    FarEnd far_end_;
    line::Ticker& clock_;
    std::map<uint8_t, Channel> channels_;  ///< by address; control under 0
    bool scripted_ = false;
};

}  // namespace virtcam::bus
