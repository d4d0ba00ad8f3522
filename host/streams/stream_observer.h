// What the plug-in calls for each record of a stream.
#pragma once

#include "Src/CameraInterface.h"
#include "host/streams/record_queue.h"

namespace camhost {

/// Copies the record into the queue and returns: the plug-in's capture thread holds its observer
/// lock meanwhile. It calls nothing of the camera, which would deadlock against a stop.
class StreamObserver : public ICameraObserver {
  public:
    enum class Takes { kEverything, kEndOfStream };

    /// `queue` is borrowed and outlives the observer.
    StreamObserver(Stream stream, RecordQueue& queue, Takes takes = Takes::kEverything)
        : stream_(stream), queue_(queue), takes_(takes) {
        SetStreamType(info(stream).type);
    }

    bool Update(const CCameraData* data) override {
        if (data == nullptr) {
            return false;
        }
        if (takes_ == Takes::kEndOfStream && data->m_size > 0) {
            return true;
        }
        return queue_.push(stream_, data->m_pData, data->m_size,
                           static_cast<uint32_t>(data->m_cts));
    }

  private:
    Stream stream_;
    RecordQueue& queue_;
    Takes takes_;
};

}  // namespace camhost
