// Finding the camera on the USB bus and opening it for vendor commands. Loader thread.
#pragma once

#include <libusb-1.0/libusb.h>

/// An open camera for vendor commands. Created by OpenAitDevice, destroyed by CloseAitDevice.
struct _AitDevHandle {
    libusb_device_handle* handle;
    libusb_context* cntx;  ///< its own
    int interface_num;     ///< claimed interface, or 255 for none
};
typedef _AitDevHandle AitDevHandle;

constexpr int kNoInterface = 255;

/// First device of a null-terminated list with this identity, borrowed from the list; null when
/// there is none, and at once when a descriptor cannot be read.
libusb_device* FindAitDevice(libusb_device** list, unsigned short vid, unsigned short pid);

/// Opens the camera in a context of its own and claims `interface` (255: none). Null on failure.
AitDevHandle* OpenAitDevice(unsigned short vid, unsigned short pid, int interface);

/// Releases, closes and deletes; null is ignored.
void CloseAitDevice(AitDevHandle* device);

/// Whether a device with this identity is on the bus; opens nothing.
bool CheckDeviceExist(unsigned short vid, unsigned short pid);
