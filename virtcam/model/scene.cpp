#include "virtcam/model/scene.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <numbers>
#include <random>

namespace virtcam::model {
namespace {

// The canvas is the sensor with an eighth of it as margin on each side, for pan and tilt.
constexpr int kMarginX = kSensorWidth / 8;
constexpr int kMarginY = kSensorHeight / 8;
constexpr int kCanvasWidth = kSensorWidth + 2 * kMarginX;
constexpr int kCanvasHeight = kSensorHeight + 2 * kMarginY;
constexpr int kTextureWidth = 2048;  // wraps round horizontally
constexpr int kScrollPerTick = 2;    // one pixel of a 640-wide picture

constexpr int kNoiseLength = 1 << 16;
constexpr int kNoiseAmplitude = 6;

constexpr int kFaceWidth = 180;
constexpr int kFaceHeight = 240;

/// Smooth noise: random values on a lattice of `kCell` pixels, interpolated, wrapping in x. The
/// cell is a constant so that divisions by it become shifts.
template <int kCell>
class Lattice {
  public:
    explicit Lattice(std::mt19937& random)
        : values_(static_cast<size_t>(kColumns) * (kCanvasHeight / kCell + 2)) {
        std::uniform_real_distribution<float> distribution(-1.0F, 1.0F);
        std::generate(values_.begin(), values_.end(), [&] { return distribution(random); });
    }

    float at(int x, int y) const {
        const int column = x / kCell;
        const int row = y / kCell;
        const float fx = smooth(static_cast<float>(x % kCell) / kCell);
        const float fy = smooth(static_cast<float>(y % kCell) / kCell);
        const float top = mix(value(column, row), value(column + 1, row), fx);
        const float bottom = mix(value(column, row + 1), value(column + 1, row + 1), fx);
        return mix(top, bottom, fy);
    }

  private:
    static constexpr int kColumns = kTextureWidth / kCell;

    static float mix(float a, float b, float t) { return a + (b - a) * t; }
    static float smooth(float t) { return t * t * (3.0F - 2.0F * t); }
    float value(int column, int row) const {
        return values_[static_cast<size_t>(row) * kColumns + column % kColumns];
    }

