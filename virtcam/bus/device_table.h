// The devices as contexts and programs know them, and what programs hold of them: references, lists
// and configuration descriptors.
#pragma once

#include <map>
#include <memory>
#include <vector>

#include "virtcam/bus/handle_table.h"
#include "virtcam/bus/objects.h"
#include "virtcam/bus/records.h"
#include "virtcam/bus/shared.h"

namespace virtcam::bus {

class DeviceTable {
  public:
    DeviceTable(Shared& shared, const HandleTable& handles) : shared_(shared), handles_(handles) {}

    /// A new device of the context, which references it.
    void add(libusb_context& context, const std::shared_ptr<const DeviceInfo>& info);
    bool known(libusb_device* device) const { return devices_.count(device) != 0; }
    void drop_reference(libusb_device* device);
    /// Cuts the devices of a context loose from it. Returns how many the program still references.
    size_t orphan(const libusb_context* context);

    ssize_t list(const libusb_context& context, libusb_device*** list);
    void free_list(libusb_device** list, bool unreference);
    libusb_device* reference(libusb_device* device);
    void unreference(libusb_device* device);
    /// The device's properties, or null with a complaint when `device` is none.
    std::shared_ptr<const DeviceInfo> info(libusb_device* device, const char* call);
    libusb_device* parent(libusb_device* device) const;
    /// Null when the device's configuration makes no sense.
    libusb_config_descriptor* make_config(const DeviceInfo& device);
    void free_config(libusb_config_descriptor* config);

    /// Adds what this generation has not given back.
    void tell_leaks(std::vector<Complaint>& leaks) const;

  private:
    struct List {
        std::unique_ptr<libusb_device*[]> devices;  ///< null-terminated
        unsigned generation = 0;
    };
    struct Config {
        std::unique_ptr<ConfigDescriptor> descriptor;
        unsigned generation = 0;
    };

    int references_of_program(const libusb_device* device) const;

    Shared& shared_;
    const HandleTable& handles_;
    std::map<libusb_device*, std::unique_ptr<libusb_device>> devices_;
    std::map<libusb_device**, List> lists_;
    std::map<libusb_config_descriptor*, Config> configs_;
};

/// "114d:2066", for complaints.
std::string id_text(const DeviceInfo& device);

}  // namespace virtcam::bus
