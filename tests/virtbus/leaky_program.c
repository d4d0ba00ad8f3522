/* A program that ends without cleaning up. Exit code 1 when the library cannot be initialised. */
#include <libusb-1.0/libusb.h>
#include <stddef.h>

int main(void) {
    libusb_context* context = NULL;
    if (libusb_init(&context) != 0) {
        return 1;
    }
    libusb_device** list = NULL;
    if (libusb_get_device_list(context, &list) < 0) {
        return 2;
    }
    libusb_device_handle* handle = libusb_open_device_with_vid_pid(context, 0x114D, 0x2066);
    return handle == NULL || libusb_claim_interface(handle, 1) != 0 ? 3 : 0;
}
