// The kernel's text listing of USB devices, as the loader reads it, and the number reader by itself.
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "BusListing.h"
#include "tests/support/TvFiles.h"

namespace {

constexpr char kListing[] = "/proc/bus/usb/devices";
time_t g_Changes = 0;

/// A camera is found only where the three words stand that make one.
void check_search(const std::string& listing) {
    ++g_Changes;
    test::WriteFile(kListing, listing);
    const int product = t_SearchAITUsbCamera();
    if (product == 0) {
        return;
    }
    const bool stands = listing.find("Vendor=") != std::string::npos &&
                        listing.find("ProdID=") != std::string::npos &&
                        listing.find("Port=") != std::string::npos;
    if (!stands || product < 0x205C || product > 0x206F) {
        __builtin_trap();
    }
}

void check_cut(std::string line, int size) {
    char number[8] = {};
    const bool found = GetCamString(number, line.data(), "Port=", std::min(size, 8));
    if (found != (size > 0 && strstr(line.c_str(), "Port=") != nullptr)) {
        __builtin_trap();
    }
}

}  // namespace

extern "C" {

int __real_stat(const char* path, struct stat* status);

int __wrap_stat(const char* path, struct stat* status) {
    const int result = __real_stat(path, status);
    status->st_ctim.tv_sec = g_Changes;
    return result;
}

/// AITCAM_ExecuteShell: without the copy the listing itself is read.
int __wrap__Z19AITCAM_ExecuteShellPKc(const char*) {
    return 0;
}

int LLVMFuzzerInitialize(int*, char***) {
    return freopen("/dev/null", "w", stdout) == nullptr ? 1 : 0;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    check_search(text);
    check_cut(text, size > 0 ? data[0] % 16 - 1 : 0);
    return 0;
}
}
