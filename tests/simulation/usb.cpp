#include "tests/simulation/usb.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <list>
#include <map>
#include <memory>
#include <vector>

#ifndef AITCAM_VENDOR_ID
#define AITCAM_VENDOR_ID 0x114D
#endif

using sim::Time;

namespace {

constexpr char kListing[] = "/proc/bus/usb/devices";

[[noreturn]] void forbidden(const char* what) {
    fprintf(stderr, "sim: libusb does not allow: %s\n", what);
    abort();
}

struct Flight {
    libusb_transfer* transfer;
    libusb_transfer_status status;
    Time at;
};

}  // namespace

struct libusb_context {
    std::list<Flight> flights;
    bool handled = false;           // a thread handles its events
    Time delivers = sim::kForever;  // and is inside the completion of that time
};

struct libusb_device {};

struct libusb_device_handle {
    libusb_context* context;
    unsigned change;  // that brought the device
};

namespace {

struct State {
    sim::Device* device = nullptr;
    unsigned changes = 0;
    bool listing = false;
    std::vector<std::unique_ptr<libusb_context>> contexts;
    std::vector<std::unique_ptr<libusb_device_handle>> handles;
    std::vector<libusb_transfer*> transfers;
    std::map<int, const libusb_device_handle*> claims;  // by interface
    std::vector<libusb_device**> lists;
};

State* g_Bus = nullptr;
time_t g_ListingTime = 0;  // of its status change, whatever bus it was of
libusb_device g_Device;
constexpr libusb_version kVersion = {1, 0, 26, 11724, "", "simulated"};

template <typename T>
void forget(std::vector<std::unique_ptr<T>>& all, const T* one, const char* otherwise) {
    const auto found =
        std::find_if(all.begin(), all.end(), [&](const auto& each) { return each.get() == one; });
    if (found == all.end()) {
        forbidden(otherwise);
    }
    all.erase(found);
}

bool is_lost(const libusb_device_handle* handle) {
    return g_Bus->device == nullptr || handle->change != g_Bus->changes;
}

Flight* find_flight(const libusb_transfer* transfer) {
    for (const auto& context : g_Bus->contexts) {
        for (Flight& flight : context->flights) {
            if (flight.transfer == transfer) {
                return &flight;
            }
        }
    }
    return nullptr;
}

void complete(libusb_transfer* transfer, libusb_transfer_status status) {
    transfer->status = status;
    transfer->actual_length = 0;
    for (int i = 0; i < transfer->num_iso_packets; ++i) {
        transfer->iso_packet_desc[i].actual_length = 0;
        transfer->iso_packet_desc[i].status = LIBUSB_TRANSFER_COMPLETED;
    }
    const bool carries_data =
        status == LIBUSB_TRANSFER_COMPLETED || status == LIBUSB_TRANSFER_TIMED_OUT;
    if (carries_data && g_Bus->device != nullptr) {
        g_Bus->device->fill(*transfer);
    }
    transfer->callback(transfer);
}

/// Hands out what has ended by now; false: nothing has.
bool deliver(libusb_context& context) {
    bool any = false;
    for (;;) {
        const auto due = std::min_element(
            context.flights.begin(), context.flights.end(),
            [](const Flight& one, const Flight& other) { return one.at < other.at; });
        if (due == context.flights.end() || due->at > sim::World::now()) {
            return any;
        }
        const Flight flight = *due;
        context.flights.erase(due);
        context.delivers = flight.at;
        complete(flight.transfer, flight.status);
        context.delivers = sim::kForever;
        sim::World::wake_all(&context);
        any = true;
    }
}

Time next_event(const libusb_context& context) {
    Time next = sim::kForever;
    for (const Flight& flight : context.flights) {
        next = std::min(next, flight.at);
    }
    return next;
}

/// Waits on the context until something may have changed, as its event handler where there is none.
/// True: an event was handed out.
bool handle_events(libusb_context& context, Time until) {
    if (context.handled) {
        sim::World::wait(&context, until);
        return false;
    }
    context.handled = true;
    bool any = deliver(context);
    if (!any && sim::World::now() < until) {
        sim::World::wait(&context, std::min(until, next_event(context)));
        any = deliver(context);
    }
    context.handled = false;
    sim::World::wake_all(&context);
    return any;
}

/// The length of a synchronous transfer, whose result is `answer`'s unless the device goes or the
/// time is over.
int await_answer(libusb_device_handle* handle, const sim::Answer& answer, unsigned int timeout_ms) {
    const Time limit = std::chrono::milliseconds(timeout_ms);
    const Time until = sim::World::now() + std::min(answer.after, limit);
    while (!is_lost(handle) && sim::World::now() < until) {
        handle_events(*handle->context, until);
    }
    // It is reaped behind what has ended before it, by the thread that handles events.
    libusb_context& context = *handle->context;
    while (!is_lost(handle) && std::min(context.delivers, next_event(context)) <= until) {
        if (context.handled) {
            sim::World::wait(&context, sim::kForever);
        } else {
            handle_events(context, sim::World::now());
        }
    }
    if (is_lost(handle)) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    return answer.after >= limit ? static_cast<int>(LIBUSB_ERROR_TIMEOUT) : answer.result;
}

void write_listing() {
    if (!g_Bus->listing) {
        return;
    }
    ++g_ListingTime;
    FILE* file = fopen(kListing, "w");
    if (file == nullptr) {
        return;
    }
    if (g_Bus->device != nullptr) {
        fprintf(file,
                "T:  Bus=01 Lev=01 Prnt=01 Port=01 Cnt=01 Dev#=  2 Spd=480 MxCh= 0\n"
                "D:  Ver= 2.00 Cls=ef(misc ) Sub=02 Prot=01 MxPS=64 #Cfgs=  1\n"
                "P:  Vendor=%04x ProdID=%04x Rev=01.00\n",
                AITCAM_VENDOR_ID, g_Bus->device->product());
    }
    fclose(file);
}

int connected_call(const libusb_device_handle* handle, const char* name, int interface = -1) {
    return is_lost(handle) ? static_cast<int>(LIBUSB_ERROR_NO_DEVICE)
                           : g_Bus->device->call(name, interface);
}

}  // namespace

