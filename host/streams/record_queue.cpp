#include "host/streams/record_queue.h"

#include <utility>

namespace camhost {

bool RecordQueue::push(Stream stream, const void* data, size_t size, uint32_t time_stamp) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    Record record;
    record.stream = stream;
    record.arrival = Clock::now();
    record.time_stamp = time_stamp;
    record.end_of_stream = bytes == nullptr || size == 0;
    {
        const std::lock_guard lock(mutex_);
        const bool full = queue_.size() >= limits_.records || queued_bytes_ + size > limits_.bytes;
        if (closed_ || (full && !record.end_of_stream)) {
            ++dropped_[static_cast<size_t>(stream)];
            return false;
        }
        // Room is taken before the copy, which runs outside the lock: audio need not wait while a
        // large picture is copied.
        queued_bytes_ += size;
        if (!pool_.empty()) {
            record.data = std::move(pool_.back());
            pool_.pop_back();
        }
    }
    record.data.clear();
    if (!record.end_of_stream) {
        record.data.assign(bytes, bytes + size);
    }
    {
        const std::lock_guard lock(mutex_);
        queue_.push_back(std::move(record));
    }
    available_.notify_one();
    return true;
}

bool RecordQueue::pop(Record* record) {
    std::unique_lock lock(mutex_);
    if (record->data.capacity() > 0) {
        pool_.push_back(std::move(record->data));
        record->data = {};
    }
    available_.wait(lock, [this] { return closed_ || !queue_.empty(); });
    if (queue_.empty()) {
        return false;
    }
    *record = std::move(queue_.front());
    queue_.pop_front();
    queued_bytes_ -= record->data.size();
    return true;
}

void RecordQueue::close() {
    {
        const std::lock_guard lock(mutex_);
        closed_ = true;
    }
    available_.notify_all();
}

uint64_t RecordQueue::dropped(Stream stream) const {
    const std::lock_guard lock(mutex_);
    return dropped_[static_cast<size_t>(stream)];
}

}  // namespace camhost
