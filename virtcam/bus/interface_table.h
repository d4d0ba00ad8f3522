// The interfaces of the attached camera: alternate settings, kernel drivers and claims.
#pragma once

#include <libusb-1.0/libusb.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace virtcam::bus {

/// State of the configuration of one attachment, with usbfs's answers. Not thread-safe.
class InterfaceTable {
  public:
    InterfaceTable() = default;
    /// @param drivers binds the drivers that an ordinary kernel has for these interfaces.
    InterfaceTable(const libusb_config_descriptor& config, bool drivers);

    bool exists(int interface) const { return interfaces_.count(interface) != 0; }
    bool claimed_by(int interface, const libusb_device_handle* handle) const;
    /// Interfaces claimed through `handle`, ascending.
    std::vector<int> claims_of(const libusb_device_handle* handle) const;
    bool anything_claimed() const;

    /// @return 0, LIBUSB_ERROR_NOT_FOUND or LIBUSB_ERROR_BUSY (driver bound or claimed by another).
    int claim(int interface, libusb_device_handle* handle);
    void release(int interface);

    /// @return 1 when a kernel driver is bound, else 0.
    int driver_active(int interface) const;
    /// Driver's name for the bus listing: kernel driver, "usbfs" or "(none)".
    std::string driver_name(int interface) const;
    /// @return 0 or LIBUSB_ERROR_NOT_FOUND. Unbinding a control interface frees its streams too.
    int detach_driver(int interface);
    /// @return 0, LIBUSB_ERROR_NOT_FOUND (no driver takes it) or LIBUSB_ERROR_BUSY (bound already).
    int attach_driver(int interface);

    /// Present alternate setting; 0 for an interface that does not exist.
    int setting(int interface) const;
    bool has_setting(int interface, int setting) const;
    void select(int interface, int setting);
    void reset_settings();

    /// Interface that has the endpoint in any setting, or -1.
    int interface_of(uint8_t endpoint) const;
    /// Descriptor of the endpoint in the present settings, or null.
    const libusb_endpoint_descriptor* active_endpoint(uint8_t endpoint) const;
    /// Endpoints of the present setting of an interface.
    std::vector<uint8_t> endpoints_of(int interface) const;

  private:
    struct Interface {
        std::vector<const libusb_interface_descriptor*> settings;
        int setting = 0;
        std::string driver;                     ///< empty: none
        libusb_device_handle* owner = nullptr;  ///< not owned
    };

    static std::string driver_for(const libusb_interface_descriptor& setting);
    static bool is_control(const Interface& interface);
    const libusb_interface_descriptor* present(const Interface& interface) const;

    std::map<int, Interface> interfaces_;
};

}  // namespace virtcam::bus
