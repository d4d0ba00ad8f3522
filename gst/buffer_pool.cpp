#include "gst/buffer_pool.h"

#include <algorithm>
#include <bit>
#include <limits>

namespace gstcam {

namespace {
constexpr size_t kSmallest = size_t{32} << 10;
constexpr guint kPrepared = 2;  // buffers that a new pool has at once
}  // namespace

BufferPool::~BufferPool() {
    drop();
}

void BufferPool::drop() {
    if (pool_ != nullptr) {
        gst_buffer_pool_set_active(pool_, FALSE);
        gst_object_unref(pool_);
        pool_ = nullptr;
    }
}

bool BufferPool::make_room(size_t size) {
    const bool fits = exact_ ? size == size_ : size <= size_;
    if (pool_ != nullptr && fits) {
        return true;
    }
    if (size > std::numeric_limits<guint>::max() / 2) {
        return false;
    }
    drop();
    size_ = exact_ ? size : std::max(kSmallest, std::bit_ceil(size));
    pool_ = gst_buffer_pool_new();
    GstStructure* config = gst_buffer_pool_get_config(pool_);
    gst_buffer_pool_config_set_params(config, nullptr, static_cast<guint>(size_), kPrepared, 0);
    if (!gst_buffer_pool_set_config(pool_, config) || !gst_buffer_pool_set_active(pool_, TRUE)) {
        drop();
    }
    return pool_ != nullptr;
}

BufferRef BufferPool::copy(std::span<const uint8_t> head, std::span<const uint8_t> body) {
    const size_t size = head.size() + body.size();
    GstBuffer* buffer = nullptr;
    if (!make_room(size) ||
        gst_buffer_pool_acquire_buffer(pool_, &buffer, nullptr) != GST_FLOW_OK) {
        return nullptr;
    }
    gst_buffer_set_size(buffer, static_cast<gssize>(size));
    gst_buffer_fill(buffer, 0, head.data(), head.size());
    gst_buffer_fill(buffer, head.size(), body.data(), body.size());
    return BufferRef(buffer);
}

}  // namespace gstcam
