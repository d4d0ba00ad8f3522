// Byte buffer, owned or borrowed, that capture adapters fill. Not used by the plug-in, whose capture
// threads borrow frames without a copy.
#pragma once

#include <stdint.h>

class MediaSample {
  public:
    MediaSample() = default;
    /// Frees the buffer unless it is borrowed.
    virtual ~MediaSample();
    MediaSample(const MediaSample&) = delete;
    MediaSample& operator=(const MediaSample&) = delete;

    /// Drops an owned buffer, then borrows `ext` (which must outlive its use here) or, when `ext`
    /// is null, allocates `size` bytes. No byte is in use afterwards. False, and nothing changed, when
    /// memory is short.
    bool AllocBuffer(uint32_t size, uint8_t* ext);

    /// Number of valid bytes, not checked against the capacity; false without a buffer.
    bool SetSampleSize(uint32_t n);
    uint32_t GetSampleSize() const { return buf_used; }
    uint32_t GetBufferSize() const { return buf_size; }
    uint8_t* GetBuffer() const { return buf; }

  private:
    bool is_ext_buf = false;
    uint8_t* buf = nullptr;
    uint32_t buf_used = 0;
    uint32_t buf_size = 0;
};
