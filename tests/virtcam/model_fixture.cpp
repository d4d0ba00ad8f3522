#include "model_fixture.h"

namespace virtcam::model::test {

std::vector<SubStream> demultiplex(ByteView frame) {
    std::vector<SubStream> streams;
    size_t at = 0;
    while (at < frame.size()) {
        if (frame.size() - at < kSubStreamHeaderLength) {
            ADD_FAILURE() << "a header is cut off at " << at;
            break;
        }
        const auto u16 = [&](size_t offset) { return load_u16(frame, at + offset); };
        const auto u32 = [&](size_t offset) { return load_u32(frame, at + offset); };
        SubStream stream{u16(0),  u16(4),  u16(6),  u16(8),  u16(10), u32(12),
                         u32(16), u32(20), u32(24), u32(28), {},      {}};
        EXPECT_EQ(u16(2), 28);
        at += kSubStreamHeaderLength;
        if (stream.size > stream.room || stream.room > frame.size() - at) {
            ADD_FAILURE() << "a sub-stream reaches beyond the frame";
            break;
        }
        const auto data = frame.subspan(at, stream.size);
        const auto padding = frame.subspan(at + stream.size, stream.room - stream.size);
        stream.data.assign(data.begin(), data.end());
        stream.padding.assign(padding.begin(), padding.end());
        at += stream.room;
        streams.push_back(std::move(stream));
    }
    return streams;
}

ControlReply Host::in(uint8_t type, uint8_t request, uint16_t value, uint16_t index,
                      uint16_t length) {
    return camera.control({type, request, value, index, length}, {});
}

ControlReply Host::out(uint8_t type, uint8_t request, uint16_t value, uint16_t index,
                       ByteView data) {
    return camera.control({type, request, value, index, static_cast<uint16_t>(data.size())}, data);
}

bool Host::extension(uint8_t selector, size_t length, std::initializer_list<uint8_t> block) {
    Bytes data(block);
    data.resize(length);
    return !out(0x20, 0x01, static_cast<uint16_t>(selector << 8), 0x0600, data).stall;
}

Bytes Host::result(uint8_t selector, uint16_t length) {
    const ControlReply reply = in(0xA0, 0x81, static_cast<uint16_t>(selector << 8), 0x0600, length);
    EXPECT_FALSE(reply.stall);
    return reply.data;
}

bool Host::set_control(uint8_t entity, uint8_t selector, size_t width, int32_t value) {
    Bytes data;
    append_le(data, width, static_cast<uint32_t>(value));
    return !out(0x21, 0x01, static_cast<uint16_t>(selector << 8),
                static_cast<uint16_t>(entity << 8), data)
                .stall;
}

ControlReply Host::probe(uint8_t format, uint8_t frame, uint32_t interval) {
    Bytes block(26, 0);
    block[0] = 1;
    block[2] = format;
    block[3] = frame;
    store_le(block, 4, 4, interval);
    store_le(block, 18, 4, 0x100000);
    store_le(block, 22, 4, 0x2000);
    if (out(0x21, 0x01, 0x0100, 0x0001, block).stall) {
        return {true, {}};
    }
    return in(0xA1, 0x81, 0x0100, 0x0001, 26);
}

bool Host::start(uint8_t format, uint8_t frame, uint32_t interval) {
    const ControlReply negotiated = probe(format, frame, interval);
    return !negotiated.stall && !out(0x21, 0x01, 0x0200, 0x0001, negotiated.data).stall;
}

bool Host::stop() {
    return !out(0x01, 11, 0, 1, {}).stall;
}

TimePoint Host::pass(std::chrono::nanoseconds duration) {
    now += duration;
    return camera.advance(now);
}

std::optional<Frame> Host::take() {
    Frame frame;
    while (auto payload = camera.bulk_in(0x81, 65536, now)) {
        EXPECT_GE(payload->size(), 12U);
        EXPECT_EQ((*payload)[0], 12);
        frame.data.insert(frame.data.end(), payload->begin() + 12, payload->end());
        frame.payloads.push_back(std::move(*payload));
        if ((frame.payloads.back()[1] & 0x02) != 0) {
            return frame;
        }
    }
    EXPECT_TRUE(frame.payloads.empty()) << "a frame without an end";
    return std::nullopt;
}

std::optional<Frame> Host::next_frame(int ticks) {
    for (int i = 0; i < ticks; ++i) {
        const TimePoint wake = camera.advance(now);
        if (auto frame = take()) {
            return frame;
        }
        if (wake != TimePoint::max()) {
            now = std::max(now, wake);
        }
    }
    return std::nullopt;
}

std::vector<SubStream> Host::next_sub_streams() {
    const auto frame = next_frame();
    EXPECT_TRUE(frame.has_value()) << "no frame came";
    return frame ? demultiplex(frame->data) : std::vector<SubStream>{};
}

SubStream Host::next_of(StreamId id) {
    for (int i = 0; i < 40; ++i) {
        for (SubStream& stream : next_sub_streams()) {
            if (stream.id == static_cast<uint16_t>(id)) {
                return std::move(stream);
            }
        }
    }
    ADD_FAILURE() << "no picture of " << stream_name(id);
    return {};
}

CameraConfig running_camera() {
    CameraConfig config;
    config.identity = CameraConfig::Identity::kRunTime;
    config.paced = false;
    return config;
}

}  // namespace virtcam::model::test
