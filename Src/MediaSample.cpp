#include "MediaSample.h"

MediaSample::~MediaSample() {
    if (!is_ext_buf) {
        delete[] buf;
    }
}

bool MediaSample::AllocBuffer(uint32_t size, uint8_t* ext) {
    if (!is_ext_buf) {
        delete[] buf;
        buf = nullptr;
    }
    is_ext_buf = ext != nullptr;
    buf = is_ext_buf ? ext : new uint8_t[size];
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
