// Why a camera did not become usable, as far as the bus tells.
#pragma once

#include <istream>
#include <string>

#include "host/session/firmware_download.h"

namespace camhost {

/// The bus listing in which the plug-in looks for the camera, too.
inline constexpr const char* kBusListing = "/proc/bus/usb/devices";

/// Half a sentence, as "no camera is on the bus"; empty when the listing cannot be read.
/// @param download what the camera has been sent.
std::string absence(const FirmwareDownload& download, std::istream& listing);

}  // namespace camhost
