#include "virtcam/model/command_effects.h"

#include <algorithm>

#include "virtcam/model/stream_plan.h"

namespace virtcam::model::effects {
namespace {

StreamRate& addressed_rate(CommandState& state) {
    return state.settings.stream.rates[state.settings.rate_target];
}

/// The low `T` of a number of the command; its field is no wider.
template <typename T>
T number(const Call& call, size_t index) {
    return static_cast<T>(call.numbers[index]);
}

/// Content of a register; 0 for one that was never written.
template <typename Registers>
uint64_t content(const Registers& registers, const Call& call) {
    const auto found = registers.find(number<uint16_t>(call, 0));
    return found == registers.end() ? 0 : found->second;
}

CropOrigin origin(const Call& call) {
    return {number<uint16_t>(call, 0), number<uint16_t>(call, 1)};
}

}  // namespace

bool set_frame_rate(CommandState& state, Call& call) {
    addressed_rate(state).fps = number<uint16_t>(call, 0);
    return true;
}

bool request_key_frame(CommandState& state, Call& /*call*/) {
    state.requests.key_frame = true;
    return true;
}

bool set_bit_rate(CommandState& state, Call& call) {
    addressed_rate(state).kbps = number<uint16_t>(call, 0);
    return true;
}

bool read_sensor_register(CommandState& state, Call& call) {
    call.answer = content(state.settings.sensor_registers, call);
    return true;
}

bool write_sensor_register(CommandState& state, Call& call) {
    state.settings.sensor_registers[number<uint16_t>(call, 0)] = number<uint16_t>(call, 1);
    return true;
}

bool read_version(CommandState& state, Call& call) {
    const FirmwareVersion& version = state.facts.version;
    for (size_t i = 0; i < version.size(); ++i) {
        call.answer |= uint64_t{version[i]} << (8 * i);
    }
    return true;
}

bool select_rate_target(CommandState& state, Call& call) {
    if (call.numbers[0] >= state.settings.stream.rates.size()) {
        return false;
    }
    state.settings.rate_target = number<uint8_t>(call, 0);
    return true;
}

bool set_wide_dynamic_range(CommandState& state, Call& call) {
    state.settings.wide_dynamic_range = number<uint8_t>(call, 0);
    return true;
}

bool read_light_level(CommandState& state, Call& call) {
    call.answer = state.facts.lux;
    return true;
}

bool set_image_effect(CommandState& state, Call& call) {
    state.settings.stream.image_effect = number<uint8_t>(call, 0);
    return true;
}

bool set_three_a(CommandState& state, Call& call) {
    state.settings.three_a = number<uint16_t>(call, 0);
    return true;
}

bool set_colour_effect(CommandState& state, Call& call) {
    state.settings.stream.colour_effect = number<uint8_t>(call, 0);
    return true;
}

bool begin_download(CommandState& state, Call& /*call*/) {
    return state.firmware.begin_pieces();
}

bool take_piece(CommandState& state, Call& call) {
    return state.firmware.piece(call.block);
}

bool burn_pieces(CommandState& state, Call& /*call*/) {
    const bool burned = state.firmware.burn_pieces();
    state.requests.burned = state.requests.burned || burned;
    return burned;
}

bool set_light(CommandState& state, Call& call) {
    state.settings.led = call.numbers[0] != 0;
    return true;
}

bool set_local_size(CommandState& state, Call& call) {
    const auto code = number<uint8_t>(call, 0);
    if (!is_local_size(code)) {
        return false;
    }
    state.settings.stream.local_size = code;
    return true;
}

bool select_audio_codec(CommandState& /*state*/, Call& /*call*/) {
    return true;  // the one codec of this camera
}

bool write_audio_register(CommandState& state, Call& call) {
    state.settings.audio_registers[number<uint16_t>(call, 0)] = number<uint8_t>(call, 1);
    return true;
}

bool read_audio_register(CommandState& state, Call& call) {
    call.answer = content(state.settings.audio_registers, call);
    return true;
}

bool select_combination(CommandState& state, Call& call) {
    if (call.numbers[0] >= kCombinationCount) {
        return false;
    }
    state.settings.stream.combination = number<uint8_t>(call, 0);
    return true;
}

bool start_face_tracking(CommandState& state, Call& /*call*/) {
    state.settings.face_tracking = true;
    return true;
}

bool stop_face_tracking(CommandState& state, Call& /*call*/) {
    state.settings.face_tracking = false;
    return true;
}

bool set_crop(CommandState& state, Call& call) {
    state.settings.stream.crop = origin(call);
    return true;
}

bool reset_crop(CommandState& state, Call& /*call*/) {
    state.settings.stream.crop.reset();
    return true;
}

bool read_options(CommandState& state, Call& call) {
    call.answer = state.settings.stream.options;
    return true;
}

bool set_options(CommandState& state, Call& call) {
    state.settings.stream.options = number<uint32_t>(call, 0);
    return true;
}

bool trigger_still(CommandState& state, Call& /*call*/) {
    state.requests.still = state.requests.still || takes_stills(state.settings.stream);
    return true;
}

bool set_nv12_mode(CommandState& state, Call& call) {
    state.settings.stream.nv12_mode = number<uint8_t>(call, 0);
    return true;
}

bool unlock_flash(CommandState& state, Call& /*call*/) {
    state.settings.write_protect_step = 1;
    return true;
}

bool finish_unlock(CommandState& state, Call& /*call*/) {
    if (state.settings.write_protect_step == 1) {
        state.settings.write_protect_step = 2;
    }
    return true;
}

bool run_self_test(CommandState& state, Call& call) {
    ++state.settings.self_tests;
    call.answer = state.facts.self_test_result;
    return true;
}

bool set_gray_crop(CommandState& state, Call& call) {
    state.settings.stream.gray_crop = origin(call);
    return true;
}

bool reset_gray_crop(CommandState& state, Call& /*call*/) {
    state.settings.stream.gray_crop.reset();
    return true;
}

bool set_preview_mode(CommandState& state, Call& call) {
    state.settings.preview_mode = number<uint8_t>(call, 0);
    return true;
}

bool set_nv12_size(CommandState& state, Call& call) {
    state.settings.stream.nv12_wide = call.numbers[0] != 0;
    return true;
}

bool list_faces(CommandState& state, Call& call) {
    if (const auto& face = state.facts.face) {
        call.data[0] = 1;
        store_le(call.data, 1, 2, face->left);
        store_le(call.data, 3, 2, face->top);
        store_le(call.data, 5, 2, face->right);
        store_le(call.data, 7, 2, face->bottom);
    }
    return true;
}

bool set_face_parameters(CommandState& state, Call& call) {
    std::copy(call.block.begin(), call.block.end(), state.settings.face_parameters.begin());
    return true;
}

bool announce_download(CommandState& state, Call& call) {
    return state.firmware.announce(number<uint32_t>(call, 0));
}

bool check_download(CommandState& state, Call& call) {
    return state.firmware.check(number<uint64_t>(call, 0), number<uint32_t>(call, 1));
}

bool burn_download(CommandState& state, Call& call) {
    const bool burned = state.firmware.burn(number<uint32_t>(call, 0));
    state.requests.burned = state.requests.burned || burned;
    return burned;
}

}  // namespace virtcam::model::effects
