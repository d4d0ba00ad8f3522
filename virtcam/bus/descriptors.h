// Device and configuration descriptors as libusb presents them.
#pragma once

#include <libusb-1.0/libusb.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <vector>

namespace virtcam::bus {

/// A parsed configuration together with everything that its pointers point to.
class ConfigDescriptor {
  public:
    /// Parses `bytes` (USB 2.0, 9.6.3 to 9.6.6). Like libusb, it stops without an error at a
    /// descriptor that is cut off, keeps unknown ones as `extra`, and refuses a configuration that
    /// has no valid header or a descriptor shorter than two bytes: null then.
    static std::unique_ptr<ConfigDescriptor> parse(std::span<const uint8_t> bytes);

    ConfigDescriptor(const ConfigDescriptor&) = delete;
    ConfigDescriptor& operator=(const ConfigDescriptor&) = delete;

    libusb_config_descriptor* get() { return &root_; }
    const libusb_config_descriptor& operator*() const { return root_; }
    const libusb_config_descriptor* operator->() const { return &root_; }

  private:
    ConfigDescriptor() = default;

    friend class ConfigParser;

    libusb_config_descriptor root_{};
    std::vector<uint8_t> bytes_;  ///< every `extra` points into it
    std::vector<libusb_interface> interfaces_;
    std::deque<std::vector<libusb_interface_descriptor>> settings_;  ///< one list per interface
    std::deque<std::vector<libusb_endpoint_descriptor>> endpoints_;  ///< one list per setting
};

/// Parses a device descriptor (USB 2.0, 9.6.1); false when it is too short or of another type.
bool parse_device_descriptor(std::span<const uint8_t> bytes, libusb_device_descriptor& result);

/// First endpoint with that address in any alternate setting, or null.
const libusb_endpoint_descriptor* find_endpoint(const libusb_config_descriptor& config,
                                                uint8_t address);

/// Bytes per service interval of a high-speed isochronous or interrupt endpoint, additional
/// transactions included (USB 2.0, 9.6.6); wMaxPacketSize's low 11 bits for the other types.
int bytes_per_interval(const libusb_endpoint_descriptor& endpoint);

}  // namespace virtcam::bus
