#include "host/acceptance/stream_probe.h"

#include <span>

#include "host/pictures/annexb.h"

namespace camhost {

StreamProbe::StreamProbe(ICameraSubject& camera, Stream stream, WakeEvent& wake)
    : camera_(camera), stream_(stream), wake_(wake) {
    SetStreamType(info(stream).type);
    camera_.RegisterObserver(this);
}

StreamProbe::~StreamProbe() {
    camera_.RemoveObserver(this);
}

void StreamProbe::begin_count() {
    const std::lock_guard lock(mutex_);
    seen_.key_frames_counted = 0;
    seen_.pictures_to_key = 0;
}

StreamProbe::Seen StreamProbe::seen() const {
    const std::lock_guard lock(mutex_);
    return seen_;
}

bool StreamProbe::wait_for(const std::function<bool(const Seen&)>& condition,
                           std::chrono::milliseconds patience) {
    const auto deadline = Clock::now() + patience;
    while (!condition(seen())) {
        if (Clock::now() >= deadline) {
            return false;
        }
        wake_.wait_until(std::min(deadline, Clock::now() + std::chrono::milliseconds(100)));
    }
    return true;
}

bool StreamProbe::Update(const CCameraData* data) {
    if (data == nullptr || data->m_size == 0) {
        return true;
    }
    const bool h264 = stream_ == Stream::kH264Main || stream_ == Stream::kH264Sub;
    const auto parts =
        h264 ? parts_of(std::span(static_cast<const uint8_t*>(data->m_pData), data->m_size))
             : AccessUnitParts{};
    const std::lock_guard lock(mutex_);
    ++seen_.records;
    if (seen_.key_frames_counted == 0) {
        seen_.pictures_to_key += parts.slices;
    }
    seen_.key_frames += parts.idr ? 1 : 0;
    seen_.key_frames_counted += parts.idr ? 1 : 0;
    wake_.signal();
    return true;
}

}  // namespace camhost
