#include "gst/bus_watch.h"

#include <libusb-1.0/libusb.h>

#include <algorithm>
#include <cstdint>

#ifndef AITCAM_VENDOR_ID
#define AITCAM_VENDOR_ID 0x114D
#endif

namespace gstcam {

namespace {

constexpr uint16_t kBootCodeProductId = 0x2065;
constexpr uint16_t kRunTimeProductId = 0x2066;

BusWatch::Sight sight_of(libusb_device* device) {
    libusb_device_descriptor descriptor{};
    if (libusb_get_device_descriptor(device, &descriptor) != LIBUSB_SUCCESS ||
        descriptor.idVendor != AITCAM_VENDOR_ID) {
        return BusWatch::Sight::kNothing;
    }
    return descriptor.idProduct == kRunTimeProductId    ? BusWatch::Sight::kCamera
           : descriptor.idProduct == kBootCodeProductId ? BusWatch::Sight::kWithoutFirmware
                                                        : BusWatch::Sight::kNothing;
}

}  // namespace

BusWatch::BusWatch() {
    if (libusb_init(&context_) != LIBUSB_SUCCESS) {
        context_ = nullptr;
    }
}

BusWatch::~BusWatch() {
    if (context_ != nullptr) {
        libusb_exit(context_);
    }
}

BusWatch::Sight BusWatch::look() {
    if (context_ == nullptr) {
        return Sight::kNothing;
    }
    libusb_device** devices = nullptr;
    const auto count = libusb_get_device_list(context_, &devices);
    Sight best = Sight::kNothing;
    for (ssize_t i = 0; i < count; ++i) {
        best = std::max(best, sight_of(devices[i]));
    }
    if (count >= 0) {
        libusb_free_device_list(devices, 1);
    }
    return best;
}

}  // namespace gstcam
