#include "virtcam/bus/trace.h"

#include <libusb-1.0/libusb.h>

#include <cstdio>

#include "virtcam/model/describe.h"

namespace virtcam::bus {

Trace::Trace(const std::string& path) {
    if (path.empty()) {
        return;
    }
    file_.open(path, std::ios::trunc);
    if (!file_) {
        std::fprintf(stderr, "virtbus: cannot write the trace \"%s\"\n", path.c_str());
    }
}

void Trace::control(std::chrono::milliseconds when, const char* who, const model::Setup& setup,
                    std::span<const uint8_t> data, unsigned timeout_ms, int result,
                    std::optional<std::chrono::microseconds> took) {
    if (!enabled()) {
        return;
    }
    char text[96];
    std::snprintf(text, sizeof text, "%9.3f %-6s %02x %02x %04x %04x %04x", when.count() / 1000.0,
                  who, setup.request_type, setup.request, setup.value, setup.index, setup.length);
    file_ << text << " |";
    for (const uint8_t byte : data) {
        std::snprintf(text, sizeof text, " %02x", byte);
        file_ << text;
    }
    file_ << " | " << timeout_ms << " ms | ";
    if (result < 0) {
        file_ << libusb_error_name(result);
    } else {
        file_ << result;
    }
    if (took) {
        std::snprintf(text, sizeof text, " | %.1f ms", took->count() / 1000.0);
        file_ << text;
    }
    // At once, so that the trace of a program that crashes is complete.
    file_ << " | " << model::describe(setup, data) << std::endl;
}

}  // namespace virtcam::bus
