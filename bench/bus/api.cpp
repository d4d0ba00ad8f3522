// The functions of libusb-1.0 that the plug-in and libuvc call.
#include <libusb-1.0/libusb.h>
#include <sys/time.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "bench/bus/device.h"

// libusb's names and types.
// NOLINTBEGIN(readability-identifier-naming)

namespace {

using bench::Side;
using bench::Stream;

constexpr uint16_t kCameraVendor = 0x114D, kCameraProduct = 0x2066;
constexpr uint8_t kBulkIn = 0x81;
constexpr int kMaxIsoPacket = 192;
constexpr uint16_t kWidth = 640, kHeight = 480;
constexpr uint32_t kInterval = 333333;  // 100 ns units
constexpr uint32_t kMaxFrame = 0x200000;
constexpr uint64_t kNanoseconds = 1'000'000'000;
constexpr uint64_t kIsoPeriod = 10'000'000;  // ns
constexpr timeval kLongWait{60, 0};          // libusb's own for the calls without a time-out

libusb_device_descriptor describe(uint16_t vendor, uint16_t product) {
    libusb_device_descriptor descriptor = {};
    descriptor.bLength = LIBUSB_DT_DEVICE_SIZE;
    descriptor.bDescriptorType = LIBUSB_DT_DEVICE;
    descriptor.bcdUSB = 0x0200;
    descriptor.bDeviceClass = LIBUSB_CLASS_MISCELLANEOUS;
    descriptor.idVendor = vendor;
    descriptor.idProduct = product;
    descriptor.bNumConfigurations = 1;
    return descriptor;
}

// --- descriptors, which only libuvc reads --------------------------------------------------------

#define LE16(value) static_cast<uint8_t>((value)&0xff), static_cast<uint8_t>((value) >> 8)
#define LE32(value) LE16((value)&0xffff), LE16((value) >> 16)

/// VideoControl header (UVC 1.00): one streaming interface, number 1.
const uint8_t g_control_extra[] = {13, 0x24, 0x01, LE16(0x0100), LE16(13), LE32(48000000), 1, 1};
/// Input header, one uncompressed format (YUY2), one frame.
const uint8_t g_stream_extra[] = {14,
                                  0x24,
                                  0x01,
                                  1,
                                  LE16(14 + 27 + 30),
                                  kBulkIn,
                                  0,
                                  2,
                                  0,
                                  0,
                                  0,
                                  1,
                                  0,
                                  27,
                                  0x24,
                                  0x04,
                                  1,
                                  1,
                                  'Y',
                                  'U',
                                  'Y',
                                  '2',
                                  0,
                                  0,
                                  0x10,
                                  0,
                                  0x80,
                                  0,
                                  0,
                                  0xaa,
                                  0,
                                  0x38,
                                  0x9b,
                                  0x71,
                                  16,
                                  1,
                                  0,
                                  0,
                                  0,
                                  0,
                                  30,
                                  0x24,
                                  0x05,
                                  1,
                                  0,
                                  LE16(kWidth),
                                  LE16(kHeight),
                                  LE32(1000000),
                                  LE32(100000000),
                                  LE32(kMaxFrame),
                                  LE32(kInterval),
                                  1,
                                  LE32(kInterval)};

#undef LE16
#undef LE32

libusb_endpoint_descriptor bulk_endpoint() {
    libusb_endpoint_descriptor endpoint = {};
    endpoint.bLength = LIBUSB_DT_ENDPOINT_SIZE;
    endpoint.bDescriptorType = LIBUSB_DT_ENDPOINT;
    endpoint.bEndpointAddress = kBulkIn;
    endpoint.bmAttributes = LIBUSB_TRANSFER_TYPE_BULK;
    endpoint.wMaxPacketSize = 512;
    return endpoint;
}
const libusb_endpoint_descriptor g_endpoint = bulk_endpoint();

libusb_interface_descriptor video_interface(uint8_t number) {
    libusb_interface_descriptor interface = {};
    interface.bLength = LIBUSB_DT_INTERFACE_SIZE;
    interface.bDescriptorType = LIBUSB_DT_INTERFACE;
    interface.bInterfaceNumber = number;
    interface.bInterfaceClass = LIBUSB_CLASS_VIDEO;
    interface.bInterfaceSubClass = static_cast<uint8_t>(number + 1);
    interface.bNumEndpoints = number;
    interface.endpoint = number == 1 ? &g_endpoint : nullptr;
    interface.extra = number == 1 ? g_stream_extra : g_control_extra;
    interface.extra_length =
        static_cast<int>(number == 1 ? sizeof g_stream_extra : sizeof g_control_extra);
    return interface;
}
const libusb_interface_descriptor g_settings[] = {video_interface(0), video_interface(1)};
const libusb_interface g_interfaces[] = {{&g_settings[0], 1}, {&g_settings[1], 1}};

// --- control requests ----------------------------------------------------------------------------

constexpr uint16_t kStreamInterface = 1;
constexpr size_t kProbeSize = 26;

/// Answers any question with zeros, and that for the stream with what the device negotiates.
void answer(uint16_t index, uint8_t* data, uint16_t length) {
    std::memset(data, 0, length);
    if (index != kStreamInterface || length < kProbeSize) {
        return;
    }
    data[2] = 1;
    data[3] = 1;
    std::memcpy(data + 4, &kInterval, sizeof kInterval);
    std::memcpy(data + 18, &kMaxFrame, sizeof kMaxFrame);
    const uint32_t payload = bench::payload_bytes();
    std::memcpy(data + 22, &payload, sizeof payload);
}

// --- transfers -----------------------------------------------------------------------------------

/// What stands before each transfer in memory.
struct alignas(64) Ahead {
    bool touched;
};
Ahead& ahead(libusb_transfer* transfer) {
    return *reinterpret_cast<Ahead*>(reinterpret_cast<uint8_t*>(transfer) - sizeof(Ahead));
}

void finish(libusb_transfer* transfer, libusb_transfer_status status) {
    transfer->status = status;
    transfer->callback(transfer);
}

bool finish_cancelled(libusb_context* context) {
    bool any = false;
    while (context->any_cancelled) {
        libusb_transfer* transfer = nullptr;
        {
            std::lock_guard lock(context->lock);
            transfer = context->cancelled.front();
            context->cancelled.pop_front();
            context->any_cancelled = !context->cancelled.empty();
        }
        any = true;
        transfer->actual_length = 0;
        finish(transfer, LIBUSB_TRANSFER_CANCELLED);
    }
    return any;
}

libusb_transfer* take_pending(libusb_context* context) {
    std::lock_guard lock(context->lock);
    if (context->pending.empty()) {
        return nullptr;
    }
    libusb_transfer* transfer = context->pending.front();
    context->pending.pop_front();
    return transfer;
}

size_t count_pending(libusb_context* context) {
    std::lock_guard lock(context->lock);
    return context->pending.size();
}

/// One transfer of ten packets, of a millisecond each.
bool finish_isochronous(libusb_context* context) {
    const unsigned length = bench::iso_packet_bytes();
    if (length == 0 || bench::now_ns() < context->next_iso) {
        return false;
    }
    libusb_transfer* transfer = take_pending(context);
    if (transfer == nullptr) {
        return false;
    }
    context->next_iso = bench::iso_paced() ? bench::now_ns() + kIsoPeriod : 0;
    for (int i = 0; i < transfer->num_iso_packets; ++i) {
        transfer->iso_packet_desc[i].actual_length =
            std::min(length, transfer->iso_packet_desc[i].length);
        transfer->iso_packet_desc[i].status = LIBUSB_TRANSFER_COMPLETED;
    }
    finish(transfer, LIBUSB_TRANSFER_COMPLETED);
    return true;
}

/// Hands over what may be sent into the transfers that were pending on entry, as one round of
/// libusb reaps what is there.
bool finish_payloads(libusb_context* context, Stream& stream) {
    bool any = false;
    std::lock_guard sending(stream.sending());
    for (size_t left = count_pending(context); left != 0; --left) {
        if (!stream.active() || stream.due() != 0) {
            return any;
        }
        stream.enter_thread();
        libusb_transfer* transfer = take_pending(context);
        if (transfer == nullptr) {
            return any;
        }
        stream.fill(transfer);
        transfer->callback(transfer);
        any = true;
    }
    return any;
}

/// When there may be something to do again, at the latest `deadline`.
uint64_t next_instant(libusb_context* context, uint64_t deadline) {
    Stream* const stream = context->stream;
    if (stream == nullptr) {
        const bool sound = bench::iso_packet_bytes() != 0 && count_pending(context) != 0;
        return sound ? std::min(deadline, context->next_iso) : deadline;
    }
    if (!stream->active()) {
        return deadline;
    }
    std::lock_guard sending(stream->sending());
    return std::min(deadline, stream->due());
}

int handle_events(libusb_context* context, const timeval& time) {
    uint64_t deadline = 0;  // the clock is not read where there is something to hand over
    for (;;) {
        const uint32_t reading = context->waker().reading();
        Stream* const stream = context->stream;
        const bool cancelled = finish_cancelled(context);
        const bool finished =
            stream != nullptr ? finish_payloads(context, *stream) : finish_isochronous(context);
        if (cancelled || finished) {
            return 0;
        }
        const uint64_t now = bench::now_ns();
        if (deadline == 0) {
            deadline = now + static_cast<uint64_t>(time.tv_sec) * kNanoseconds +
                       static_cast<uint64_t>(time.tv_usec) * 1000;
        }
        if (now >= deadline) {
            return 0;
        }
        if (stream != nullptr && stream->active() && stream->traffic().spin) {
            continue;
        }
        const uint64_t instant = next_instant(context, deadline);
        if (instant > bench::now_ns()) {
            context->waker().wait(reading, instant);
        }
    }
}

}  // namespace

