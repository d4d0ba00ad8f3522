#include "MediaSample.h"

#include <new>

MediaSample::~MediaSample() {
    if (!is_ext_buf) {
        delete[] buf;
    }
}

bool MediaSample::AllocBuffer(uint32_t size, uint8_t* ext) {
    uint8_t* const next = ext != nullptr ? ext : new (std::nothrow) uint8_t[size];
    if (next == nullptr) {
        return false;
    }
    if (!is_ext_buf) {
        delete[] buf;
    }
    is_ext_buf = ext != nullptr;
    buf = next;
    buf_size = size;
    buf_used = 0;
    return true;
}

bool MediaSample::SetSampleSize(uint32_t n) {
    if (buf == nullptr) {
        return false;
    }
    buf_used = n;
    return true;
}
