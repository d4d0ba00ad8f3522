// One stream, counted as it arrives.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>

#include "host/streams/record.h"

namespace camhost {

/// Observes one stream of a camera while it lives.
class StreamProbe : private ICameraObserver {
  public:
    struct Seen {
        uint64_t records = 0;
        unsigned key_frames = 0;
        unsigned key_frames_counted = 0;  ///< since begin_count()
        unsigned pictures_to_key = 0;     ///< from there to the first key frame, that one included
    };

    /// `camera` and `wake` are borrowed.
    StreamProbe(ICameraSubject& camera, Stream stream, WakeEvent& wake);
    ~StreamProbe() override;
    StreamProbe(const StreamProbe&) = delete;
    StreamProbe& operator=(const StreamProbe&) = delete;

    void begin_count();
    Seen seen() const;
    /// Waits until it holds; false after `patience`. The controlling thread.
    bool wait_for(const std::function<bool(const Seen&)>& condition,
                  std::chrono::milliseconds patience);

  private:
    bool Update(const CCameraData* data) override;

    ICameraSubject& camera_;
    const Stream stream_;
    WakeEvent& wake_;
    mutable std::mutex mutex_;
    Seen seen_;
};

}  // namespace camhost
