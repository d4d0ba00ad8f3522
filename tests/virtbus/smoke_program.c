/* A plain C program on the libusb interface: finds the camera, loads a firmware image into it,
 * waits for its second identity, and receives video and sound.
 *
 * Usage: smoke_program [SECONDS]; prints what it received; exit code 0 when all of it came. It goes on
 * for longer, 30 s at most, while a picture or sound has yet to come. */
#include <libusb-1.0/libusb.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#define VENDOR 0x114D
#define BOOT_PRODUCT 0x2065
#define RUN_PRODUCT 0x2066
#define VIDEO_ENDPOINT 0x81
#define AUDIO_ENDPOINT 0x82
#define PACKETS 10
#define LONGEST 30.0

struct counters {
    unsigned payloads;
    unsigned frames;
    unsigned long video_bytes;
    unsigned packets;
    unsigned long audio_bytes;
    unsigned failures;
    int in_flight;
    int stopping;
};

static void fail(const char* what, int code) {
    fprintf(stderr, "%s: %s\n", what, libusb_error_name(code));
    exit(1);
}

static int check(const char* what, int code) {
    if (code < 0) {
        fail(what, code);
    }
    return code;
}

static void resubmit(struct libusb_transfer* transfer, struct counters* counters) {
    if (counters->stopping || libusb_submit_transfer(transfer) != 0) {
        --counters->in_flight;
    }
}

static void LIBUSB_CALL video_done(struct libusb_transfer* transfer) {
    struct counters* counters = transfer->user_data;
    if (transfer->status == LIBUSB_TRANSFER_COMPLETED) {
        ++counters->payloads;
        counters->video_bytes += (unsigned long)transfer->actual_length;
        counters->frames += transfer->actual_length >= 2 && (transfer->buffer[1] & 2) != 0;
    } else if (transfer->status != LIBUSB_TRANSFER_CANCELLED) {
        ++counters->failures;
    }
    resubmit(transfer, counters);
}

static void LIBUSB_CALL audio_done(struct libusb_transfer* transfer) {
    struct counters* counters = transfer->user_data;
    for (int i = 0; i < transfer->num_iso_packets; ++i) {
        ++counters->packets;
        counters->audio_bytes += transfer->iso_packet_desc[i].actual_length;
    }
    resubmit(transfer, counters);
}

static libusb_device_handle* wait_for(libusb_context* context, uint16_t product) {
    for (int attempt = 0; attempt < 100; ++attempt) {
        libusb_device_handle* handle = libusb_open_device_with_vid_pid(context, VENDOR, product);
        if (handle != NULL) {
            return handle;
        }
        const struct timespec pause = {0, 50 * 1000 * 1000};
        nanosleep(&pause, NULL);
    }
    fail("waiting for the camera", LIBUSB_ERROR_NO_DEVICE);
    return NULL;
}

static void load_firmware(libusb_context* context) {
    enum { SIZE = 1025, PIECE = 512 };
    unsigned char image[SIZE];
    memset(image, 0x5A, sizeof image);
    libusb_device_handle* handle = wait_for(context, BOOT_PRODUCT);
    check("claim 2", libusb_claim_interface(handle, 2));
    check("announce", libusb_control_transfer(handle, 0x40, 130, SIZE, 0, NULL, 0, 1000));
    for (int at = 0; at < SIZE; at += PIECE) {
        int moved = 0;
        const int length = SIZE - at < PIECE ? SIZE - at : PIECE;
        check("bulk out", libusb_bulk_transfer(handle, 1, image + at, length, &moved, 1000));
    }
    check("burn", libusb_control_transfer(handle, 0x40, 8, SIZE, 0, NULL, 0, 1000));
    libusb_release_interface(handle, 2);
    libusb_close(handle);
}

static void negotiate(libusb_device_handle* handle) {
    unsigned char probe[26] = {1, 0, 4, 1, 0x15, 0x16, 0x05};
    check("probe", libusb_control_transfer(handle, 0x21, 0x01, 0x0100, 1, probe, 26, 5000));
    check("read probe", libusb_control_transfer(handle, 0xA1, 0x81, 0x0100, 1, probe, 26, 5000));
    check("commit", libusb_control_transfer(handle, 0x21, 0x01, 0x0200, 1, probe, 26, 5000));
    unsigned char rate[3] = {0x80, 0x3E, 0x00};
    check("rate", libusb_control_transfer(handle, 0x22, 0x01, 0x0100, 0x82, rate, 3, 5000));
    check("alternate setting", libusb_set_interface_alt_setting(handle, 3, 1));
}

