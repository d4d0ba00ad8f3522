// The libusb that the engines' fuzz targets link against: a camera that grants everything, whose
// transfers the target ends itself. Sleeps and timed waits end at once (see CMakeLists.txt).
#pragma once

#include <libusb-1.0/libusb.h>

namespace fuzz {

/// What the isochronous endpoint claims as its largest packet, in bytes.
void set_iso_packet_size(int bytes);

/// The transfer that was submitted first and has not ended; null: none.
libusb_transfer* oldest_transfer();

/// Ends it: libusb has it no more, and the engine's callback sees it with this status.
void end_oldest_transfer(libusb_transfer_status status);

/// Reads every byte, so that a sanitizer sees where it lies.
void touch(const unsigned char* data, size_t size);

}  // namespace fuzz
