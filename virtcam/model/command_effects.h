// What each of the camera's own commands does: one function per row of the table in commands.cpp,
// which knows the bytes. False: the camera stalls the command, and nothing has changed.
#pragma once

#include "virtcam/model/command_state.h"

namespace virtcam::model::effects {

// ISP.
bool set_frame_rate(CommandState& state, Call& call);
bool request_key_frame(CommandState& state, Call& call);
bool set_bit_rate(CommandState& state, Call& call);
bool read_sensor_register(CommandState& state, Call& call);
bool write_sensor_register(CommandState& state, Call& call);
bool read_version(CommandState& state, Call& call);
bool select_rate_target(CommandState& state, Call& call);
bool set_wide_dynamic_range(CommandState& state, Call& call);
bool read_light_level(CommandState& state, Call& call);
bool set_image_effect(CommandState& state, Call& call);
bool set_three_a(CommandState& state, Call& call);
bool set_colour_effect(CommandState& state, Call& call);

// Auxiliary.
bool begin_download(CommandState& state, Call& call);
bool take_piece(CommandState& state, Call& call);
bool burn_pieces(CommandState& state, Call& call);
bool set_light(CommandState& state, Call& call);
bool set_local_size(CommandState& state, Call& call);
bool select_audio_codec(CommandState& state, Call& call);
bool write_audio_register(CommandState& state, Call& call);
bool read_audio_register(CommandState& state, Call& call);

// MMP.
bool select_combination(CommandState& state, Call& call);
bool start_face_tracking(CommandState& state, Call& call);
bool stop_face_tracking(CommandState& state, Call& call);
bool set_crop(CommandState& state, Call& call);
bool reset_crop(CommandState& state, Call& call);
bool read_options(CommandState& state, Call& call);
bool set_options(CommandState& state, Call& call);
bool trigger_still(CommandState& state, Call& call);
bool set_nv12_mode(CommandState& state, Call& call);
bool unlock_flash(CommandState& state, Call& call);
bool finish_unlock(CommandState& state, Call& call);
bool run_self_test(CommandState& state, Call& call);
bool set_gray_crop(CommandState& state, Call& call);
bool reset_gray_crop(CommandState& state, Call& call);
bool set_preview_mode(CommandState& state, Call& call);
bool set_nv12_size(CommandState& state, Call& call);

// Vendor requests.
bool list_faces(CommandState& state, Call& call);
bool set_face_parameters(CommandState& state, Call& call);
bool announce_download(CommandState& state, Call& call);
bool check_download(CommandState& state, Call& call);
bool burn_download(CommandState& state, Call& call);

}  // namespace virtcam::model::effects
