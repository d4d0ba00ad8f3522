#include "virtcam/bus/fixed_devices.h"

namespace virtcam::bus {
namespace {

std::vector<uint8_t> device_descriptor(uint8_t device_class, uint16_t vendor, uint16_t product) {
    return {18,
            LIBUSB_DT_DEVICE,
            0x00,
            0x02,
            device_class,
            0,
            0,
            64,
            static_cast<uint8_t>(vendor),
            static_cast<uint8_t>(vendor >> 8),
            static_cast<uint8_t>(product),
            static_cast<uint8_t>(product >> 8),
            0x01,
            0x06,
            3,
            2,
            1,
            1};
}

/// One interface with one interrupt endpoint, as hubs and keyboards have it.
std::vector<uint8_t> config_descriptor(uint8_t interface_class, uint8_t packet) {
    return {9,
            LIBUSB_DT_CONFIG,
            25,
            0,
            1,
            1,
            0,
            0xE0,
            0,
            9,
            LIBUSB_DT_INTERFACE,
            0,
            0,
            1,
            interface_class,
            0,
            0,
            0,
            7,
            LIBUSB_DT_ENDPOINT,
            0x81,
            LIBUSB_TRANSFER_TYPE_INTERRUPT,
            packet,
            0,
            12};
}

std::shared_ptr<const DeviceInfo> root_hub() {
    auto hub = std::make_shared<DeviceInfo>();
    hub->kind = DeviceInfo::Kind::kRootHub;
    hub->address = 1;
    hub->device_bytes = device_descriptor(LIBUSB_CLASS_HUB, 0x1D6B, 0x0002);
    hub->config_bytes = config_descriptor(LIBUSB_CLASS_HUB, 4);
    hub->manufacturer = "Linux 6.1.0 virtbus";
    hub->product = "Virtual Host Controller";
    return hub;
}

}  // namespace

std::vector<std::shared_ptr<const DeviceInfo>> make_fixed_devices(
    const std::vector<line::OtherDevice>& others) {
    std::vector<std::shared_ptr<const DeviceInfo>> devices{root_hub()};
    for (const line::OtherDevice& other : others) {
        auto device = std::make_shared<DeviceInfo>();
        device->kind = DeviceInfo::Kind::kOther;
        device->port = static_cast<uint8_t>(devices.size());
        device->address = static_cast<uint8_t>(devices.size() + 1);
        device->device_bytes = device_descriptor(0, other.vendor_id, other.product_id);
        device->config_bytes = config_descriptor(LIBUSB_CLASS_HID, 8);
        device->product = other.name;
        devices.push_back(std::move(device));
    }
    return devices;
}

}  // namespace virtcam::bus
