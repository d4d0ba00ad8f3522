// Exported functions: device lists and what is known of a device without opening it.
#include <libusb-1.0/libusb.h>

#include <memory>
#include <span>

#include "virtcam/bus/call.h"

using virtcam::bus::Bus;
using virtcam::bus::Call;
using virtcam::bus::DeviceInfo;
using virtcam::bus::locked;

namespace {

std::shared_ptr<const DeviceInfo> info_of(libusb_device* device, const char* call) {
    return locked([&](Bus& bus) { return bus.devices().info(device, call); });
}

}  // namespace

ssize_t LIBUSB_CALL libusb_get_device_list(libusb_context* context, libusb_device*** list) {
    Call call("libusb_get_device_list");
    *list = nullptr;
    return call.locked([&](Bus& bus) -> int {
        libusb_context* const meant = bus.contexts().resolve(context, "libusb_get_device_list");
        if (meant == nullptr) {
            return LIBUSB_ERROR_INVALID_PARAM;
        }
        return call.null_result() ? 0 : static_cast<int>(bus.devices().list(*meant, list));
    });
}

void LIBUSB_CALL libusb_free_device_list(libusb_device** list, int unref_devices) {
    Call("libusb_free_device_list", unref_devices).locked([&](Bus& bus) {
        bus.devices().free_list(list, unref_devices != 0);
        return 0;
    });
}

libusb_device* LIBUSB_CALL libusb_ref_device(libusb_device* device) {
    return locked([&](Bus& bus) { return bus.devices().reference(device); });
}

void LIBUSB_CALL libusb_unref_device(libusb_device* device) {
    locked([&](Bus& bus) { bus.devices().unreference(device); });
}

int LIBUSB_CALL libusb_get_device_descriptor(libusb_device* device,
                                             struct libusb_device_descriptor* descriptor) {
    return Call("libusb_get_device_descriptor").run([&]() -> int {
        const auto info = info_of(device, "libusb_get_device_descriptor");
        if (!info) {
            return LIBUSB_ERROR_INVALID_PARAM;
        }
        return virtcam::bus::parse_device_descriptor(info->device_bytes, *descriptor)
                   ? LIBUSB_SUCCESS
                   : LIBUSB_ERROR_IO;
    });
}

namespace {

void free_config(libusb_config_descriptor* config) {
    locked([&](Bus& bus) { bus.devices().free_config(config); });
}

int make_config(libusb_device* device, const char* call, struct libusb_config_descriptor** config) {
    *config = nullptr;
    const auto info = info_of(device, call);
    if (!info) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    *config = locked([&](Bus& bus) { return bus.devices().make_config(*info); });
    return *config == nullptr ? LIBUSB_ERROR_IO : LIBUSB_SUCCESS;
}

}  // namespace

int LIBUSB_CALL libusb_get_active_config_descriptor(libusb_device* device,
                                                    struct libusb_config_descriptor** config) {
    constexpr const char* kName = "libusb_get_active_config_descriptor";
    return Call(kName).run([&] { return make_config(device, kName, config); });
}

int LIBUSB_CALL libusb_get_config_descriptor(libusb_device* device, uint8_t config_index,
                                             struct libusb_config_descriptor** config) {
    constexpr const char* kName = "libusb_get_config_descriptor";
    return Call(kName, config_index).run([&]() -> int {
        return config_index == 0 ? make_config(device, kName, config) : LIBUSB_ERROR_NOT_FOUND;
    });
}

int LIBUSB_CALL libusb_get_config_descriptor_by_value(libusb_device* device,
                                                      uint8_t bConfigurationValue,
                                                      struct libusb_config_descriptor** config) {
    constexpr const char* kName = "libusb_get_config_descriptor_by_value";
    return Call(kName, bConfigurationValue).run([&]() -> int {
        const int result = make_config(device, kName, config);
        if (result == LIBUSB_SUCCESS && (*config)->bConfigurationValue != bConfigurationValue) {
            free_config(*config);
            *config = nullptr;
            return LIBUSB_ERROR_NOT_FOUND;
        }
        return result;
    });
}

void LIBUSB_CALL libusb_free_config_descriptor(struct libusb_config_descriptor* config) {
    free_config(config);
}

uint8_t LIBUSB_CALL libusb_get_bus_number(libusb_device* device) {
    return info_of(device, "libusb_get_bus_number") ? virtcam::bus::kBusNumber : 0;
}

uint8_t LIBUSB_CALL libusb_get_port_number(libusb_device* device) {
    const auto info = info_of(device, "libusb_get_port_number");
    return info ? info->port : 0;
}

int LIBUSB_CALL libusb_get_port_numbers(libusb_device* device, uint8_t* port_numbers,
                                        int port_numbers_len) {
    if (port_numbers_len <= 0) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    const auto info = info_of(device, "libusb_get_port_numbers");
    if (!info || info->port == 0) {
        return 0;
    }
    port_numbers[0] = info->port;
    return 1;
}

int LIBUSB_CALL libusb_get_port_path(libusb_context*, libusb_device* device, uint8_t* path,
                                     uint8_t path_length) {
    return libusb_get_port_numbers(device, path, path_length);
}

libusb_device* LIBUSB_CALL libusb_get_parent(libusb_device* device) {
    return locked([&](Bus& bus) { return bus.devices().parent(device); });
}

uint8_t LIBUSB_CALL libusb_get_device_address(libusb_device* device) {
    const auto info = info_of(device, "libusb_get_device_address");
    return info ? info->address : 0;
}

int LIBUSB_CALL libusb_get_device_speed(libusb_device* device) {
    return info_of(device, "libusb_get_device_speed") ? LIBUSB_SPEED_HIGH : LIBUSB_SPEED_UNKNOWN;
}

namespace {

/// `measure` of the endpoint, as both size queries look it up.
template <typename Measure>
int query_endpoint(const char* name, libusb_device* device, unsigned char endpoint,
                   Measure measure) {
    return Call(name, endpoint).run([&]() -> int {
        const auto info = info_of(device, name);
        if (!info) {
            return LIBUSB_ERROR_INVALID_PARAM;
        }
        const auto config = virtcam::bus::ConfigDescriptor::parse(info->config_bytes);
        if (!config) {
            return LIBUSB_ERROR_OTHER;
        }
        const auto* descriptor = virtcam::bus::find_endpoint(**config, endpoint);
        return descriptor == nullptr ? LIBUSB_ERROR_NOT_FOUND : measure(*descriptor);
    });
}

}  // namespace

int LIBUSB_CALL libusb_get_max_packet_size(libusb_device* device, unsigned char endpoint) {
    return query_endpoint("libusb_get_max_packet_size", device, endpoint,
                          [](const auto& descriptor) { return int{descriptor.wMaxPacketSize}; });
}

int LIBUSB_CALL libusb_get_max_iso_packet_size(libusb_device* device, unsigned char endpoint) {
    return query_endpoint(
        "libusb_get_max_iso_packet_size", device, endpoint,
        [](const auto& descriptor) { return virtcam::bus::bytes_per_interval(descriptor); });
}
