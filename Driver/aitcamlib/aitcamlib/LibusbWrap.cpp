#include "LibusbWrap.h"

pMutex gCtrlTransferMtx;
pMutex m_libusb_ctrl_lock;

int libusb_control_transfer_(libusb_device_handle* handle, uint8_t bmRequestType, uint8_t bRequest,
                             uint16_t wValue, uint16_t wIndex, unsigned char* data,
                             uint16_t wLength, unsigned int timeout) {
    pMutexLock lock(gCtrlTransferMtx);
    return libusb_control_transfer(handle, bmRequestType, bRequest, wValue, wIndex, data, wLength,
                                   timeout);
}
