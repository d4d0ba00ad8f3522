// Exported functions: contexts, options, versions and names.
#include <libusb-1.0/libusb.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "virtcam/bus/call.h"

using virtcam::bus::Bus;
using virtcam::bus::bus;
using virtcam::bus::Call;
using virtcam::bus::locked;

#if LIBUSB_API_VERSION < 0x0100010A
// What libusb 1.0.27 added, as its header has it.
struct libusb_init_option {
    enum libusb_option option;
    union {
        int ival;
        libusb_log_cb log_cbval;
    } value;
};
extern "C" int LIBUSB_CALL libusb_init_context(libusb_context** context,
                                               const struct libusb_init_option options[],
                                               int count);
#endif

namespace {

constexpr int kLogCallback = 3;  // LIBUSB_OPTION_LOG_CB, since 1.0.27

bool is_offered(const libusb_init_option& option) {
    return option.option == LIBUSB_OPTION_LOG_LEVEL || option.option == kLogCallback;
}

}  // namespace

int LIBUSB_CALL libusb_init(libusb_context** context) {
    return Call("libusb_init").locked([&](Bus& bus) { return bus.contexts().init(context); });
}

int LIBUSB_CALL libusb_init_context(libusb_context** context,
                                    const struct libusb_init_option options[], int count) {
    return Call("libusb_init_context").locked([&](Bus& bus) -> int {
        return std::all_of(options, options + std::max(count, 0), is_offered)
                   ? bus.contexts().init(context)
                   : LIBUSB_ERROR_NOT_SUPPORTED;
    });
}

void LIBUSB_CALL libusb_exit(libusb_context* context) {
    Call("libusb_exit").run([&] {
        if (locked([&](Bus& bus) { return bus.contexts().exit(context); })) {
            bus().write_status();  // it was the last one
        }
        return 0;
    });
}

// The library has no log of its own to filter, like a libusb that was built without one.
void LIBUSB_CALL libusb_set_debug(libusb_context*, int) {}
void LIBUSB_CALL libusb_set_log_cb(libusb_context*, libusb_log_cb, int) {}

int LIBUSB_CALL libusb_set_option(libusb_context*, enum libusb_option option, ...) {
    switch (option) {
        case LIBUSB_OPTION_LOG_LEVEL:
            return LIBUSB_SUCCESS;
        default:
            return LIBUSB_ERROR_NOT_SUPPORTED;  // the devices are always looked for
    }
}

const struct libusb_version* LIBUSB_CALL libusb_get_version(void) {
    static const libusb_version kVersion{1, 0, 26, 11724, "", "virtual bus"};
    return &kVersion;
}

int LIBUSB_CALL libusb_has_capability(uint32_t capability) {
    return capability == LIBUSB_CAP_HAS_CAPABILITY ||
           capability == LIBUSB_CAP_SUPPORTS_DETACH_KERNEL_DRIVER;
}

const char* LIBUSB_CALL libusb_error_name(int code) {
    switch (code) {
        case LIBUSB_SUCCESS:
            return "LIBUSB_SUCCESS";
        case LIBUSB_ERROR_IO:
            return "LIBUSB_ERROR_IO";
        case LIBUSB_ERROR_INVALID_PARAM:
            return "LIBUSB_ERROR_INVALID_PARAM";
        case LIBUSB_ERROR_ACCESS:
            return "LIBUSB_ERROR_ACCESS";
        case LIBUSB_ERROR_NO_DEVICE:
            return "LIBUSB_ERROR_NO_DEVICE";
        case LIBUSB_ERROR_NOT_FOUND:
            return "LIBUSB_ERROR_NOT_FOUND";
        case LIBUSB_ERROR_BUSY:
            return "LIBUSB_ERROR_BUSY";
        case LIBUSB_ERROR_TIMEOUT:
            return "LIBUSB_ERROR_TIMEOUT";
        case LIBUSB_ERROR_OVERFLOW:
            return "LIBUSB_ERROR_OVERFLOW";
        case LIBUSB_ERROR_PIPE:
            return "LIBUSB_ERROR_PIPE";
        case LIBUSB_ERROR_INTERRUPTED:
            return "LIBUSB_ERROR_INTERRUPTED";
        case LIBUSB_ERROR_NO_MEM:
            return "LIBUSB_ERROR_NO_MEM";
        case LIBUSB_ERROR_NOT_SUPPORTED:
            return "LIBUSB_ERROR_NOT_SUPPORTED";
        case LIBUSB_ERROR_OTHER:
            return "LIBUSB_ERROR_OTHER";
        default:
            return "**UNKNOWN**";
    }
}

const char* LIBUSB_CALL libusb_strerror(int code) {
    switch (code) {
        case LIBUSB_SUCCESS:
            return "Success";
        case LIBUSB_ERROR_IO:
            return "Input/Output Error";
        case LIBUSB_ERROR_INVALID_PARAM:
            return "Invalid parameter";
        case LIBUSB_ERROR_ACCESS:
            return "Access denied (insufficient permissions)";
        case LIBUSB_ERROR_NO_DEVICE:
            return "No such device (it may have been disconnected)";
        case LIBUSB_ERROR_NOT_FOUND:
            return "Entity not found";
        case LIBUSB_ERROR_BUSY:
            return "Resource busy";
        case LIBUSB_ERROR_TIMEOUT:
            return "Operation timed out";
        case LIBUSB_ERROR_OVERFLOW:
            return "Overflow";
        case LIBUSB_ERROR_PIPE:
            return "Pipe error";
        case LIBUSB_ERROR_INTERRUPTED:
            return "System call interrupted (perhaps due to signal)";
        case LIBUSB_ERROR_NO_MEM:
            return "Insufficient memory";
        case LIBUSB_ERROR_NOT_SUPPORTED:
            return "Operation not supported or unimplemented on this platform";
        default:
            return "Other error";
    }
}

int LIBUSB_CALL libusb_setlocale(const char* locale) {
    return locale == nullptr ? LIBUSB_ERROR_INVALID_PARAM : LIBUSB_SUCCESS;
}
