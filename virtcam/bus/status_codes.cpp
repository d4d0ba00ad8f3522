#include "virtcam/bus/status_codes.h"

namespace virtcam::bus {

int error_for(libusb_transfer_status status) {
    switch (status) {
        case LIBUSB_TRANSFER_COMPLETED:
            return LIBUSB_SUCCESS;
        case LIBUSB_TRANSFER_TIMED_OUT:
            return LIBUSB_ERROR_TIMEOUT;
        case LIBUSB_TRANSFER_STALL:
            return LIBUSB_ERROR_PIPE;
        case LIBUSB_TRANSFER_OVERFLOW:
            return LIBUSB_ERROR_OVERFLOW;
        case LIBUSB_TRANSFER_NO_DEVICE:
            return LIBUSB_ERROR_NO_DEVICE;
        case LIBUSB_TRANSFER_ERROR:
        case LIBUSB_TRANSFER_CANCELLED:
            return LIBUSB_ERROR_IO;
    }
    return LIBUSB_ERROR_OTHER;
}

const char* type_name(int type) {
    switch (type) {
        case LIBUSB_TRANSFER_TYPE_CONTROL:
            return "control";
        case LIBUSB_TRANSFER_TYPE_ISOCHRONOUS:
            return "iso";
        case LIBUSB_TRANSFER_TYPE_BULK:
            return "bulk";
        default:
            return "interrupt";
    }
}

}  // namespace virtcam::bus
