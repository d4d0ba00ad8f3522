// The device between two power losses: all volatile state, the answers to control transfers, the
// video stream's clock and the endpoints' data.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <set>
#include <string>

#include "virtcam/model/bytes.h"
#include "virtcam/model/camera_config.h"
#include "virtcam/model/clock.h"
#include "virtcam/model/command_state.h"
#include "virtcam/model/descriptors.h"
#include "virtcam/model/extension_unit.h"
#include "virtcam/model/firmware.h"
#include "virtcam/model/microphone.h"
#include "virtcam/model/payload_queue.h"
#include "virtcam/model/probe_commit.h"
#include "virtcam/model/scene.h"
#include "virtcam/model/settings.h"
#include "virtcam/model/setup.h"
#include "virtcam/model/stream_producer.h"
#include "virtcam/model/uvc_controls.h"

namespace virtcam::model {

/// Not thread-safe; the camera's state lock protects it.
class Device {
  public:
    /// `firmware` outlives the device: flash keeps its content without power.
    Device(const CameraConfig& config, Personality personality, Firmware& firmware);
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    ControlReply control(const Setup& setup, ByteView out);
    bool bulk_out(uint8_t endpoint, ByteView data);
    std::optional<Bytes> bulk_in(uint8_t endpoint, size_t room, TimePoint now);
    Bytes iso_in(uint8_t endpoint, size_t room);
    void bus_reset();
    /// Every transfer on the endpoint is refused until the host clears it.
    void halt(uint8_t endpoint) { halted_.insert(endpoint); }
    bool halted(uint8_t endpoint) const { return halted_.count(endpoint) != 0; }

    /// True once after a burn.
    bool take_burned();

    /// The frame to make now, if one is due: hand it to the producer, then call publish().
    std::optional<PictureJob> next_job(TimePoint now);
    /// Queues a frame for the host unless its stream has ended meanwhile. True when queued.
    bool publish(uint64_t generation, FinishedFrame&& frame);
    /// Ends the stream `generation` because no more pictures can be made.
    void abandon(uint64_t generation);
    /// When next_job() is to be asked again.
    TimePoint next_wake(TimePoint now) const;

    Personality personality() const { return personality_; }
    /// Adds what the device knows about itself to the status object.
    void report(nlohmann::json& status) const;

  private:
    // Dispatch (device_control.cpp). Nothing means stall.
    using Answer = std::optional<Bytes>;
    Answer standard_request(const Setup& setup);
    Answer get_descriptor(const Setup& setup) const;
    Answer set_interface(const Setup& setup);
    Answer get_status(const Setup& setup) const;
    Answer clear_feature(const Setup& setup);
    Answer set_feature(const Setup& setup);
    Answer class_request(const Setup& setup, ByteView out);
    Answer entity_request(const Setup& setup, ByteView out);
    Answer audio_request(const Setup& setup, ByteView out);
    Answer video_request(const Setup& setup, ByteView out);
    uint8_t error_of(const Setup& setup) const;
    Answer streaming_request(const Setup& setup, ByteView out);
    Answer extension_request(const Setup& setup, ByteView out);
    Answer vendor_request(const Setup& setup, ByteView out);

    uint32_t device_clock(TimePoint now) const;
    void start_stream(const StreamParameters& parameters);
    void stop_stream();
    void advance_scene(uint64_t ticks);
    std::optional<double> lamp() const;
    void note_delay(Clock::duration delay);
    bool detects_faces() const;
    void look_for_faces();

    const CameraConfig& config_;
    Personality personality_;
    CommandState state_;
    UvcControls controls_;
    ExtensionUnit extension_;
    ProbeCommit negotiation_;
    Microphone microphone_;
    PayloadQueue queue_;

    uint8_t configuration_ = 0;
    uint8_t audio_alternate_ = 0;
    uint8_t request_error_ = 0;  ///< of the last request to the video function
    std::set<uint8_t> halted_;   ///< addresses of endpoints

    // Video stream.
    bool streaming_ = false;
    uint64_t generation_ = 0;  ///< number of commits
    StreamParameters stream_;
    bool first_frame_ = false;
    TimePoint clock_zero_;               ///< when the device clock of the stream began
    uint64_t waiting_ticks_ = 0;         ///< clock periods since the last frame was made
    std::optional<TimePoint> next_due_;  ///< unset until the first advance after the start
    TimePoint taken_;                    ///< when the picture was taken that is under way
    Clock::duration delay_{};            ///< from there until the host has it, of late

    // The scene goes on while the stream runs, and while a face is tracked without one.
    uint64_t scene_tick_ = 0;
    std::optional<uint64_t> face_tick_;  ///< scene position of the reported face
    std::optional<TimePoint> idle_due_;
};

}  // namespace virtcam::model
