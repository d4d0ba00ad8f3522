// Writing firmware and boot-code images into the camera, by two paths: in 32-byte pieces through
// the extension unit, or announced by a vendor request and written to bulk OUT endpoint 1. The
// camera burns on the last request only, so a partial download is not undone. Loader thread.
//
// All update functions take an open camera and the image's path, read the image whole, and return 0
// or AIT_ERR_DEVICE after one log line. No step retries. `chip` is a number of the camera maker's.
#pragma once

#include <atomic>

#include "AitDevice.h"

/// Extension-unit path. An empty image is accepted. `chip` is not used. Fails before the next piece,
/// without the burn request, once `stop` is set.
int UpdateFirmwareUvcPath(AitDevHandle* ait_handle, char* file_path_name, unsigned int chip,
                          const std::atomic<bool>* stop = nullptr);

/// Bulk path of the boot code, in pieces of 512 bytes; an empty image is refused. `chip` is not
/// used. `stop` as above.
int UpdateFirmwarePcsyncPath(AitDevHandle* ait_handle, char* file_path_name, unsigned int chip,
                             const std::atomic<bool>* stop = nullptr);

// --- not called by the plug-in

/// Bulk path in pieces of 32 KiB; `chip` chooses the burn request. An empty image is accepted.
int UpdateFirmware(AitDevHandle* ait_handle, char* file_path_name, unsigned int chip);

/// The same with a checksum, computed by the caller, that the camera compares before it burns.
int UpdateAitFirmwareWithCheckSum(AitDevHandle* ait_handle, char* file_path_name,
                                  long long CheckSum);

/// Switches the flash's write protection off. Always 0.
int DisableFlashWP(AitDevHandle* ait_handle);