    std::vector<float> values_;
};

uint8_t level(float value) {
    return static_cast<uint8_t>(std::clamp(value, 30.0F, 220.0F));
}

Picture make_texture(std::mt19937& random) {
    Picture texture(kTextureWidth, kCanvasHeight);
    const Lattice<128> coarse(random);
    const Lattice<32> middle(random);
    const Lattice<8> fine(random);
    for (int y = 0; y < texture.height; ++y) {
        uint8_t* row = texture.row_y(y);
        for (int x = 0; x < texture.width; ++x) {
            row[x] = level(120.0F + 60.0F * coarse.at(x, y) + 30.0F * middle.at(x, y) +
                           24.0F * fine.at(x, y));
        }
    }
    const Lattice<128> blue(random);
    const Lattice<64> red(random);
    for (int y = 0; y < texture.chroma_height(); ++y) {
        for (int x = 0; x < texture.chroma_width(); ++x) {
            texture.row_u(y)[x] = level(128.0F + 50.0F * blue.at(2 * x, 2 * y));
            texture.row_v(y)[x] = level(128.0F + 50.0F * red.at(2 * x, 2 * y));
        }
    }
    return texture;
}

/// Copies a row of `width` out of a row of `period` that repeats, starting at `offset`.
void copy_wrapped(const uint8_t* from, int period, int offset, uint8_t* to, int width) {
    const int head = std::min(period - offset, width);
    std::memcpy(to, from + offset, static_cast<size_t>(head));
    std::memcpy(to + head, from, static_cast<size_t>(width - head));
}

struct Colour {
    uint8_t y, u, v;
};

/// Half the width of an ellipse of half axes `a` and `b` at `dy` above its centre; -1 outside.
int half_chord(int a, int b, int dy) {
    if (std::abs(dy) > b) {
        return -1;
    }
    const double t = static_cast<double>(dy) / b;
    return static_cast<int>(a * std::sqrt(1.0 - t * t));
}

void fill_span(uint8_t* row, int row_width, int from, int to, uint8_t value) {
    from = std::max(from, 0);
    to = std::min(to, row_width);
    if (from < to) {
        std::memset(row + from, value, static_cast<size_t>(to - from));
    }
}

void fill_ellipse(Picture& picture, int cx, int cy, int a, int b, Colour colour) {
    for (int y = std::max(cy - b, 0); y <= std::min(cy + b, picture.height - 1); ++y) {
        const int half = half_chord(a, b, y - cy);
        fill_span(picture.row_y(y), picture.width, cx - half, cx + half, colour.y);
        if (y % 2 == 0) {
            const int width = picture.chroma_width();
            fill_span(picture.row_u(y / 2), width, (cx - half) / 2, (cx + half) / 2, colour.u);
            fill_span(picture.row_v(y / 2), width, (cx - half) / 2, (cx + half) / 2, colour.v);
        }
    }
}

/// Position on a path that runs to and fro between 0 and `span`, `speed` pixels a tick.
int to_and_fro(uint64_t tick, int speed, int span) {
    const auto position =
        static_cast<int>(tick * static_cast<uint64_t>(speed) % static_cast<uint64_t>(2 * span));
    return position < span ? position : 2 * span - position;
}

struct FaceCentre {
    int x, y;
};

FaceCentre face_centre(uint64_t tick) {
    const double angle = 2.0 * std::numbers::pi * static_cast<double>(tick % 300) / 300.0;
    return {kSensorWidth / 2 + static_cast<int>(260.0 * std::cos(angle)),
            kSensorHeight / 2 + static_cast<int>(140.0 * std::sin(2.0 * angle))};
}

void draw_face(Picture& canvas, uint64_t tick) {
    constexpr Colour kSkin{170, 110, 155};
    constexpr Colour kDark{50, 128, 128};
    constexpr Colour kMouth{90, 115, 170};
    const FaceCentre centre = face_centre(tick);
    const int x = centre.x + kMarginX;
    const int y = centre.y + kMarginY;
    fill_ellipse(canvas, x, y, kFaceWidth / 2, kFaceHeight / 2, kSkin);
    fill_ellipse(canvas, x - 35, y - 35, 16, 10, kDark);
    fill_ellipse(canvas, x + 35, y - 35, 16, 10, kDark);
    fill_ellipse(canvas, x, y + 55, 40, 14, kMouth);
}

}  // namespace

FaceRect face_at(uint64_t tick) {
    const FaceCentre centre = face_centre(tick);
    return {static_cast<uint16_t>(centre.x - kFaceWidth / 2),
            static_cast<uint16_t>(centre.y - kFaceHeight / 2),
            static_cast<uint16_t>(centre.x + kFaceWidth / 2),
            static_cast<uint16_t>(centre.y + kFaceHeight / 2)};
}

Scene::Scene(uint32_t seed) : seed_(seed) {}

void Scene::prepare() {
    std::mt19937 random(seed_);
    picture_.resize(kCanvasWidth, kCanvasHeight);
    texture_ = make_texture(random);
    noise_.resize(kNoiseLength + kCanvasWidth);
    std::uniform_int_distribution<int> amplitude(0, 2 * kNoiseAmplitude);
    std::generate(noise_.begin(), noise_.end(),
                  [&] { return static_cast<uint8_t>(amplitude(random)); });
}

Region Scene::base_view() const {
    return {kMarginX, kMarginY, kSensorWidth, kSensorHeight};
}

const Picture& Scene::at(uint64_t tick) {
    if (texture_.width == 0) {
        prepare();
    }
    scroll_background(tick);
    draw_bodies(tick);
    draw_lamp();
    add_noise(tick);
    return picture_;
}

void Scene::scroll_background(uint64_t tick) {
    const auto offset = static_cast<int>(tick * kScrollPerTick % kTextureWidth);
    for (int y = 0; y < picture_.height; ++y) {
        copy_wrapped(texture_.row_y(y), kTextureWidth, offset, picture_.row_y(y), kCanvasWidth);
    }
    for (int y = 0; y < picture_.chroma_height(); ++y) {
        copy_wrapped(texture_.row_u(y), kTextureWidth / 2, offset / 2, picture_.row_u(y),
                     kCanvasWidth / 2);
        copy_wrapped(texture_.row_v(y), kTextureWidth / 2, offset / 2, picture_.row_v(y),
                     kCanvasWidth / 2);
    }
}

void Scene::draw_bodies(uint64_t tick) {
    constexpr Colour kRed{80, 95, 225};
    constexpr Colour kBlue{60, 220, 110};
    constexpr Colour kGreen{150, 55, 40};
    constexpr int kRadius = 70;
    const auto body = [&](int speed_x, int speed_y, Colour colour) {
        fill_ellipse(picture_, kRadius + to_and_fro(tick, speed_x, kCanvasWidth - 2 * kRadius),
                     kRadius + to_and_fro(tick, speed_y, kCanvasHeight - 2 * kRadius), kRadius,
                     kRadius, colour);
    };
    body(7, 5, kRed);
    body(4, 9, kBlue);
    body(11, 3, kGreen);
    draw_face(picture_, tick);
}

/// Last, so that nothing passes before it.
void Scene::draw_lamp() {
    constexpr double kDark = 40;
    constexpr double kBright = 210;
    if (lamp_) {
        const auto y = static_cast<uint8_t>(std::lround(kDark + (kBright - kDark) * *lamp_));
        fill_ellipse(picture_, kLampX + kMarginX, kLampY + kMarginY, kLampRadius, kLampRadius,
                     {y, 128, 128});
    }
}

void Scene::add_noise(uint64_t tick) {
    // Levels keep a distance from both ends that is larger than the noise, so that nothing wraps.
    std::minstd_rand random(static_cast<uint32_t>(tick) + seed_ + 1);
    for (int y = 0; y < picture_.height; ++y) {
        const uint8_t* noise = noise_.data() + random() % kNoiseLength;
        uint8_t* row = picture_.row_y(y);
        for (int x = 0; x < kCanvasWidth; ++x) {
            row[x] = static_cast<uint8_t>(row[x] + noise[x] - kNoiseAmplitude);
        }
    }
}

}  // namespace virtcam::model
