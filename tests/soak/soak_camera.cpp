#include "tests/soak/soak_camera.h"

#include <string.h>

#include <algorithm>

namespace soak {

namespace {

constexpr uint16_t kMainH264 = 0x2B, kGray = 0x2D;
constexpr unsigned kKeyFrameEach = 60;
constexpr size_t kIdAt = 8;
constexpr size_t kPictureBytes = 300;
constexpr unsigned char kErrorBit = 0x40;

}  // namespace

void Account::sent(uint32_t id, bool key) {
    const sim::Time now = sim::World::now();
    entry(id) = {id, Fate::kUnderWay, key, now, now < slow_until_ + std::chrono::seconds(1)};
    settle(id);
}

void Account::delivered(uint32_t id) {
    if (entry(id).id == id) {
        entry(id).fate = Fate::kDelivered;
    } else {
        ++totals_["UNEXPLAINED: delivered long after it was sent"];
    }
}

void Account::settle(uint32_t newest) {
    for (; settled_ + kPatience < newest; ++settled_) {
        ++totals_[judge(entry(settled_ + 1), false)];
    }
}

void Account::close(uint32_t last) {
    for (; settled_ < last; ++settled_) {
        ++totals_[judge(entry(settled_ + 1), true)];
    }
    gap_ = false;
}

/// In the order of the frames.
const char* Account::judge(const Entry& entry, bool stopped) {
    const bool after_loss = gap_;
    if (entry.fate == Fate::kDelivered) {
        gap_ = false;
        return after_loss && !entry.key ? "UNEXPLAINED: delivered after a loss, no key frame"
                                        : "delivered";
    }
    if (entry.fate == Fate::kLost) {
        gap_ = true;
        return "lost or spoilt by plan";
    }
    if (after_loss && !entry.key) {
        return "waited for a key frame";
    }
    gap_ = true;
    if (entry.slow) {
        return "queue full";
    }
    return stopped ? "recording stopped" : "UNEXPLAINED: vanished";
}

sim::Answer SoakCamera::control(const sim::Setup& setup, unsigned char* data) {
    const bool commits = setup.index == 1 && setup.value == 0x0200 && setup.request == 1;
    const bool wants_key =
        setup.index == 0x0600 && setup.value == 0x0100 && (setup.type & 0x80) == 0 && data[0] == 4;
    if (commits) {
        sequence_ = 0;
    }
    key_wanted_ |= commits || wants_key;
    return Camera::control(setup, data);
}

std::vector<uint8_t> SoakCamera::next_frame() {
    ++id_;
    while (falls_on(plan_.lost_each)) {
        account_.lost(id_);
        ++id_;
        ++sequence_;
    }
    const bool key = key_wanted_ || id_ % kKeyFrameEach == 0;
    key_wanted_ = false;
    uint8_t picture[kPictureBytes] = {0, 0, 0, 1, static_cast<uint8_t>(key ? 0x67 : 0x41)};
    memcpy(picture + kIdAt, &id_, sizeof id_);
    std::vector<uint8_t> frame;
    append(frame, kMainH264, ++sequence_, picture, sizeof picture);
    append(frame, kGray, 0, picture, sizeof picture);
    spoilt_ = falls_on(plan_.spoilt_each);
    if (spoilt_) {
        account_.lost(id_);
        account_.settle(id_);
    } else {
        account_.sent(id_, key);
    }
    return frame;
}

void SoakCamera::fill(libusb_transfer& transfer) {
    Camera::fill(transfer);
    if (transfer.type == LIBUSB_TRANSFER_TYPE_BULK && spoilt_) {
        transfer.buffer[1] |= kErrorBit;
        spoilt_ = transfer.actual_length > 12;  // until the end of the frame
    }
}

uint32_t SoakCamera::id_in(const unsigned char* picture, unsigned long size) {
    uint32_t id = 0;
    if (size >= kIdAt + sizeof id) {
        memcpy(&id, picture + kIdAt, sizeof id);
    }
    return id;
}

}  // namespace soak
