#include "tests/access/UsbCalls.h"

#include <atomic>
#include <mutex>
#include <utility>

#include "LibusbWrap.h"
#include "tests/support/LockProbe.h"

namespace test {
namespace {

std::atomic<bool> g_Watching{false};
std::atomic<bool> g_FailInit{false};
std::mutex g_CallsMutex;
std::vector<UsbCall> g_Calls;
std::function<void()> g_BeforeTransfer;

void Record(const char* name, int length = 0, unsigned int timeoutMs = 0) {
    if (!g_Watching) {
        return;
    }
    const UsbCall call{name, length, timeoutMs, !IsFree(gCtrlTransferMtx),
                       !IsFree(m_libusb_ctrl_lock)};
    std::lock_guard lock(g_CallsMutex);
    g_Calls.push_back(call);
}

void BeforeTransfer() {
    std::function<void()> action;
    {
        std::lock_guard lock(g_CallsMutex);
        action = g_BeforeTransfer;
    }
    if (action) {
        action();
    }
}

}  // namespace

void before_each_transfer(std::function<void()> action) {
    std::lock_guard lock(g_CallsMutex);
    g_BeforeTransfer = std::move(action);
}

void watch_usb_calls() {
    std::lock_guard lock(g_CallsMutex);
    g_Calls.clear();
    g_Watching = true;
}

std::vector<UsbCall> take_usb_calls() {
    g_Watching = false;
    std::lock_guard lock(g_CallsMutex);
    return std::exchange(g_Calls, {});
}

void fail_init_with_context(bool on) {
    g_FailInit = on;
}

}  // namespace test

extern "C" {

int __real_libusb_init(libusb_context** context);
ssize_t __real_libusb_get_device_list(libusb_context* context, libusb_device*** list);
int __real_libusb_open(libusb_device* device, libusb_device_handle** handle);
int __real_libusb_claim_interface(libusb_device_handle* handle, int interface);
void __real_libusb_exit(libusb_context* context);
int __real_libusb_control_transfer(libusb_device_handle* handle, uint8_t type, uint8_t request,
                                   uint16_t value, uint16_t index, unsigned char* data,
                                   uint16_t length, unsigned int timeout);
int __real_libusb_bulk_transfer(libusb_device_handle* handle, unsigned char endpoint,
                                unsigned char* data, int length, int* transferred,
                                unsigned int timeout);

int __wrap_libusb_init(libusb_context** context) {
    const int result = __real_libusb_init(context);
    return test::g_FailInit ? LIBUSB_ERROR_OTHER : result;
}

ssize_t __wrap_libusb_get_device_list(libusb_context* context, libusb_device*** list) {
    test::Record("get_device_list");
    return __real_libusb_get_device_list(context, list);
}

int __wrap_libusb_open(libusb_device* device, libusb_device_handle** handle) {
    test::Record("open");
    return __real_libusb_open(device, handle);
}

int __wrap_libusb_claim_interface(libusb_device_handle* handle, int interface) {
    test::Record("claim_interface");
    return __real_libusb_claim_interface(handle, interface);
}

void __wrap_libusb_exit(libusb_context* context) {
    test::Record("exit");
    __real_libusb_exit(context);
}

int __wrap_libusb_control_transfer(libusb_device_handle* handle, uint8_t type, uint8_t request,
                                   uint16_t value, uint16_t index, unsigned char* data,
                                   uint16_t length, unsigned int timeout) {
    test::Record("control_transfer", length, timeout);
    test::BeforeTransfer();
    return __real_libusb_control_transfer(handle, type, request, value, index, data, length,
                                          timeout);
}

int __wrap_libusb_bulk_transfer(libusb_device_handle* handle, unsigned char endpoint,
                                unsigned char* data, int length, int* transferred,
                                unsigned int timeout) {
    test::Record("bulk_transfer", length, timeout);
    test::BeforeTransfer();
    return __real_libusb_bulk_transfer(handle, endpoint, data, length, transferred, timeout);
}
}
