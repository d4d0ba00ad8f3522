#include "virtcam/bus/descriptors.h"

#include <algorithm>
#include <optional>

namespace virtcam::bus {
namespace {

uint16_t read_u16(std::span<const uint8_t> bytes, size_t at) {
    return static_cast<uint16_t>(bytes[at] | bytes[at + 1] << 8);
}

}  // namespace

/// One pass over the bytes of a configuration. Arrays are filled first and linked last, because
/// they may move while they grow.
class ConfigParser {
  public:
    ConfigParser(std::span<const uint8_t> bytes, ConfigDescriptor& target) : target_(target) {
        target_.bytes_.assign(bytes.begin(), bytes.end());
        rest_ = target_.bytes_;
    }

    bool parse() {
        if (!parse_header()) {
            return false;
        }
        while (rest_.size() >= 2) {
            const size_t length = rest_[0];
            if (length < 2) {
                return false;
            }
            if (length > rest_.size()) {
                break;
            }
            take(rest_.first(length));
            rest_ = rest_.subspan(length);
        }
        link();
        return true;
    }

  private:
    bool parse_header() {
        if (rest_.size() < LIBUSB_DT_CONFIG_SIZE || rest_[1] != LIBUSB_DT_CONFIG ||
            rest_[0] < LIBUSB_DT_CONFIG_SIZE || rest_[0] > rest_.size() ||
            rest_[4] > kMaxInterfaces) {
            return false;
        }
        libusb_config_descriptor& root = target_.root_;
        root.bLength = rest_[0];
        root.bDescriptorType = rest_[1];
        root.wTotalLength = read_u16(rest_, 2);
        root.bNumInterfaces = rest_[4];
        root.bConfigurationValue = rest_[5];
        root.iConfiguration = rest_[6];
        root.bmAttributes = rest_[7];
        root.MaxPower = rest_[8];
        const size_t end = std::min<size_t>(rest_.size(), root.wTotalLength);
        rest_ = rest_.first(std::max<size_t>(end, rest_[0])).subspan(rest_[0]);
        return true;
    }

    void take(std::span<const uint8_t> descriptor) {
        const uint8_t type = descriptor[1];
        if (type == LIBUSB_DT_INTERFACE && descriptor.size() >= LIBUSB_DT_INTERFACE_SIZE) {
            take_interface(descriptor);
        } else if (type == LIBUSB_DT_ENDPOINT && descriptor.size() >= LIBUSB_DT_ENDPOINT_SIZE &&
                   setting_ != nullptr) {
            take_endpoint(descriptor);
        } else {
            take_extra(descriptor);
        }
    }

    void take_interface(std::span<const uint8_t> bytes) {
        const uint8_t number = bytes[2];
        if (numbers_.empty() || numbers_.back() != number) {
            if (numbers_.size() == target_.root_.bNumInterfaces) {
                setting_ = nullptr;  // more interfaces than announced: libusb ignores them
                return;
            }
            numbers_.push_back(number);
            target_.settings_.emplace_back();
        }
        libusb_interface_descriptor setting{};
        setting.bLength = bytes[0];
        setting.bDescriptorType = bytes[1];
        setting.bInterfaceNumber = number;
        setting.bAlternateSetting = bytes[3];
        setting.bInterfaceClass = bytes[5];
        setting.bInterfaceSubClass = bytes[6];
        setting.bInterfaceProtocol = bytes[7];
        setting.iInterface = bytes[8];
        announced_endpoints_ = bytes[4];
        target_.settings_.back().push_back(setting);
        target_.endpoints_.emplace_back();
        setting_ = &target_.settings_.back().back();
    }

    void take_endpoint(std::span<const uint8_t> bytes) {
        auto& endpoints = target_.endpoints_.back();
        if (endpoints.size() == announced_endpoints_) {
            return;
        }
        libusb_endpoint_descriptor endpoint{};
        endpoint.bLength = bytes[0];
        endpoint.bDescriptorType = bytes[1];
        endpoint.bEndpointAddress = bytes[2];
        endpoint.bmAttributes = bytes[3];
        endpoint.wMaxPacketSize = read_u16(bytes, 4);
        endpoint.bInterval = bytes[6];
        if (bytes.size() >= LIBUSB_DT_ENDPOINT_AUDIO_SIZE) {
            endpoint.bRefresh = bytes[7];
            endpoint.bSynchAddress = bytes[8];
        }
        endpoints.push_back(endpoint);
    }

