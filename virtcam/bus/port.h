// The port at which the camera is plugged in: whether it is there, its interfaces, the rules that
// act on it, and what the host's own core does to it.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "virtcam/bus/interface_table.h"
#include "virtcam/bus/journal.h"
#include "virtcam/bus/listing.h"
#include "virtcam/bus/objects.h"
#include "virtcam/bus/shared.h"
#include "virtcam/line/device.h"
#include "virtcam/line/equipment.h"

namespace virtcam::bus {

class Port : public line::Device {
  public:
    /// Who else takes part when the camera comes or goes. Called with the lock.
    class Neighbour {
      public:
        virtual ~Neighbour() = default;
        virtual void camera_left(const std::shared_ptr<const DeviceInfo>& camera) = 0;
        virtual void camera_came(const std::shared_ptr<const DeviceInfo>& camera) = 0;
    };

    Port(Shared& shared, Journal& journal, Neighbour& neighbour)
        : shared_(shared), journal_(journal), neighbour_(neighbour) {}

    /// The camera that is there, if any, leaves; then the other one is switched on.
    void power_on(line::Equipment equipment);

    model::Camera& camera() override { return *camera_; }
    std::shared_ptr<model::Camera> shared_camera() const { return camera_; }
    faults::RuleSet& rules() override { return rules_; }
    void run(faults::DeviceAction action) override;
    void run(const std::vector<faults::DeviceAction>& actions);
    bool iso_paced() const override { return config_.iso_paced; }

    /// Does what timed rules ask for. Returns when the next one is due.
    TimePoint run_due();
    /// Takes over arrivals and departures of the camera since the last look.
    void sync();

    /// That the bus has taken over; 0: the camera is off the bus.
    uint64_t attachment() const { return attachment_; }
    /// Null while off the bus.
    const std::shared_ptr<const DeviceInfo>& camera_info() const { return info_; }
    /// Null while off the bus, or when it makes no sense.
    const ConfigDescriptor* configuration() const { return configuration_.get(); }
    InterfaceTable& interfaces() { return interfaces_; }
    /// What is plugged in now, root hub first.
    std::vector<std::shared_ptr<const DeviceInfo>> devices() const;
    const Listing& listing() const { return listing_; }

    /// A standard request that the host controller driver makes by itself; false: stalled, or the
    /// camera is gone.
    bool kernel_request(const model::Setup& setup);
    /// Reset as the host signals it, and the configuration selected again.
    void reset_camera();

  private:
    void depart();
    void arrive();
    void note_enumeration();
    void configure_camera();
    std::shared_ptr<DeviceInfo> describe_camera();
    void write_listing();

    Shared& shared_;
    Journal& journal_;
    Neighbour& neighbour_;
    line::Config config_;
    faults::RuleSet rules_;
    TimePoint started_;
    Listing listing_;
    std::vector<std::shared_ptr<const DeviceInfo>> fixed_devices_;
    std::shared_ptr<model::Camera> camera_;
    uint64_t attachment_ = 0;
    uint8_t last_address_ = 0;
    std::shared_ptr<const DeviceInfo> info_;
    std::unique_ptr<ConfigDescriptor> configuration_;  ///< interfaces_ points into it
    InterfaceTable interfaces_;
};

}  // namespace virtcam::bus
