// What the camera's own commands read and change, and one such command on its way.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>

#include "virtcam/model/bytes.h"
#include "virtcam/model/firmware.h"
#include "virtcam/model/scene.h"
#include "virtcam/model/settings.h"

namespace virtcam::model {

/// Things that a command asks for once; whoever acts on one clears it.
struct Requests {
    bool key_frame = false;
    bool still = false;   ///< at most one pending
    bool burned = false;  ///< flash was written: the camera restarts
};

/// What the sensors of this camera answer.
struct SensorFacts {
    FirmwareVersion version{};
    uint16_t lux = 0;
    uint8_t self_test_result = 0;
    std::optional<FaceRect> face;  ///< the one that the face list shows
};

struct CommandState {
    Firmware& firmware;  ///< outlives the device: flash keeps its content without power
    SensorFacts facts;
    Settings settings;
    Requests requests;
    /// Last reply of each result selector, zeros before any; reading does not consume it.
    std::map<uint8_t, Bytes> replies;
};

/// Most numbers that one command carries.
inline constexpr size_t kMostNumbers = 6;

/// One command: what it brought, and what it answers.
struct Call {
    std::array<uint64_t, kMostNumbers> numbers{};  ///< in the order of the command's fields
    ByteView block;                                ///< as the host sent it
    uint64_t answer = 0;                           ///< number for the command's reply
    Bytes data;  ///< IN data stage of a vendor request: zeros of its length until the effect runs
};

}  // namespace virtcam::model
