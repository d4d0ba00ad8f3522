#include "AitDevice.h"

#include <new>

#include "LibusbWrap.h"
#include "aitdbg.h"

namespace {

constexpr int kUnreferenceDevices = 1;

/// Says that a context could not be made and drops what is there of it; false: it was made.
bool ContextFailed(int error, libusb_context* context, LogAs AitLogName) {
    if (error >= 0 && context != nullptr) {
        return false;
    }
    if (context != nullptr) {
        libusb_exit(context);
    }
    AIT_LOG(1, "libusb_init return error 0x%X,\r\n", static_cast<unsigned int>(error));
    return true;
}

/// Says that devices could not be listed and ends the context; false: there is a list.
bool ListFailed(libusb_context* context, libusb_device** list, ssize_t count, LogAs AitLogName) {
    if (count >= 0 && list != nullptr) {
        return false;
    }
    if (count < 0) {
        AIT_LOG(1, "libusb_get_device_list error 0x%x \r\n", static_cast<unsigned int>(count));
        if (list != nullptr) {
            libusb_free_device_list(list, kUnreferenceDevices);
        }
    }
    libusb_exit(context);
    return true;
}

void Close(const AitDevHandle& device) {
    if (device.interface_num != kNoInterface) {
        libusb_release_interface(device.handle, device.interface_num);
    }
    libusb_close(device.handle);
    libusb_exit(device.cntx);
}

}  // namespace

libusb_device* FindAitDevice(libusb_device** list, unsigned short vid, unsigned short pid) {
    for (; *list != nullptr; ++list) {
        libusb_device_descriptor descriptor;
        if (libusb_get_device_descriptor(*list, &descriptor) < 0) {
            AIT_LOG(1, "failed to get device descriptor");
            return nullptr;
        }
        if (descriptor.idVendor == vid && descriptor.idProduct == pid) {
            return *list;
        }
    }
    return nullptr;
}

AitDevHandle* OpenAitDevice(unsigned short vid, unsigned short pid, int interface) {
    libusb_context* context = nullptr;
    const int initError = libusb_init(&context);
    AIT_LOG(4, "libusb initialized. \r\n");
    if (ContextFailed(initError, context, LogAs(__func__))) {
        return nullptr;
    }
    pMutexLock lock(m_libusb_ctrl_lock);
    libusb_device** list = nullptr;
    const ssize_t count = libusb_get_device_list(context, &list);
    if (ListFailed(context, list, count, LogAs(__func__))) {
        return nullptr;
    }
    AIT_LOG(4, "get device list.\r\n");
    libusb_device* device = FindAitDevice(list, vid, pid);
    if (device == nullptr) {
        AIT_LOG(1, "No AIT device has been detected.\r\n");
        libusb_free_device_list(list, kUnreferenceDevices);
        libusb_exit(context);
        return nullptr;
    }
    AIT_LOG(4, "found a usb device.\r\n");
    libusb_device_handle* handle = nullptr;
    if (libusb_open(device, &handle) != 0) {
        // The context is left alive on this path, as it always was: a retry takes a new one.
        libusb_free_device_list(list, kUnreferenceDevices);
        return nullptr;
    }
    int claimed = 0;
    if (interface != kNoInterface) {
        libusb_detach_kernel_driver(handle, interface);
        claimed = libusb_claim_interface(handle, interface);
    }
    AIT_LOG(4, "OpenAitDevice claim interface. interface=%d hr=%d\r\n", interface, claimed);
    if (claimed != 0) {
        // Handle, list and context are left as they are, as they always were on this path.
        return nullptr;
    }
    libusb_free_device_list(list, kUnreferenceDevices);
    const AitDevHandle opened = {handle, context, interface};
    auto* kept = new (std::nothrow) AitDevHandle(opened);
    if (kept == nullptr) {
        AIT_LOG(1, "No memory for the device.\r\n");
        Close(opened);
    }
    return kept;
}

void CloseAitDevice(AitDevHandle* device) {
    if (device == nullptr) {
        return;
    }
    Close(*device);
    delete device;
}

bool CheckDeviceExist(unsigned short vid, unsigned short pid) {
    AIT_LOG(4, "lubusb initialized. \r\n");
    libusb_context* context = nullptr;
    const int initError = libusb_init(&context);
    if (ContextFailed(initError, context, LogAs(__func__))) {
        return false;
    }
    pMutexLock lock(m_libusb_ctrl_lock);
    AIT_LOG(4, "libusb_get_device_list\r\n");
    libusb_device** list = nullptr;
    const ssize_t count = libusb_get_device_list(context, &list);
    AIT_LOG(4, "device count=%d.\r\n", static_cast<int>(count));
    if (ListFailed(context, list, count, LogAs(__func__))) {
        return false;
    }
    const bool found = FindAitDevice(list, vid, pid) != nullptr;
    const unsigned int level = found ? 4 : 1;
    if (!found) {
        AIT_LOG(1, "No AIT device has been detected.\r\n");
    }
    AIT_LOG(level, "free device list\r\n");
    libusb_free_device_list(list, kUnreferenceDevices);
    AIT_LOG(level, "libusb_exit\r\n");
    libusb_exit(context);
    return found;
}
