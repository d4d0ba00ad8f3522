// How much of its firmware the camera has been sent.
#pragma once

#include <cstdint>

namespace camhost {

struct FirmwareDownload {
    uint64_t sent = 0;  ///< bytes that have gone down
    uint64_t size = 0;  ///< of the image, bytes; 0: nobody has announced it
};

/// Of the download that began last in this process. Any thread.
///
/// The plug-in tells nobody how far it is, so its requests are counted on their way: the program
/// camhost puts two functions of its own before libusb's, which count and call those.
FirmwareDownload firmware_download();

}  // namespace camhost
