#include "virtcam/model/firmware.h"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <utility>

namespace virtcam::model {

FirmwareVersion image_version(ByteView image) {
    FirmwareVersion version{0x00, 0x01, 0x00, 0x45, 0x02, 0x03};
    const size_t marker_length = std::strlen(kVersionMarker);
    const size_t at = kVersionMarkerOffset + marker_length;
    if (image.size() >= at + version.size() &&
        std::memcmp(image.data() + kVersionMarkerOffset, kVersionMarker, marker_length) == 0) {
        std::copy_n(image.begin() + static_cast<std::ptrdiff_t>(at), version.size(),
                    version.begin());
    }
    return version;
}

uint64_t image_checksum(ByteView image) {
    return std::accumulate(image.begin(), image.end(), uint64_t{0});
}

bool Firmware::announce(uint32_t size) {
    if (size > kFlashCapacity) {
        path_ = Path::kNone;
        return false;
    }
    path_ = Path::kBulk;
    announced_ = size;
    received_ = 0;
    download_.clear();
    return true;
}

bool Firmware::bulk_data(ByteView data) {
    if (path_ != Path::kBulk) {
        return false;
    }
    received_ += data.size();
    const size_t room = announced_ - download_.size();
    const size_t taken = std::min(room, data.size());
    download_.insert(download_.end(), data.begin(),
                     data.begin() + static_cast<std::ptrdiff_t>(taken));
    return true;
}

bool Firmware::check(uint64_t checksum, uint32_t size) {
    if (path_ != Path::kBulk) {
        return false;
    }
    const bool matches =
        received_ == announced_ && size == announced_ && checksum == image_checksum(download_);
    if (!matches) {
        path_ = Path::kNone;
    }
    return matches;
}

bool Firmware::burn(uint32_t size) {
    if (path_ != Path::kBulk || size != announced_ || received_ != announced_) {
        path_ = Path::kNone;
        return false;
    }
    return commit();
}

bool Firmware::begin_pieces() {
    path_ = Path::kPieces;
    download_.clear();
    return true;
}

bool Firmware::piece(ByteView data) {
    if (path_ != Path::kPieces || download_.size() + data.size() > kFlashCapacity) {
        return false;
    }
    download_.insert(download_.end(), data.begin(), data.end());
    return true;
}

bool Firmware::burn_pieces() {
    return path_ == Path::kPieces && commit();
}

bool Firmware::commit() {
    path_ = Path::kNone;
    flash_ = std::exchange(download_, {});
    return true;
}

}  // namespace virtcam::model
