// The camera's USB identities.
#pragma once

#include <stdint.h>

#ifndef AITCAM_VENDOR_ID
#define AITCAM_VENDOR_ID 0x114D
#endif

constexpr uint16_t kCameraVendorId = AITCAM_VENDOR_ID;
constexpr uint16_t kBootCodeProductId = 0x2065;  ///< waits for firmware
constexpr uint16_t kRunTimeProductId = 0x2066;   ///< runs its firmware

/// Older devices of the family that the streaming engines also accept.
constexpr uint16_t kFallbackVendorId = 0x114D;
constexpr uint16_t kFallbackProductId = 0x8C00;