static struct libusb_transfer* start_video(libusb_device_handle* handle,
                                           struct counters* counters) {
    enum { LENGTH = 65536 };
    struct libusb_transfer* transfer = libusb_alloc_transfer(0);
    libusb_fill_bulk_transfer(transfer, handle, VIDEO_ENDPOINT, malloc(LENGTH), LENGTH, video_done,
                              counters, 5000);
    transfer->flags = LIBUSB_TRANSFER_FREE_BUFFER;
    check("submit video", libusb_submit_transfer(transfer));
    ++counters->in_flight;
    return transfer;
}

static struct libusb_transfer* start_audio(libusb_device_handle* handle,
                                           struct counters* counters) {
    const int size = check(
        "packet size", libusb_get_max_iso_packet_size(libusb_get_device(handle), AUDIO_ENDPOINT));
    struct libusb_transfer* transfer = libusb_alloc_transfer(PACKETS);
    libusb_fill_iso_transfer(transfer, handle, AUDIO_ENDPOINT, malloc((size_t)size * PACKETS),
                             size * PACKETS, PACKETS, audio_done, counters, 1000);
    libusb_set_iso_packet_lengths(transfer, (unsigned)size);
    transfer->flags = LIBUSB_TRANSFER_FREE_BUFFER;
    check("submit audio", libusb_submit_transfer(transfer));
    ++counters->in_flight;
    return transfer;
}

static double seconds_since(const struct timespec* start) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (double)(now.tv_sec - start->tv_sec) + 1e-9 * (double)(now.tv_nsec - start->tv_nsec);
}

static int all_came(const struct counters* counters) {
    return counters->frames > 0 && counters->audio_bytes > 0;
}

static void receive(libusb_context* context, libusb_device_handle* handle, double seconds,
                    struct counters* counters) {
    struct libusb_transfer* transfers[5];
    for (int i = 0; i < 3; ++i) {
        transfers[i] = start_video(handle, counters);
    }
    for (int i = 3; i < 5; ++i) {
        transfers[i] = start_audio(handle, counters);
    }
    struct timespec start;
    clock_gettime(CLOCK_MONOTONIC, &start);
    while (seconds_since(&start) < (all_came(counters) ? seconds : LONGEST)) {
        struct timeval round = {0, 33000};
        check("events", libusb_handle_events_timeout(context, &round));
    }
    counters->stopping = 1;
    for (int i = 0; i < 5; ++i) {
        libusb_cancel_transfer(transfers[i]);
    }
    while (counters->in_flight > 0) {
        check("events", libusb_handle_events(context));
    }
    for (int i = 0; i < 5; ++i) {
        libusb_free_transfer(transfers[i]);
    }
}

int main(int argc, char** argv) {
    const double seconds = argc > 1 ? atof(argv[1]) : 1.0;
    libusb_context* context = NULL;
    check("init", libusb_init(&context));
    load_firmware(context);
    libusb_device_handle* handle = wait_for(context, RUN_PRODUCT);
    unsigned char product[64];
    check("product", libusb_get_string_descriptor_ascii(handle, 2, product, sizeof product));
    for (int interface = 0; interface < 4; ++interface) {
        check("claim", libusb_claim_interface(handle, interface));
    }
    negotiate(handle);
    struct counters counters;
    memset(&counters, 0, sizeof counters);
    receive(context, handle, seconds, &counters);
    check("idle", libusb_set_interface_alt_setting(handle, 3, 0));
    for (int interface = 0; interface < 4; ++interface) {
        libusb_release_interface(handle, interface);
    }
    libusb_close(handle);
    libusb_exit(context);
    printf("%s: %u payloads, %u frames, %lu bytes; %u packets, %lu bytes; %u failures\n", product,
           counters.payloads, counters.frames, counters.video_bytes, counters.packets,
           counters.audio_bytes, counters.failures);
    return all_came(&counters) && counters.failures == 0 ? 0 : 1;
}
