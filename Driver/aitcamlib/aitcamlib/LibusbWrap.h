// What every user of libusb in this library shares: one control transfer at a time, one enumeration
// at a time, one error code.
#pragma once

#include <libusb-1.0/libusb.h>

#include "ptasking.h"

/// Failure code of the device layer, negative as a signed 32-bit value.
constexpr int AIT_ERR_DEVICE = static_cast<int>(0x80000003);

/// Held for the length of each control transfer: the camera's endpoint 0 handles one request at a
/// time, whatever thread or device handle it comes from. Taken last, after any other lock.
extern pMutex gCtrlTransferMtx;

/// Held while devices are enumerated and opened.
extern pMutex m_libusb_ctrl_lock;

/// libusb_control_transfer under gCtrlTransferMtx, with its arguments and result (bytes, or a
/// negative libusb error). Any thread; blocks for at most `timeout` milliseconds beyond the wait
/// for the transfers before it.
int libusb_control_transfer_(libusb_device_handle* handle, uint8_t bmRequestType, uint8_t bRequest,
                             uint16_t wValue, uint16_t wIndex, unsigned char* data,
                             uint16_t wLength, unsigned int timeout);
