#include "fuzz/fake_usb.h"

#include <errno.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

namespace fuzz {
namespace {

int g_IsoPacketSize = 1;
std::vector<libusb_transfer*> g_InFlight;
std::vector<libusb_transfer*> g_Cancelled;

}  // namespace

void set_iso_packet_size(int bytes) {
    g_IsoPacketSize = bytes;
}

libusb_transfer* oldest_transfer() {
    return g_InFlight.empty() ? nullptr : g_InFlight.front();
}

void end_oldest_transfer(libusb_transfer_status status) {
    libusb_transfer* transfer = g_InFlight.front();
    g_InFlight.erase(g_InFlight.begin());
    transfer->status = status;
    transfer->callback(transfer);
}

void touch(const unsigned char* data, size_t size) {
    volatile unsigned char last = 0;
    for (size_t i = 0; i < size; ++i) {
        last = data[i];
    }
    static_cast<void>(last);
}

}  // namespace fuzz

using fuzz::g_Cancelled;
using fuzz::g_InFlight;

extern "C" {

static char g_Object;  // stands for context, device and handle, which nobody looks into

int libusb_init(libusb_context** context) {
    *context = reinterpret_cast<libusb_context*>(&g_Object);
    return 0;
}
void libusb_exit(libusb_context*) {}
libusb_device_handle* libusb_open_device_with_vid_pid(libusb_context*, uint16_t, uint16_t) {
    return reinterpret_cast<libusb_device_handle*>(&g_Object);
}
void libusb_close(libusb_device_handle*) {}
libusb_device* libusb_get_device(libusb_device_handle*) {
    return reinterpret_cast<libusb_device*>(&g_Object);
}
int libusb_get_configuration(libusb_device_handle*, int*) {
    return 0;
}
int libusb_kernel_driver_active(libusb_device_handle*, int) {
    return 0;
}
int libusb_claim_interface(libusb_device_handle*, int) {
    return 0;
}
int libusb_release_interface(libusb_device_handle*, int) {
    return 0;
}
int libusb_set_interface_alt_setting(libusb_device_handle*, int, int) {
    return 0;
}
int libusb_get_max_packet_size(libusb_device*, unsigned char) {
    return 512;
}
int libusb_get_max_iso_packet_size(libusb_device*, unsigned char) {
    return fuzz::g_IsoPacketSize;
}
int libusb_control_transfer(libusb_device_handle*, uint8_t, uint8_t, uint16_t, uint16_t,
                            unsigned char*, uint16_t length, unsigned int) {
    return length;  // a read leaves what was there: the engine's own proposal
}

int libusb_submit_transfer(libusb_transfer* transfer) {
    g_InFlight.push_back(transfer);
    return 0;
}
int libusb_cancel_transfer(libusb_transfer* transfer) {
    const auto found = std::find(g_InFlight.begin(), g_InFlight.end(), transfer);
    if (found == g_InFlight.end()) {
        return LIBUSB_ERROR_NOT_FOUND;
    }
    g_InFlight.erase(found);
    g_Cancelled.push_back(transfer);
    return 0;
}
int libusb_handle_events_timeout(libusb_context*, timeval*) {
    while (!g_Cancelled.empty()) {
        libusb_transfer* transfer = g_Cancelled.back();
        g_Cancelled.pop_back();
        transfer->status = LIBUSB_TRANSFER_CANCELLED;
        transfer->callback(transfer);
    }
    return 0;
}

// One thread only: whatever is waited for will not come.
int __wrap_usleep(useconds_t) {
    return 0;
}
int __wrap_pthread_cond_timedwait(pthread_cond_t*, pthread_mutex_t*, const timespec*) {
    return ETIMEDOUT;
}
}
