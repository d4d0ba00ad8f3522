#include "virtcam/bus/listing.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <span>
#include <system_error>
#include <utility>

namespace virtcam::bus {
namespace {

[[gnu::format(printf, 1, 2)]] std::string format(const char* pattern, ...) {
    char line[256];
    va_list arguments;
    va_start(arguments, pattern);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): clang 14 does not see va_start here
    std::vsnprintf(line, sizeof line, pattern, arguments);
    va_end(arguments);
    return line;
}

/// The kernel's five-character names of device and interface classes.
const char* class_name(uint8_t code) {
    switch (code) {
        case LIBUSB_CLASS_PER_INTERFACE:
            return ">ifc ";
        case LIBUSB_CLASS_AUDIO:
            return "audio";
        case LIBUSB_CLASS_HID:
            return "HID  ";
        case LIBUSB_CLASS_HUB:
            return "hub  ";
        case LIBUSB_CLASS_VIDEO:
            return "video";
        case LIBUSB_CLASS_MISCELLANEOUS:
            return "misc ";
        case LIBUSB_CLASS_VENDOR_SPEC:
            return "vend.";
        default:
            return "unk. ";
    }
}

const char* type_name(uint8_t attributes) {
    constexpr const char* kNames[] = {"Ctrl", "Isoc", "Bulk", "Int."};
    return kNames[attributes & LIBUSB_TRANSFER_TYPE_MASK];
}

/// Text of bInterval at high speed (USB 2.0, table 9-13): 2^(n-1) microframes of 125 us.
std::string interval_text(const libusb_endpoint_descriptor& endpoint) {
    const int type = endpoint.bmAttributes & LIBUSB_TRANSFER_TYPE_MASK;
    if (type == LIBUSB_TRANSFER_TYPE_BULK || endpoint.bInterval == 0 || endpoint.bInterval > 16) {
        return "0ms";
    }
    const unsigned microseconds = 125U << (endpoint.bInterval - 1);
    return microseconds % 1000 == 0 ? std::to_string(microseconds / 1000) + "ms"
                                    : std::to_string(microseconds) + "us";
}

std::string endpoint_line(const libusb_endpoint_descriptor& endpoint) {
    const bool in = (endpoint.bEndpointAddress & LIBUSB_ENDPOINT_IN) != 0;
    return format("E:  Ad=%02x(%c) Atr=%02x(%s) MxPS=%4d Ivl=%s\n", endpoint.bEndpointAddress,
                  in ? 'I' : 'O', endpoint.bmAttributes, type_name(endpoint.bmAttributes),
                  bytes_per_interval(endpoint), interval_text(endpoint).c_str());
}

std::string interface_lines(const DeviceInfo& device, const libusb_interface& interface,
                            const DriverName& driver) {
    std::string text;
    for (const auto& setting :
         std::span(interface.altsetting, static_cast<size_t>(interface.num_altsetting))) {
        text +=
            format("I:%c If#=%2d Alt=%2d #EPs=%2d Cls=%02x(%s) Sub=%02x Prot=%02x Driver=%s\n",
                   setting.bAlternateSetting == 0 ? '*' : ' ', setting.bInterfaceNumber,
                   setting.bAlternateSetting, setting.bNumEndpoints, setting.bInterfaceClass,
                   class_name(setting.bInterfaceClass), setting.bInterfaceSubClass,
                   setting.bInterfaceProtocol, driver(device, setting.bInterfaceNumber).c_str());
        for (const auto& endpoint : std::span(setting.endpoint, setting.bNumEndpoints)) {
            text += endpoint_line(endpoint);
        }
    }
    return text;
}

std::string association_lines(std::span<const uint8_t> config) {
    constexpr uint8_t kInterfaceAssociation = 0x0B;  // USB 2.0 ECN, interface association
    constexpr size_t kLength = 8;
    std::string text;
    while (config.size() >= 2 && config[0] >= 2 && config[0] <= config.size()) {
        if (config[1] == kInterfaceAssociation && config[0] >= kLength) {
            text +=
                format("A:  FirstIf#=%2d IfCount=%2d Cls=%02x(%s) Sub=%02x Prot=%02x\n", config[2],
                       config[3], config[4], class_name(config[4]), config[5], config[6]);
        }
        config = config.subspan(config[0]);
    }
    return text;
}

std::string string_line(const char* name, const std::string& value) {
    return value.empty() ? "" : format("S:  %s=%.200s\n", name, value.c_str());
}

std::string topology_line(const DeviceInfo& device, int count) {
    const bool hub = device.kind == DeviceInfo::Kind::kRootHub;
    return format("T:  Bus=%02d Lev=%02d Prnt=%02d Port=%02d Cnt=%02d Dev#=%3d Spd=480  MxCh=%2d\n",
                  kBusNumber, hub ? 0 : 1, hub ? 0 : 1, hub ? 0 : device.port - 1, count,
                  device.address, hub ? 4 : 0);
}

std::string device_block(const DeviceInfo& device, int count, const std::string& serial,
                         const DriverName& driver) {
    libusb_device_descriptor descriptor{};
    if (!parse_device_descriptor(device.device_bytes, descriptor)) {
        return "";
    }
    std::string text = "\n" + topology_line(device, count);
    if (device.kind == DeviceInfo::Kind::kRootHub) {
        text += "B:  Alloc=  0/800 us ( 0%), #Int=  0, #Iso=  0\n";
    }
    text += format("D:  Ver=%2x.%02x Cls=%02x(%s) Sub=%02x Prot=%02x MxPS=%2d #Cfgs=%3d\n",
                   descriptor.bcdUSB >> 8, descriptor.bcdUSB & 0xFF, descriptor.bDeviceClass,
                   class_name(descriptor.bDeviceClass), descriptor.bDeviceSubClass,
                   descriptor.bDeviceProtocol, descriptor.bMaxPacketSize0,
                   descriptor.bNumConfigurations);
    text += format("P:  Vendor=%04x ProdID=%04x Rev=%2x.%02x\n", descriptor.idVendor,
                   descriptor.idProduct, descriptor.bcdDevice >> 8, descriptor.bcdDevice & 0xFF);
    text += string_line("Manufacturer", device.manufacturer);
    text += string_line("Product", device.product);
    text += string_line("SerialNumber", serial);
    if (const auto config = ConfigDescriptor::parse(device.config_bytes)) {
        text += format("C:* #Ifs=%2d Cfg#=%2d Atr=%02x MxPwr=%3dmA\n", (*config)->bNumInterfaces,
                       (*config)->bConfigurationValue, (*config)->bmAttributes,
                       (*config)->MaxPower * 2);
        text += association_lines(device.config_bytes);
        for (const auto& interface : std::span((*config)->interface, (*config)->bNumInterfaces)) {
            text += interface_lines(device, interface, driver);
        }
    }
    return text;
}

std::string listing_text(const std::vector<std::shared_ptr<const DeviceInfo>>& devices,
                         const std::string& hub_serial, const DriverName& driver) {
    std::string text;
    int count = 0;
    for (const auto& device : devices) {
        const bool hub = device->kind == DeviceInfo::Kind::kRootHub;
        text += device_block(*device, hub ? 0 : ++count, hub ? hub_serial : device->serial, driver);
    }
    return text;
}

}  // namespace

