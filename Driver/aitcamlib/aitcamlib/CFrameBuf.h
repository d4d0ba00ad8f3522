// One preallocated frame buffer.
#pragma once

#include <stdint.h>

#include <cstddef>
#include <new>

class CFrameBuf {
  public:
    /// Bytes behind the nominal capacity, zero at first and owned: a frame's last sub-stream may
    /// claim up to 32 bytes more than were received, and the key-frame scan looks four bytes ahead.
    static constexpr unsigned int kSpareBytes = 64;

    /// Allocates `size` bytes and the spare ones; buf is null when memory is short. All pages are
    /// touched here, so that no page fault falls into the stream. The owner knows the capacity.
    explicit CFrameBuf(unsigned int size)
        : buf(new (std::nothrow) unsigned char[static_cast<std::size_t>(size) + kSpareBytes]()) {}
    virtual ~CFrameBuf() { delete[] buf; }
    CFrameBuf(const CFrameBuf&) = delete;
    CFrameBuf& operator=(const CFrameBuf&) = delete;

    unsigned char* buf;
    uint32_t len = 0;  ///< valid bytes
};
