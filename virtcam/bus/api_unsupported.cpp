// Exported functions of libusb that the virtual bus does not offer. Each says so once it is called,
// so that a program's author sees at once why it does not work here.
#include <libusb-1.0/libusb.h>

#include <cstdio>

namespace {

int unsupported(const char* name) {
    std::fprintf(stderr, "virtbus: %s is not supported\n", name);
    return LIBUSB_ERROR_NOT_SUPPORTED;
}

}  // namespace

int LIBUSB_CALL libusb_wrap_sys_device(libusb_context*, intptr_t, libusb_device_handle**) {
    return unsupported("libusb_wrap_sys_device");
}

int LIBUSB_CALL libusb_get_ss_endpoint_companion_descriptor(
    libusb_context*, const struct libusb_endpoint_descriptor*,
    struct libusb_ss_endpoint_companion_descriptor**) {
    return LIBUSB_ERROR_NOT_FOUND;  // a high-speed device has none
}

void LIBUSB_CALL
libusb_free_ss_endpoint_companion_descriptor(struct libusb_ss_endpoint_companion_descriptor*) {}

int LIBUSB_CALL libusb_get_bos_descriptor(libusb_device_handle*, struct libusb_bos_descriptor**) {
    return LIBUSB_ERROR_PIPE;  // USB 2.0 without LPM: the device stalls the request
}

void LIBUSB_CALL libusb_free_bos_descriptor(struct libusb_bos_descriptor*) {}

int LIBUSB_CALL libusb_get_usb_2_0_extension_descriptor(
    libusb_context*, struct libusb_bos_dev_capability_descriptor*,
    struct libusb_usb_2_0_extension_descriptor**) {
    return unsupported("libusb_get_usb_2_0_extension_descriptor");
}

void LIBUSB_CALL
libusb_free_usb_2_0_extension_descriptor(struct libusb_usb_2_0_extension_descriptor*) {}

int LIBUSB_CALL libusb_get_ss_usb_device_capability_descriptor(
    libusb_context*, struct libusb_bos_dev_capability_descriptor*,
    struct libusb_ss_usb_device_capability_descriptor**) {
    return unsupported("libusb_get_ss_usb_device_capability_descriptor");
}

void LIBUSB_CALL libusb_free_ss_usb_device_capability_descriptor(
    struct libusb_ss_usb_device_capability_descriptor*) {}

int LIBUSB_CALL libusb_get_container_id_descriptor(libusb_context*,
                                                   struct libusb_bos_dev_capability_descriptor*,
                                                   struct libusb_container_id_descriptor**) {
    return unsupported("libusb_get_container_id_descriptor");
}

void LIBUSB_CALL libusb_free_container_id_descriptor(struct libusb_container_id_descriptor*) {}

int LIBUSB_CALL libusb_alloc_streams(libusb_device_handle*, uint32_t, unsigned char*, int) {
    return unsupported("libusb_alloc_streams");
}

int LIBUSB_CALL libusb_free_streams(libusb_device_handle*, unsigned char*, int) {
    return unsupported("libusb_free_streams");
}

void LIBUSB_CALL libusb_transfer_set_stream_id(struct libusb_transfer*, uint32_t) {
    unsupported("libusb_transfer_set_stream_id");
}

uint32_t LIBUSB_CALL libusb_transfer_get_stream_id(struct libusb_transfer*) {
    return 0;
}

unsigned char* LIBUSB_CALL libusb_dev_mem_alloc(libusb_device_handle*, size_t) {
    return nullptr;  // documented answer where there is none: use ordinary memory
}

int LIBUSB_CALL libusb_dev_mem_free(libusb_device_handle*, unsigned char*, size_t) {
    return LIBUSB_ERROR_NOT_SUPPORTED;
}

int LIBUSB_CALL libusb_pollfds_handle_timeouts(libusb_context*) {
    return unsupported("libusb_pollfds_handle_timeouts");
}

const struct libusb_pollfd** LIBUSB_CALL libusb_get_pollfds(libusb_context*) {
    unsupported("libusb_get_pollfds");
    return nullptr;
}

void LIBUSB_CALL libusb_free_pollfds(const struct libusb_pollfd**) {}

void LIBUSB_CALL libusb_set_pollfd_notifiers(libusb_context*, libusb_pollfd_added_cb,
                                             libusb_pollfd_removed_cb, void*) {
    unsupported("libusb_set_pollfd_notifiers");
}

int LIBUSB_CALL libusb_hotplug_register_callback(libusb_context*, int, int, int, int, int,
                                                 libusb_hotplug_callback_fn, void*,
                                                 libusb_hotplug_callback_handle*) {
    return unsupported("libusb_hotplug_register_callback");
}

void LIBUSB_CALL libusb_hotplug_deregister_callback(libusb_context*,
                                                    libusb_hotplug_callback_handle) {}

void* LIBUSB_CALL libusb_hotplug_get_user_data(libusb_context*, libusb_hotplug_callback_handle) {
    return nullptr;
}
