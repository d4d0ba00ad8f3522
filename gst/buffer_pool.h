// Buffers that are used again.
#pragma once

#include <gst/gst.h>

#include <memory>
#include <span>

namespace gstcam {

struct BufferUnref {
    void operator()(GstBuffer* buffer) const { gst_buffer_unref(buffer); }
};
using BufferRef = std::unique_ptr<GstBuffer, BufferUnref>;

/// Copies records into buffers of a GstBufferPool, which is made anew when a record needs more than
/// the last one offered. The number of buffers is not bounded here: taking one never waits. One
/// thread at a time.
class BufferPool {
  public:
    /// `exact`: records keep their size; else the sizes of buffers are powers of two.
    explicit BufferPool(bool exact) : exact_(exact) {}
    ~BufferPool();
    BufferPool(const BufferPool&) = delete;
    BufferPool& operator=(const BufferPool&) = delete;

    /// A buffer with both parts one after the other; null when there is no memory.
    BufferRef copy(std::span<const uint8_t> head, std::span<const uint8_t> body);

  private:
    bool make_room(size_t size);
    void drop();

    const bool exact_;
    GstBufferPool* pool_ = nullptr;
    size_t size_ = 0;
};

}  // namespace gstcam