namespace sim {

Bus::Bus(Device* device) {
    g_Bus = new State;
    if (device != nullptr) {
        plug(device);
    }
}

Bus::~Bus() {
    for (libusb_transfer* transfer : g_Bus->transfers) {
        free(transfer);
    }
    for (libusb_device** list : g_Bus->lists) {
        free(list);
    }
    delete g_Bus;
    g_Bus = nullptr;
}

void Bus::plug(Device* device) {
    unplug();
    g_Bus->claims.clear();
    g_Bus->device = device;
    ++g_Bus->changes;
    write_listing();
}

void Bus::unplug() {
    if (g_Bus->device == nullptr) {
        return;
    }
    g_Bus->device = nullptr;
    ++g_Bus->changes;
    for (const auto& context : g_Bus->contexts) {
        for (Flight& flight : context->flights) {
            flight.status = LIBUSB_TRANSFER_NO_DEVICE;
            flight.at = World::now();
        }
        World::wake_all(context.get());
    }
    write_listing();
}

unsigned Bus::changes() {
    return g_Bus->changes;
}

Bus::Leavings Bus::leavings() {
    Leavings all = {g_Bus->contexts.size(), g_Bus->handles.size(), g_Bus->transfers.size(), 0};
    for (const auto& context : g_Bus->contexts) {
        all.in_flight += context->flights.size();
    }
    return all;
}

void Bus::publish_listing() {
    g_Bus->listing = true;
    write_listing();
}

}  // namespace sim

