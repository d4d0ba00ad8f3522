#include "virtcam/model/image_adjust.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>
#include <numeric>

namespace virtcam::model {
namespace {

constexpr uint8_t kNegative = 1;  // image effects
constexpr uint8_t kSolarised = 2;
constexpr uint8_t kGray = 1;  // colour effects
constexpr uint8_t kSepia = 2;
constexpr int kNeutralSharpness = 5;
constexpr int kNeutralTemperature = 4600;

uint8_t clip(int value) {
    return static_cast<uint8_t>(std::clamp(value, 0, 255));
}

double luma_curve(double y, const UvcControls& controls) {
    const double contrast = controls.value(Control::kContrast) / 128.0;
    const double gain = 1.0 + controls.value(Control::kGain) / 255.0;
    const double gamma = controls.value(Control::kGamma) / 100.0;
    // Backlight compensation lifts the shadows, as a smaller gamma exponent does.
    const double lift = 1.0 + 0.25 * controls.value(Control::kBacklight);
    const double shaped = 255.0 * std::pow(y / 255.0, 1.0 / (gamma * lift));
    return (shaped * gain - 128.0) * contrast + 128.0 + controls.value(Control::kBrightness);
}

}  // namespace

ImageAdjust::ImageAdjust(const UvcControls& controls, const StreamSettings& settings) {
    build_luma(controls, settings);
    build_chroma(controls, settings);
    sharpness_ = (controls.value(Control::kSharpness) - kNeutralSharpness) * 2;
}

void ImageAdjust::build_luma(const UvcControls& controls, const StreamSettings& settings) {
    std::iota(luma_.begin(), luma_.end(), uint8_t{0});
    const auto identity = luma_;
    for (int i = 0; i < 256; ++i) {
        uint8_t value = clip(static_cast<int>(std::lround(luma_curve(i, controls))));
        const bool inverted = settings.image_effect == kNegative ||
                              (settings.image_effect == kSolarised && value > 128);
        if (inverted) {
            value = static_cast<uint8_t>(255 - value);
        }
        luma_[static_cast<size_t>(i)] = value;
    }
    luma_neutral_ = luma_ == identity;
}

void ImageAdjust::build_chroma(const UvcControls& controls, const StreamSettings& settings) {
    const double saturation = controls.value(Control::kSaturation) / 128.0;
    const double angle = controls.value(Control::kHue) / 100.0 * std::numbers::pi / 180.0;
    uu_ = vv_ = static_cast<int>(std::lround(256.0 * saturation * std::cos(angle)));
    vu_ = static_cast<int>(std::lround(256.0 * saturation * std::sin(angle)));
    uv_ = -vu_;
    if (controls.value(Control::kWhiteBalanceAuto) == 0) {
        const int warmth = (controls.value(Control::kWhiteBalance) - kNeutralTemperature) / 60;
        u0_ = -warmth;
        v0_ = warmth;
    }
    if (settings.image_effect == kNegative) {
        uu_ = -uu_;
        vv_ = -vv_;
        uv_ = -uv_;
        vu_ = -vu_;
    }
    if (settings.colour_effect == kGray || settings.colour_effect == kSepia) {
        uu_ = uv_ = vu_ = vv_ = 0;
        u0_ = settings.colour_effect == kSepia ? -20 : 0;
        v0_ = settings.colour_effect == kSepia ? 18 : 0;
    }
    chroma_neutral_ = uu_ == 256 && vv_ == 256 && uv_ == 0 && vu_ == 0 && u0_ == 0 && v0_ == 0;
}

void ImageAdjust::apply(Picture& picture, bool luma_only) const {
    if (sharpness_ != 0) {
        sharpen(picture);
    }
    if (!luma_neutral_) {
        for (uint8_t& sample : picture.y) {
            sample = luma_[sample];
        }
    }
    if (!luma_only && !chroma_neutral_) {
        apply_chroma(picture);
    }
}

void ImageAdjust::apply_chroma(Picture& picture) const {
    for (size_t i = 0; i < picture.u.size(); ++i) {
        const int u = picture.u[i] - 128;
        const int v = picture.v[i] - 128;
        picture.u[i] = clip(128 + ((uu_ * u + uv_ * v) >> 8) + u0_);
        picture.v[i] = clip(128 + ((vu_ * u + vv_ * v) >> 8) + v0_);
    }
}

void ImageAdjust::sharpen(Picture& picture) const {
    for (int y = 0; y < picture.height; ++y) {
        uint8_t* row = picture.row_y(y);
        int left = row[0];
        for (int x = 0; x + 1 < picture.width; ++x) {
            const int centre = row[x];
            const int edge = 2 * centre - left - row[x + 1];
            row[x] = clip(centre + sharpness_ * edge / 16);
            left = centre;
        }
    }
}

}  // namespace virtcam::model
