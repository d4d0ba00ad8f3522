// The simulated USB core of one process: the camera at its port, and what programs made of libusb.
//
//   Port             the camera: presence, interfaces, rules; what the host's own core does to it
//   Contexts         libusb_init to libusb_exit           DeviceTable   devices, lists, descriptors
//   Handles          open to close                        HandleTable   which are open
//   Claims           interfaces, settings, drivers
//   Transfers        allocation, submission, release      Channels      queues of the endpoints
//   EventLoop        completions reach the program        SynchronousCalls
//   Journal          what has happened
//
// One lock for all of them: shared.h. Two threads work behind the scene: one drives the camera, one
// keeps the clocks of isochronous endpoints, delayed answers and timed events.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "virtcam/bus/contexts.h"
#include "virtcam/bus/handles.h"
#include "virtcam/bus/synchronous_calls.h"
#include "virtcam/line/ticker.h"

namespace virtcam::bus {

/// Owns the parts. All functions of its own are called without the lock.
class Bus final : private Port::Neighbour {
  public:
    /// The bus of this process, made at the first use as VIRTBUS_CONFIG says. It is never
    /// destroyed: programs may still call into it while their own static objects go.
    static Bus& instance();
    /// True once instance() has made it.
    static bool started();

    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    /// Does `work`, a function of the bus, with the lock.
    template <typename Work>
    auto locked(Work work) {
        const Hold hold(shared_.lock);
        return work(*this);
    }
    Port& port() { return port_; }
    Journal& journal() { return journal_; }
    Contexts& contexts() { return contexts_; }
    DeviceTable& devices() { return devices_; }
    Handles& handles() { return handles_; }
    Claims& claims() { return claims_; }
    Channels& channels() { return channels_; }
    Transfers& transfers() { return transfers_; }
    EventLoop& events() { return events_; }
    SynchronousCalls& synchronous() { return synchronous_; }
    ComplaintLog& complaints() { return shared_.complaints; }  ///< has a lock of its own

    void reset(const nlohmann::json& configuration);
    std::shared_ptr<model::Camera> camera();
    void add_rules(const nlohmann::json& rules);
    /// Lets something happen that the threads should look at.
    void wake();

    /// Counts a call and applies the scripted failures of its name.
    faults::Action begin_call(const char* name, std::optional<int> argument);
    void end_call(const char* name, std::optional<int> argument, int result);

    std::vector<Complaint> leaks();
    nlohmann::json status();
    /// Writes the status file, if one was asked for.
    void write_status();
    bool wait_until(const std::function<bool()>& predicate, std::chrono::milliseconds limit);

    /// False in a child that was forked from the process of the bus.
    bool owned_by_this_process() const;
    /// Ends the threads; the bus answers requests from then on but moves no streams.
    void stop_threads();

  private:
    Bus();

    /// Makes what a configuration asks for, before anything is replaced.
    line::Equipment equip(line::Config config);
    std::string start_configuration();
    TimePoint drive_camera();
    TimePoint keep_clocks();
    void camera_left(const std::shared_ptr<const DeviceInfo>& camera) override;
    void camera_came(const std::shared_ptr<const DeviceInfo>& camera) override;
    nlohmann::json bus_status();

    const std::string status_path_;
    std::mutex status_mutex_;  ///< of that file; taken before the bus's lock
    const pid_t process_;      ///< that has the threads: a forked child has none
    line::Ticker camera_ticker_;
    line::Ticker clock_ticker_;

    Shared shared_;
    Journal journal_;
    Port port_;
    HandleTable handle_table_;
    DeviceTable devices_;
    Contexts contexts_;
    Channels channels_;
    Transfers transfers_;
    EventLoop events_;
    Claims claims_;
    Handles handles_;
    SynchronousCalls synchronous_;
};

}  // namespace virtcam::bus
