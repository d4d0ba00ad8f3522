// The generated scene: a scrolling texture with moving bodies and a face, and sensor noise.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "virtcam/model/picture.h"

namespace virtcam::model {

/// Coordinates in which crop windows and the face list are given.
inline constexpr int kSensorWidth = 1280;
inline constexpr int kSensorHeight = 960;

/// A rectangle of the face list, in sensor pixels.
struct FaceRect {
    uint16_t left = 0;
    uint16_t top = 0;
    uint16_t right = 0;
    uint16_t bottom = 0;
    bool operator==(const FaceRect&) const = default;
};

/// Where the scene's face is at `tick`.
FaceRect face_at(uint64_t tick);

/// Where the lamp is, in sensor pixels: in sight of every picture whose view is at rest.
inline constexpr int kLampX = 1184;
inline constexpr int kLampY = 752;
inline constexpr int kLampRadius = 48;

class Scene final : public PictureSource {
  public:
    /// `seed` chooses the texture; the same seed gives the same pictures.
    explicit Scene(uint32_t seed);

    const Picture& at(uint64_t tick) override;
    Region base_view() const override;
    void set_lamp(std::optional<double> light) override { lamp_ = light; }

  private:
    /// Makes texture and noise: at the first picture, since a camera that only takes firmware
    /// never shows one.
    void prepare();
    void scroll_background(uint64_t tick);
    void draw_bodies(uint64_t tick);
    void draw_lamp();
    void add_noise(uint64_t tick);

    Picture texture_;
    Picture picture_;
    std::vector<uint8_t> noise_;
    uint32_t seed_;
    std::optional<double> lamp_;
};

}  // namespace virtcam::model