extern "C" {

// --- contexts and devices ------------------------------------------------------------------------

int libusb_init(libusb_context** context) {
    auto* made = new libusb_context;
    made->devices[0] = {made, Side::kPlugin, describe(kCameraVendor, kCameraProduct)};
    made->devices[1] = {made, Side::kLibuvc, describe(bench::kPlainVendor, bench::kLibuvcProduct)};
    made->devices[2] = {made, Side::kBare, describe(bench::kPlainVendor, bench::kBareProduct)};
    *context = made;
    return 0;
}
void libusb_exit(libusb_context* context) {
    delete context;
}
const libusb_version* libusb_get_version() {
    static const libusb_version kVersion = {1, 0, 27, 0, "", "measuring bus"};
    return &kVersion;
}
ssize_t libusb_get_device_list(libusb_context* context, libusb_device*** list) {
    *list = static_cast<libusb_device**>(std::calloc(bench::kSides + 1, sizeof **list));
    for (int i = 0; i < bench::kSides; ++i) {
        (*list)[i] = &context->devices[i];
    }
    return bench::kSides;
}
void libusb_free_device_list(libusb_device** list, int) {
    std::free(list);
}
int libusb_get_device_descriptor(libusb_device* device, libusb_device_descriptor* descriptor) {
    *descriptor = device->descriptor;
    return 0;
}
int libusb_get_config_descriptor(libusb_device*, uint8_t, libusb_config_descriptor** descriptor) {
    *descriptor =
        static_cast<libusb_config_descriptor*>(std::calloc(1, sizeof(libusb_config_descriptor)));
    (*descriptor)->bLength = LIBUSB_DT_CONFIG_SIZE;
    (*descriptor)->bDescriptorType = LIBUSB_DT_CONFIG;
    (*descriptor)->bNumInterfaces = 2;
    (*descriptor)->bConfigurationValue = 1;
    (*descriptor)->interface = g_interfaces;
    return 0;
}
void libusb_free_config_descriptor(libusb_config_descriptor* descriptor) {
    std::free(descriptor);
}
int libusb_get_string_descriptor_ascii(libusb_device_handle*, uint8_t, unsigned char*, int) {
    return LIBUSB_ERROR_NOT_FOUND;
}
libusb_device* libusb_ref_device(libusb_device* device) {
    return device;
}
void libusb_unref_device(libusb_device*) {}
uint8_t libusb_get_bus_number(libusb_device*) {
    return 1;
}
uint8_t libusb_get_device_address(libusb_device* device) {
    return static_cast<uint8_t>(2 + static_cast<int>(device->side));
}
int libusb_get_max_packet_size(libusb_device*, unsigned char) {
    return 512;
}
int libusb_get_max_iso_packet_size(libusb_device*, unsigned char) {
    return kMaxIsoPacket;
}

// --- handles -------------------------------------------------------------------------------------

int libusb_open(libusb_device* device, libusb_device_handle** handle) {
    *handle = new libusb_device_handle{device};
    return 0;
}
libusb_device_handle* libusb_open_device_with_vid_pid(libusb_context* context, uint16_t vendor,
                                                      uint16_t product) {
    for (libusb_device& device : context->devices) {
        if (device.descriptor.idVendor == vendor && device.descriptor.idProduct == product) {
            return new libusb_device_handle{&device};
        }
    }
    return nullptr;
}
void libusb_close(libusb_device_handle* handle) {
    delete handle;
}
libusb_device* libusb_get_device(libusb_device_handle* handle) {
    return handle->device;
}
int libusb_get_configuration(libusb_device_handle*, int* configuration) {
    *configuration = 1;
    return 0;
}
int libusb_kernel_driver_active(libusb_device_handle*, int) {
    return 0;
}
int libusb_detach_kernel_driver(libusb_device_handle*, int) {
    return 0;
}
int libusb_attach_kernel_driver(libusb_device_handle*, int) {
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
int libusb_control_transfer(libusb_device_handle*, uint8_t type, uint8_t, uint16_t, uint16_t index,
                            unsigned char* data, uint16_t length, unsigned) {
    if ((type & LIBUSB_ENDPOINT_IN) != 0) {
        answer(index, data, length);
    }
    return length;
}
int libusb_bulk_transfer(libusb_device_handle*, unsigned char, unsigned char*, int, int*,
                         unsigned) {
    return LIBUSB_ERROR_NOT_SUPPORTED;
}

// --- transfers and events ------------------------------------------------------------------------

libusb_transfer* libusb_alloc_transfer(int packets) {
    const size_t size = sizeof(Ahead) + sizeof(libusb_transfer) +
                        sizeof(libusb_iso_packet_descriptor) * static_cast<size_t>(packets);
    const size_t step = alignof(Ahead);
    void* memory = std::aligned_alloc(step, (size + step - 1) / step * step);
    std::memset(memory, 0, size);
    auto* transfer =
        reinterpret_cast<libusb_transfer*>(static_cast<uint8_t*>(memory) + sizeof(Ahead));
    transfer->num_iso_packets = packets;
    return transfer;
}
void libusb_free_transfer(libusb_transfer* transfer) {
    if (transfer != nullptr) {
        std::free(&ahead(transfer));
    }
}
int libusb_submit_transfer(libusb_transfer* transfer) {
    if (!ahead(transfer).touched) {
        ahead(transfer).touched = true;
        std::memset(transfer->buffer, 0x5a, static_cast<size_t>(transfer->length));
    }
    libusb_context* context = transfer->dev_handle->device->context;
    std::lock_guard lock(context->lock);
    if (transfer->type == LIBUSB_TRANSFER_TYPE_BULK && context->stream == nullptr) {
        context->stream = &bench::stream(transfer->dev_handle->device->side);
        context->bell.ring();  // whoever waits there goes over to the stream's
    }
    context->pending.push_back(transfer);
    return 0;
}
int libusb_cancel_transfer(libusb_transfer* transfer) {
    libusb_context* context = transfer->dev_handle->device->context;
    {
        std::lock_guard lock(context->lock);
        const auto found = std::find(context->pending.begin(), context->pending.end(), transfer);
        if (found == context->pending.end()) {
            return LIBUSB_ERROR_NOT_FOUND;
        }
        context->pending.erase(found);
        context->cancelled.push_back(transfer);
        context->any_cancelled = true;
    }
    context->waker().ring();
    return 0;
}
int libusb_handle_events_timeout(libusb_context* context, timeval* time) {
    return handle_events(context, *time);
}
int libusb_handle_events_completed(libusb_context* context, int*) {
    return handle_events(context, kLongWait);
}
}
// NOLINTEND(readability-identifier-naming)