    /// Extra descriptors belong to the endpoint, setting or configuration that precedes them.
    void take_extra(std::span<const uint8_t> bytes) {
        const auto append = [&](const unsigned char*& extra, int& length) {
            if (extra == nullptr) {
                extra = bytes.data();
            }
            length += static_cast<int>(bytes.size());
        };
        if (setting_ == nullptr) {
            if (numbers_.empty()) {
                append(target_.root_.extra, target_.root_.extra_length);
            }
        } else if (target_.endpoints_.back().empty()) {
            append(setting_->extra, setting_->extra_length);
        } else {
            auto& endpoint = target_.endpoints_.back().back();
            append(endpoint.extra, endpoint.extra_length);
        }
    }

    void link() {
        auto endpoints = target_.endpoints_.begin();
        for (auto& settings : target_.settings_) {
            for (auto& setting : settings) {
                setting.endpoint = endpoints->data();
                setting.bNumEndpoints = static_cast<uint8_t>(endpoints->size());
                ++endpoints;
            }
            target_.interfaces_.push_back({settings.data(), static_cast<int>(settings.size())});
        }
        target_.root_.interface = target_.interfaces_.data();
        target_.root_.bNumInterfaces = static_cast<uint8_t>(target_.interfaces_.size());
    }

    static constexpr size_t kMaxInterfaces = 32;

    ConfigDescriptor& target_;
    std::span<const uint8_t> rest_;
    std::vector<uint8_t> numbers_;  ///< interface numbers seen, in order
    libusb_interface_descriptor* setting_ = nullptr;
    size_t announced_endpoints_ = 0;
};

std::unique_ptr<ConfigDescriptor> ConfigDescriptor::parse(std::span<const uint8_t> bytes) {
    std::unique_ptr<ConfigDescriptor> result(new ConfigDescriptor);
    if (!ConfigParser(bytes, *result).parse()) {
        return nullptr;
    }
    return result;
}

bool parse_device_descriptor(std::span<const uint8_t> bytes, libusb_device_descriptor& result) {
    if (bytes.size() < LIBUSB_DT_DEVICE_SIZE || bytes[1] != LIBUSB_DT_DEVICE) {
        return false;
    }
    result.bLength = bytes[0];
    result.bDescriptorType = bytes[1];
    result.bcdUSB = read_u16(bytes, 2);
    result.bDeviceClass = bytes[4];
    result.bDeviceSubClass = bytes[5];
    result.bDeviceProtocol = bytes[6];
    result.bMaxPacketSize0 = bytes[7];
    result.idVendor = read_u16(bytes, 8);
    result.idProduct = read_u16(bytes, 10);
    result.bcdDevice = read_u16(bytes, 12);
    result.iManufacturer = bytes[14];
    result.iProduct = bytes[15];
    result.iSerialNumber = bytes[16];
    result.bNumConfigurations = bytes[17];
    return true;
}

const libusb_endpoint_descriptor* find_endpoint(const libusb_config_descriptor& config,
                                                uint8_t address) {
    for (const auto& interface : std::span(config.interface, config.bNumInterfaces)) {
        for (const auto& setting :
             std::span(interface.altsetting, static_cast<size_t>(interface.num_altsetting))) {
            for (const auto& endpoint : std::span(setting.endpoint, setting.bNumEndpoints)) {
                if (endpoint.bEndpointAddress == address) {
                    return &endpoint;
                }
            }
        }
    }
    return nullptr;
}

int bytes_per_interval(const libusb_endpoint_descriptor& endpoint) {
    const int size = endpoint.wMaxPacketSize & 0x07FF;
    const int type = endpoint.bmAttributes & LIBUSB_TRANSFER_TYPE_MASK;
    if (type != LIBUSB_TRANSFER_TYPE_ISOCHRONOUS && type != LIBUSB_TRANSFER_TYPE_INTERRUPT) {
        return size;
    }
    return size * (1 + ((endpoint.wMaxPacketSize >> 11) & 3));
}

}  // namespace virtcam::bus
