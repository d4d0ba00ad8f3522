// camhost --virtual: the same program on the virtual bus.
#pragma once

#include "host/commands/options.h"

namespace camhost {

/// True in the process that runs on the virtual bus.
bool on_virtual_bus();

/// Starts this program anew with the same arguments and the virtual bus in the place of libusb: the
/// loader picks the library when a program starts, so nothing less than a new start will do.
/// `status` is the file for the camera's status dump; empty for none. Returns only by throwing
/// Failure.
[[noreturn]] void restart_on_virtual_bus(const CommonOptions& options,
                                         const std::filesystem::path& status, char** argv);

/// Where the substitute for libusb is: as the options say, else near this program. Throws Failure
/// (kUsage) when it is not there.
std::filesystem::path virtual_bus_folder(const CommonOptions& options);

/// The configuration as JSON text: of a file, of the text itself, or of a preset. Throws Failure
/// (kUsage) when it is none of them.
std::string virtual_configuration(const std::string& config);

}  // namespace camhost
