#include "host/session/firmware_download.h"

#include <dlfcn.h>

#include <atomic>
#include <cstring>

namespace camhost {

namespace {

std::atomic<uint64_t> g_sent{0};
std::atomic<uint64_t> g_size{0};

constexpr unsigned char kDownloadEndpoint = 1;

struct Request {
    uint8_t type;
    uint8_t request;
    uint16_t value;
    uint16_t index;
};

bool operator==(const Request& a, const Request& b) {
    return a.type == b.type && a.request == b.request && a.value == b.value && a.index == b.index;
}

// Of the camera's extension unit: the block that begins a download, and a piece of one.
constexpr Request kAuxiliary{0x20, 1, 0x0400, 0x0600};
constexpr Request kPiece{0x20, 1, 0x0300, 0x0600};
constexpr uint8_t kBegin[] = {0x01, 0x00, 0x03};

void begin(uint64_t size) {
    g_sent = 0;
    g_size = size;
}

void note_request(const Request& request, const unsigned char* data, uint16_t length) {
    constexpr uint8_t kVendorToDevice = 0x40;
    constexpr uint8_t kAnnounceImage = 130;  // its size is in the request itself
    if (request.type == kVendorToDevice && request.request == kAnnounceImage) {
        begin(request.value | uint64_t{request.index} << 16);
    } else if (request == kAuxiliary && length >= sizeof(kBegin) &&
               std::memcmp(data, kBegin, sizeof(kBegin)) == 0) {
        begin(0);
    } else if (request == kPiece) {
        g_sent += length;
    }
}

/// libusb's own function: whoever calls has loaded the library. Null when that is not so.
template <typename Function>
Function* of_libusb(const char* name) {
    void* library = dlopen("libusb-1.0.so.0", RTLD_NOW | RTLD_NOLOAD);
    return library == nullptr ? nullptr : reinterpret_cast<Function*>(dlsym(library, name));
}

constexpr int kNotSupported = -12;  // LIBUSB_ERROR_NOT_SUPPORTED

}  // namespace

FirmwareDownload firmware_download() {
    return {g_sent, g_size};
}

}  // namespace camhost

struct libusb_device_handle;

// As libusb.h declares them.
extern "C" {

int libusb_bulk_transfer(libusb_device_handle* handle, unsigned char endpoint, unsigned char* data,
                         int length, int* transferred, unsigned int timeout) {
    static auto* const real =
        camhost::of_libusb<decltype(libusb_bulk_transfer)>("libusb_bulk_transfer");
    if (real == nullptr) {
        return camhost::kNotSupported;
    }
    const int result = real(handle, endpoint, data, length, transferred, timeout);
    if (endpoint == camhost::kDownloadEndpoint && transferred != nullptr && *transferred > 0) {
        camhost::g_sent += static_cast<uint64_t>(*transferred);
    }
    return result;
}

int libusb_control_transfer(libusb_device_handle* handle, uint8_t type, uint8_t request,
                            uint16_t value, uint16_t index, unsigned char* data, uint16_t length,
                            unsigned int timeout) {
    static auto* const real =
        camhost::of_libusb<decltype(libusb_control_transfer)>("libusb_control_transfer");
    if (real == nullptr) {
        return camhost::kNotSupported;
    }
    const int result = real(handle, type, request, value, index, data, length, timeout);
    if (result >= 0) {
        camhost::note_request({type, request, value, index}, data, length);
    }
    return result;
}
}
