#include "virtcam/model/view.h"

#include <algorithm>
#include <cmath>

#include "virtcam/model/scene.h"

namespace virtcam::model {
namespace {

constexpr double kFullTurn = 36000.0;  // largest pan and tilt, 1/3600 degree
constexpr double kTravel = 0.125;      // of the base view, at the largest pan and tilt
constexpr double kZoomStep = 0.2;

Region panned(const Region& base, const UvcControls& controls) {
    Region region = base;
    region.x += base.width * kTravel * controls.value(Control::kPan) / kFullTurn;
    region.y -= base.height * kTravel * controls.value(Control::kTilt) / kFullTurn;
    return region;
}

Region cropped(const Region& base, const CropOrigin& origin) {
    const double scale_x = base.width / kSensorWidth;
    const double scale_y = base.height / kSensorHeight;
    const int x = std::min<int>(origin.x, kSensorWidth - kCropWidth);
    const int y = std::min<int>(origin.y, kSensorHeight - kCropHeight);
    return {base.x + x * scale_x, base.y + y * scale_y, kCropWidth * scale_x,
            kCropHeight * scale_y};
}

Region shrunk(const Region& region, double width, double height) {
    return {region.x + (region.width - width) / 2, region.y + (region.height - height) / 2, width,
            height};
}

Region with_aspect(const Region& region, FrameSize size) {
    const double aspect = static_cast<double>(size.width) / size.height;
    return region.width / region.height > aspect
               ? shrunk(region, region.height * aspect, region.height)
               : shrunk(region, region.width, region.width / aspect);
}

int source_index(double start, double length, int count, int i, bool reversed, int limit) {
    const int position = reversed ? count - 1 - i : i;
    const double at = start + (position + 0.5) * length / count;
    return std::clamp(static_cast<int>(std::floor(at)), 0, limit - 1);
}

struct PlaneView {
    const uint8_t* samples;
    int width, height;
};

void resample_plane(const PlaneView& source, const Region& region, Orientation orientation,
                    std::vector<int>& columns, uint8_t* target, int width, int height) {
    columns.resize(static_cast<size_t>(width));
    for (int x = 0; x < width; ++x) {
        columns[static_cast<size_t>(x)] =
            source_index(region.x, region.width, width, x, orientation.mirror, source.width);
    }
    for (int y = 0; y < height; ++y) {
        const int row =
            source_index(region.y, region.height, height, y, orientation.flip, source.height);
        const uint8_t* from = source.samples + static_cast<size_t>(row) * source.width;
        for (int x = 0; x < width; ++x) {
            target[x] = from[columns[static_cast<size_t>(x)]];
        }
        target += width;
    }
}

}  // namespace

Region view_region(const Region& base, FrameSize size, const UvcControls& controls,
                   const std::optional<CropOrigin>& crop) {
    const Region whole = crop ? cropped(base, *crop) : panned(base, controls);
    const Region framed = with_aspect(whole, size);
    const double magnification = 1.0 + kZoomStep * controls.value(Control::kZoom);
    return shrunk(framed, framed.width / magnification, framed.height / magnification);
}

void Resampler::run(const Picture& source, const Region& region, Orientation orientation,
                    bool luma_only, Picture& target) {
    resample_plane({source.y.data(), source.width, source.height}, region, orientation, columns_,
                   target.y.data(), target.width, target.height);
    if (luma_only) {
        return;
    }
    const Region half{region.x / 2, region.y / 2, region.width / 2, region.height / 2};
    const int width = target.chroma_width();
    const int height = target.chroma_height();
    resample_plane({source.u.data(), source.chroma_width(), source.chroma_height()}, half,
                   orientation, columns_, target.u.data(), width, height);
    resample_plane({source.v.data(), source.chroma_width(), source.chroma_height()}, half,
                   orientation, columns_, target.v.data(), width, height);
}

}  // namespace virtcam::model
