// Extension unit 6: the camera's own commands (ISP, auxiliary, MMP), their replies, and the data
// pieces of a firmware download.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "virtcam/model/bytes.h"
#include "virtcam/model/firmware.h"
#include "virtcam/model/settings.h"

namespace virtcam::model {

/// Things that a command asks for once; whoever acts on one clears it.
struct StreamRequests {
    bool key_frame = false;
    bool still = false;  ///< at most one pending
};

/// Fixed answers of this camera.
struct SensorFacts {
    FirmwareVersion version{};
    uint16_t lux = 0;
    uint8_t self_test_result = 0;
};

class ExtensionUnit {
  public:
    ExtensionUnit(Settings& settings, StreamRequests& requests, Firmware& firmware,
                  const SensorFacts& facts)
        : settings_(settings), requests_(requests), firmware_(firmware), facts_(facts) {}

    enum class Outcome { kStall, kDone, kBurned };

    /// SET_CUR of one selector. An unknown selector, length, opcode or value stalls and changes
    /// nothing. kBurned: flash was written, the camera will restart.
    Outcome set(uint8_t selector, ByteView block);

    /// GET_CUR (result selectors only), GET_MIN, GET_MAX, GET_RES, GET_DEF, GET_INFO, GET_LEN.
    std::optional<Bytes> get(uint8_t request, uint8_t selector, uint16_t length) const;

  private:
    using Reply8 = std::array<uint8_t, 8>;
    using Reply16 = std::array<uint8_t, 16>;

    bool isp(ByteView block);
    bool isp_register(ByteView block);
    bool isp_effect(ByteView block);
    bool select_rate_target(uint8_t target);
    Outcome auxiliary(ByteView block);
    bool auxiliary_setting(ByteView block);
    bool audio_register(ByteView block);
    bool mmp(ByteView block);
    bool preview_parameters(ByteView block);
    bool video_option(ByteView block);
    bool gray_crop(ByteView block);
    bool trigger_still();
    bool unlock_flash(uint8_t step);
    bool self_test();

    Settings& settings_;
    StreamRequests& requests_;
    Firmware& firmware_;
    const SensorFacts& facts_;

    // Last reply of each group: reading does not consume it.
    Reply8 isp_reply_{};
    Reply8 aux_reply_{};
    Reply16 mmp_reply_{};
};

}  // namespace virtcam::model