void Listing::write(const std::vector<std::shared_ptr<const DeviceInfo>>& devices,
                    const DriverName& driver) {
    std::error_code ignored;
    if (path_.empty() ||
        !std::filesystem::is_directory(std::filesystem::path(path_).parent_path(), ignored)) {
        state_ = "off";
        return;
    }
    // The root hub's serial number counts the changes and grows with them: a reader that misses
    // some of them still finds another size, even when the same devices are there again.
    constexpr unsigned kLongestTail = 100;
    ++generation_;
    const std::string hub_serial = "virtbus." + std::to_string(generation_) + "." +
                                   std::string(generation_ % kLongestTail, '.');
    const std::string text = listing_text(devices, hub_serial, driver);
    const std::string temporary = path_ + ".new";
    std::ofstream file(temporary, std::ios::binary | std::ios::trunc);
    file << text;
    file.close();
    if (!file || std::rename(temporary.c_str(), path_.c_str()) != 0) {
        fail(std::strerror(errno));
        return;
    }
    state_ = "kept";
}

void Listing::fail(const char* reason) {
    std::string state = std::string("cannot be written: ") + reason;
    if (state != state_) {
        std::fprintf(stderr, "virtbus: the listing \"%s\" %s\n", path_.c_str(), state.c_str());
    }
    state_ = std::move(state);
}

}  // namespace virtcam::bus
