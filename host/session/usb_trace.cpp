#include "host/session/usb_trace.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>

#include "host/base/exit_code.h"
#include "host/base/text.h"

namespace camhost {

namespace {
constexpr const char* kDescriptorVariable = "CAMHOST_TRACE_FD";
}

void UsbTrace::prepare() {
    const int file = memfd_create("usb-trace", 0);
    if (file < 0) {
        throw Failure(ExitCode::kFailed, "cannot make the file for the USB trace");
    }
    setenv("VIRTBUS_TRACE", format("/proc/self/fd/%d", file).c_str(), 1);
    setenv(kDescriptorVariable, format("%d", file).c_str(), 1);
}

UsbTrace::UsbTrace() {
    const char* descriptor = std::getenv(kDescriptorVariable);
    int32_t number = 0;
    if (descriptor != nullptr && parse_int(descriptor, &number)) {
        fd_ = number;
    }
}

void UsbTrace::print_new(Console& console) {
    char chunk[4096];
    ssize_t got = 0;
    while (fd_ >= 0 && (got = pread(fd_, chunk, sizeof(chunk), position_)) > 0) {
        position_ += got;
        partial_.append(chunk, static_cast<size_t>(got));
        size_t end = 0;
        while ((end = partial_.find('\n')) != std::string::npos) {
            console.line("  usb  " + partial_.substr(0, end));
            partial_.erase(0, end + 1);
        }
    }
}

}  // namespace camhost
