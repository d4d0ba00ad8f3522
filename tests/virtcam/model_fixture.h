// A host for the camera model: a clock that only the test moves, and the requests that a host
// sends.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <vector>

#include "virtcam/model/bytes.h"
#include "virtcam/model/camera.h"
#include "virtcam/model/multiplexer.h"

namespace virtcam::model::test {

/// One sub-stream taken out of a multiplexed frame.
struct SubStream {
    uint16_t version, id, width, height, rate;
    uint32_t sequence, timestamp, flag, size, room;
    Bytes data;
    Bytes padding;
};

/// Splits a multiplexed frame; fails the running test when lengths do not fit.
std::vector<SubStream> demultiplex(ByteView frame);

/// Reassembles UVC payloads into frames.
struct Frame {
    Bytes data;
    std::vector<Bytes> payloads;
};

class Host {
  public:
    explicit Host(const CameraConfig& config) : camera(config) {}

    ControlReply in(uint8_t type, uint8_t request, uint16_t value, uint16_t index, uint16_t length);
    ControlReply out(uint8_t type, uint8_t request, uint16_t value, uint16_t index, ByteView data);
    /// SET_CUR on the extension unit, `block` padded with zeros to `length`. True: not stalled.
    bool extension(uint8_t selector, size_t length, std::initializer_list<uint8_t> block);
    bool isp(std::initializer_list<uint8_t> block) { return extension(1, 8, block); }
    bool aux(std::initializer_list<uint8_t> block) { return extension(4, 8, block); }
    bool mmp(std::initializer_list<uint8_t> block) { return extension(14, 16, block); }
    /// GET_CUR of a result selector.
    Bytes result(uint8_t selector, uint16_t length);
    /// SET_CUR of a camera terminal or processing unit control of `width` bytes.
    bool set_control(uint8_t entity, uint8_t selector, size_t width, int32_t value);
    bool select(uint8_t combination) { return mmp({1, combination}); }

    ControlReply probe(uint8_t format, uint8_t frame, uint32_t interval = 333333);
    /// Probe and commit as the plug-in's engine and the kernel send them. True: accepted.
    bool start(uint8_t format = 4, uint8_t frame = 1, uint32_t interval = 333333);
    bool stop();

    /// Lets `duration` pass, one advance() at the end.
    TimePoint pass(std::chrono::nanoseconds duration);
    /// Advances to the next frame and takes it; nothing when none comes within `ticks` periods.
    std::optional<Frame> next_frame(int ticks = 40);
    /// Takes what waits, without advancing.
    std::optional<Frame> take();
    /// Sub-streams of the next frame.
    std::vector<SubStream> next_sub_streams();
    /// Sub-stream `id` of the next frame that has one.
    SubStream next_of(StreamId id);

    Camera camera;
    TimePoint now{std::chrono::seconds(1000)};
};

/// A camera that runs and is not paced: each advance() makes a frame.
CameraConfig running_camera();

}  // namespace virtcam::model::test
