// libusb's contexts: what libusb_init makes and libusb_exit ends.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "virtcam/bus/device_table.h"
#include "virtcam/bus/port.h"

namespace virtcam::bus {

class Contexts {
  public:
    Contexts(Shared& shared, const HandleTable& handles, DeviceTable& devices, const Port& port)
        : shared_(shared), handles_(handles), devices_(devices), port_(port) {}

    /// From now on init() fails for this reason; empty: it works.
    void refuse(std::string reason) { refusal_ = std::move(reason); }
    const std::string& refusal() const { return refusal_; }

    int init(libusb_context** context);
    /// Returns true when it was the last one.
    bool exit(libusb_context* context);
    /// The context meant by `context` (null: the default one), or null with a complaint.
    libusb_context* resolve(libusb_context* context, const char* call);

    void camera_left(const std::shared_ptr<const DeviceInfo>& camera);
    void camera_came(const std::shared_ptr<const DeviceInfo>& camera);

    /// Contexts of this generation that tell_leaks() has told nobody of.
    size_t unreported() const;
    /// Adds what this generation has not exited.
    void tell_leaks(std::vector<Complaint>& leaks);

  private:
    void end(libusb_context* context);

    Shared& shared_;
    const HandleTable& handles_;
    DeviceTable& devices_;
    const Port& port_;
    std::string refusal_;
    libusb_context* default_ = nullptr;
    std::map<libusb_context*, std::unique_ptr<libusb_context>> contexts_;
    /// Exited while something still points to them.
    std::vector<std::unique_ptr<libusb_context>> exited_;
};

}  // namespace virtcam::bus
