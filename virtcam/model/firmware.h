// Download of an image over either path, and the flash that a burn fills.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "virtcam/model/bytes.h"

namespace virtcam::model {

using FirmwareVersion = std::array<uint8_t, 6>;

/// Offset in an image of the text "AITFWVER", which six version bytes follow. An image without it
/// runs as version 00 01 00 45 02 03.
inline constexpr size_t kVersionMarkerOffset = 64;
inline constexpr char kVersionMarker[] = "AITFWVER";

/// Largest image that the flash holds, in bytes.
inline constexpr uint32_t kFlashCapacity = 16 * 1024 * 1024;

/// Version that the camera runs with `image` in its flash.
FirmwareVersion image_version(ByteView image);

/// Checksum of the download check: the sum of all image bytes, modulo 2^64.
uint64_t image_checksum(ByteView image);

/// One download at a time. Every function returns false when the device stalls the request; a burn
/// that succeeds moves the image into flash, one that fails leaves flash as it was.
class Firmware {
  public:
    /// Bulk path: announces an image of `size` bytes; drops an earlier download.
    bool announce(uint32_t size);
    bool bulk_data(ByteView data);
    /// Bulk path: both must be those of the announced image. A mismatch ends the download, so that
    /// a burn after it stalls too.
    bool check(uint64_t checksum, uint32_t size);
    /// Bulk path: `size` must be the announced size and the bytes received.
    bool burn(uint32_t size);

    /// Extension-unit path: starts a download of unknown size; drops an earlier one.
    bool begin_pieces();
    bool piece(ByteView data);
    bool burn_pieces();

    /// Content after the last burn; nothing before any.
    const std::optional<Bytes>& flash() const { return flash_; }
    /// Forgets a download in progress (power lost); flash stays.
    void reset() { path_ = Path::kNone; }

  private:
    enum class Path { kNone, kBulk, kPieces };

    bool commit();

    Path path_ = Path::kNone;
    uint32_t announced_ = 0;
    uint64_t received_ = 0;  ///< bytes that arrived, those beyond the announced size included
    Bytes download_;
    std::optional<Bytes> flash_;
};

}  // namespace virtcam::model
