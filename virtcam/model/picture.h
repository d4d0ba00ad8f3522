// A picture in memory: planar YUV 4:2:0, full-height luma and half-size chroma planes.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "virtcam/model/video_formats.h"

namespace virtcam::model {

/// I420 picture without row padding. Width and height are even.
struct Picture {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> y, u, v;

    Picture() = default;
    Picture(int w, int h) { resize(w, h); }

    /// Sets the size; content is undefined afterwards. Keeps its memory when it suffices.
    void resize(int w, int h) {
        width = w;
        height = h;
        y.resize(static_cast<size_t>(w) * static_cast<size_t>(h));
        u.resize(y.size() / 4);
        v.resize(y.size() / 4);
    }
    int chroma_width() const { return width / 2; }
    int chroma_height() const { return height / 2; }
    uint8_t* row_y(int row) { return y.data() + static_cast<size_t>(row) * width; }
    uint8_t* row_u(int row) { return u.data() + static_cast<size_t>(row) * chroma_width(); }
    uint8_t* row_v(int row) { return v.data() + static_cast<size_t>(row) * chroma_width(); }
    const uint8_t* row_y(int row) const { return y.data() + static_cast<size_t>(row) * width; }
    const uint8_t* row_u(int row) const {
        return u.data() + static_cast<size_t>(row) * chroma_width();
    }
    const uint8_t* row_v(int row) const {
        return v.data() + static_cast<size_t>(row) * chroma_width();
    }
};

/// A rectangle in a picture, in its pixels; fractions are allowed.
struct Region {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;
};

/// What the lens shows: the sensor's area and the part of it that is seen with pan, tilt and zoom
/// at rest. The margin around that part is what panning uncovers.
class PictureSource {
  public:
    virtual ~PictureSource() = default;
    /// The picture `tick` clock periods after the start; valid until the next call.
    virtual const Picture& at(uint64_t tick) = 0;
    virtual Region base_view() const = 0;
    /// How bright the lamp is from the next picture on, 0 to 1; nothing: there is none to be seen. A
    /// film never has one.
    virtual void set_lamp(std::optional<double> /*light*/) {}
};

}  // namespace virtcam::model
