// What the vendor commands have set. Volatile: all of it returns to these defaults at power-on.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>

namespace virtcam::model {

/// Bits of the video option word.
enum OptionBit : uint32_t {
    kOptionMirror = 0x01,         ///< H.264 and JPEG
    kOptionFlip = 0x02,           ///< H.264 and JPEG
    kOptionFaceDetection = 0x08,  ///< fills the face list
    kOptionLocalMirror = 0x10,    ///< YUY2, NV12, NV21
    kOptionGrayMirror = 0x20,
};

/// Rate settings of one H.264 stream, as the host gave them.
struct StreamRate {
    uint16_t kbps = 0;  ///< 1000 bit/s
    uint16_t fps = 0;
    bool operator==(const StreamRate&) const = default;
};

/// Origin of a crop window in sensor coordinates (1280 × 960).
struct CropOrigin {
    uint16_t x = 0;
    uint16_t y = 0;
};

/// Everything that shapes the pictures; plain values, copied once for each picture.
struct StreamSettings {
    uint8_t combination = 8;  ///< stream-combination code, 0 to 8
    uint8_t nv12_mode = 0;    ///< non-zero adds NV12 to any combination
    bool nv12_wide = false;   ///< 864 × 486 instead of 640 × 480
    uint8_t local_size = 0;   ///< 5: 640 × 360, 11: 800 × 450, 0: 640 × 480
    uint32_t options = 0;     ///< OptionBit
    std::array<StreamRate, 2> rates{{{2000, 30}, {800, 15}}};  ///< main, second
    std::optional<CropOrigin> crop;                            ///< H.264, JPEG and local pictures
    std::optional<CropOrigin> gray_crop;                       ///< gray pictures
    uint8_t image_effect = 0;   ///< 1 negative, 2 solarised; others: none
    uint8_t colour_effect = 0;  ///< 1 gray, 2 sepia; others: none
};

struct Settings {
    StreamSettings stream;
    uint8_t rate_target = 0;  ///< stream that rate commands address: 0 main, 1 second
    bool face_tracking = false;
    std::array<uint8_t, 32> face_parameters{};
    uint8_t preview_mode = 0;
    uint8_t wide_dynamic_range = 0;
    uint16_t three_a = 0;
    bool led = false;
    uint8_t write_protect_step = 0;  ///< 0 protected, 1 first unlock command seen, 2 unlocked
    uint32_t self_tests = 0;         ///< video self tests run
    std::map<uint16_t, uint16_t> sensor_registers;
    std::map<uint16_t, uint8_t> audio_registers;
};

}  // namespace virtcam::model