extern "C" {

int __real_stat(const char* path, struct stat* status);

/// The listing has a new status-change time after each change of the bus.
int __wrap_stat(const char* path, struct stat* status) {
    const int result = __real_stat(path, status);
    if (result == 0 && strcmp(path, kListing) == 0) {
        status->st_ctim.tv_sec = g_ListingTime;
    }
    return result;
}

int libusb_init(libusb_context** context) {
    g_Bus->contexts.push_back(std::make_unique<libusb_context>());
    *context = g_Bus->contexts.back().get();
    return 0;
}

void libusb_exit(libusb_context* context) {
    for (const auto& handle : g_Bus->handles) {
        if (handle->context == context) {
            return;  // as libusb, which says so and goes on; the context is kept for its handle
        }
    }
    if (!context->flights.empty()) {
        forbidden("to end a context with transfers in flight");
    }
    forget(g_Bus->contexts, context, "to end a context twice");
}

const libusb_version* libusb_get_version() {
    return &kVersion;
}

ssize_t libusb_get_device_list(libusb_context*, libusb_device*** list) {
    *list = static_cast<libusb_device**>(calloc(2, sizeof(libusb_device*)));
    g_Bus->lists.push_back(*list);
    if (g_Bus->device == nullptr) {
        return 0;
    }
    (*list)[0] = &g_Device;
    return 1;
}

void libusb_free_device_list(libusb_device** list, int) {
    std::erase(g_Bus->lists, list);
    free(list);
}

int libusb_get_device_descriptor(libusb_device*, libusb_device_descriptor* descriptor) {
    memset(descriptor, 0, sizeof *descriptor);
    if (g_Bus->device == nullptr) {
        return 0;  // an old list: it is cached
    }
    descriptor->idVendor = AITCAM_VENDOR_ID;
    descriptor->idProduct = g_Bus->device->product();
    return g_Bus->device->call("libusb_get_device_descriptor", -1);
}

static int open_device(libusb_context* context, libusb_device_handle** handle) {
    if (g_Bus->device == nullptr) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    const int error = g_Bus->device->call("libusb_open", -1);
    if (error != 0) {
        return error;
    }
    g_Bus->handles.push_back(
        std::make_unique<libusb_device_handle>(libusb_device_handle{context, g_Bus->changes}));
    *handle = g_Bus->handles.back().get();
    return 0;
}

int libusb_open(libusb_device*, libusb_device_handle** handle) {
    // The list was the last context's: each of these has a list of its own and opens at once.
    return open_device(g_Bus->contexts.back().get(), handle);
}

libusb_device_handle* libusb_open_device_with_vid_pid(libusb_context* context, uint16_t vendor,
                                                      uint16_t product) {
    libusb_device_handle* handle = nullptr;
    if (g_Bus->device == nullptr || vendor != AITCAM_VENDOR_ID ||
        product != g_Bus->device->product() || open_device(context, &handle) != 0) {
        return nullptr;
    }
    return handle;
}

void libusb_close(libusb_device_handle* handle) {
    for (const Flight& flight : handle->context->flights) {
        if (flight.transfer->dev_handle == handle) {
            forbidden("to close a handle with transfers in flight");
        }
    }
    std::erase_if(g_Bus->claims, [&](const auto& claim) { return claim.second == handle; });
    forget(g_Bus->handles, handle, "to close a handle twice");
}

libusb_device* libusb_get_device(libusb_device_handle*) {
    return &g_Device;
}

int libusb_get_configuration(libusb_device_handle* handle, int* configuration) {
    *configuration = 1;
    return connected_call(handle, "libusb_get_configuration");
}

int libusb_kernel_driver_active(libusb_device_handle* handle, int interface) {
    return connected_call(handle, "libusb_kernel_driver_active", interface);
}

int libusb_detach_kernel_driver(libusb_device_handle* handle, int interface) {
    return connected_call(handle, "libusb_detach_kernel_driver", interface);
}

int libusb_claim_interface(libusb_device_handle* handle, int interface) {
    const int error = connected_call(handle, "libusb_claim_interface", interface);
    if (error != 0) {
        return error;
    }
    const auto claimed = g_Bus->claims.emplace(interface, handle).first;
    return claimed->second == handle ? 0 : static_cast<int>(LIBUSB_ERROR_BUSY);
}

int libusb_release_interface(libusb_device_handle* handle, int interface) {
    const int error = connected_call(handle, "libusb_release_interface", interface);
    const auto claimed = g_Bus->claims.find(interface);
    if (error != 0 || claimed == g_Bus->claims.end() || claimed->second != handle) {
        return error != 0 ? error : static_cast<int>(LIBUSB_ERROR_NOT_FOUND);
    }
    g_Bus->claims.erase(claimed);
    return 0;
}

int libusb_set_interface_alt_setting(libusb_device_handle* handle, int interface, int) {
    return connected_call(handle, "libusb_set_interface_alt_setting", interface);
}

int libusb_get_max_packet_size(libusb_device*, unsigned char) {
    return g_Bus->device == nullptr ? static_cast<int>(LIBUSB_ERROR_NOT_FOUND) : 512;
}

int libusb_get_max_iso_packet_size(libusb_device*, unsigned char) {
    return g_Bus->device == nullptr ? static_cast<int>(LIBUSB_ERROR_NOT_FOUND)
                                    : g_Bus->device->iso_packet_size();
}

int libusb_control_transfer(libusb_device_handle* handle, uint8_t type, uint8_t request,
                            uint16_t value, uint16_t index, unsigned char* data, uint16_t length,
                            unsigned int timeout) {
    if (is_lost(handle)) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    std::vector<unsigned char> bytes(data, data + length);
    sim::Answer answer =
        g_Bus->device->control({type, request, value, index, length, timeout}, bytes.data());
    answer.result = std::min<int>(answer.result, length);
    const int result = await_answer(handle, answer, timeout);
    if ((type & LIBUSB_ENDPOINT_IN) != 0 && result > 0) {
        std::copy_n(bytes.data(), result, data);
    }
    return result;
}

int libusb_bulk_transfer(libusb_device_handle* handle, unsigned char, unsigned char* data,
                         int length, int* moved, unsigned int timeout) {
    *moved = 0;
    if (is_lost(handle)) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    const int result = await_answer(handle, g_Bus->device->bulk_out(data, length), timeout);
    if (result < 0) {
        return result;
    }
    *moved = std::min(result, length);
    return 0;
}

libusb_transfer* libusb_alloc_transfer(int packets) {
    auto* transfer = static_cast<libusb_transfer*>(
        calloc(1, sizeof(libusb_transfer) +
                      static_cast<size_t>(packets) * sizeof(libusb_iso_packet_descriptor)));
    g_Bus->transfers.push_back(transfer);
    return transfer;
}

void libusb_free_transfer(libusb_transfer* transfer) {
    if (transfer == nullptr) {
        return;
    }
    if (find_flight(transfer) != nullptr) {
        forbidden("to free a transfer in flight");
    }
    const auto found = std::find(g_Bus->transfers.begin(), g_Bus->transfers.end(), transfer);
    if (found == g_Bus->transfers.end()) {
        forbidden("to free a transfer twice");
    }
    g_Bus->transfers.erase(found);
    free(transfer);
}

int libusb_submit_transfer(libusb_transfer* transfer) {
    if (find_flight(transfer) != nullptr) {
        return LIBUSB_ERROR_BUSY;
    }
    const int error = connected_call(transfer->dev_handle, "libusb_submit_transfer");
    if (error != 0) {
        return error;
    }
    sim::Ending ending = g_Bus->device->submitted(*transfer);
    if (transfer->timeout != 0) {
        const Time limit = sim::World::now() + std::chrono::milliseconds(transfer->timeout);
        if (ending.at > limit) {
            ending = {LIBUSB_TRANSFER_TIMED_OUT, limit};
        }
    }
    libusb_context* context = transfer->dev_handle->context;
    context->flights.push_back({transfer, ending.status, ending.at});
    sim::World::wake_all(context);
    return 0;
}

int libusb_cancel_transfer(libusb_transfer* transfer) {
    Flight* flight = find_flight(transfer);
    if (flight == nullptr) {
        return LIBUSB_ERROR_NOT_FOUND;
    }
    if (is_lost(transfer->dev_handle)) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    flight->status = LIBUSB_TRANSFER_CANCELLED;
    flight->at = sim::World::now();
    sim::World::wake_all(transfer->dev_handle->context);
    return 0;
}

int libusb_handle_events_timeout(libusb_context* context, timeval* timeout) {
    const Time until = sim::World::now() + std::chrono::seconds(timeout->tv_sec) +
                       std::chrono::microseconds(timeout->tv_usec);
    do {
        if (handle_events(*context, until)) {
            break;
        }
    } while (sim::World::now() < until);
    return 0;
}
}
