// What the devices of the measuring bus send, and what was seen of it.
//
// The bus takes libusb-1.0.so.0's place. It has three devices: the camera for the plug-in, and plain
// UVC cameras for libuvc and for a bare client. All send the same frames as fast as memory allows or
// at a set rate. A completion is made inside the event handling of the program under test, on its
// event thread, as libusb makes them. It costs as little as can be: the data of a payload lies in the
// transfer's buffer from its first submission on, only headers and stamps are written, so what is
// measured is the program under test.
#pragma once

#include <sys/time.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace bench {

enum class Side { kPlugin, kLibuvc, kBare };
constexpr int kSides = 3;

/// What every payload is, apart from its place in a frame.
enum class PayloadKind {
    kFrames,      ///< frames, one after the other
    kHeaderOnly,  ///< a header without data, no end of frame
    kErrorBit,    ///< data under a header with the error bit
    kBadHeader,   ///< an end of frame under a header that says 16 bytes
};

struct Traffic {
    uint32_t frame_bytes = 0;      ///< the multiplexed header of 32 bytes included
    uint64_t frames = UINT64_MAX;  ///< how many; none after them
    int substreams = 1;            ///< how many headers of 32 bytes share a frame, 1 to 7
    bool header_only_end = true;   ///< a frame ends with a payload of its own, else with its last
    PayloadKind kind = PayloadKind::kFrames;
    /// Closed loop: the end of frame k waits until frame k - window has been delivered, and once it
    /// has had to wait, until all have been: the device sends bursts of `window` frames. 0: it never
    /// waits.
    uint64_t window = 0;
    double frames_per_second = 0;  ///< 0: as fast as they are taken
    bool spin = false;             ///< the event thread spins for the next payload, not sleeps
    int event_cpu = -1;            ///< where the event thread goes; -1: anywhere
};

/// The payload size that the devices negotiate from now on, header included, in bytes.
void set_payload_bytes(uint32_t bytes);
uint32_t payload_bytes();
/// The identities of the plain devices.
constexpr uint16_t kPlainVendor = 0x1209, kLibuvcProduct = 0x0001, kBareProduct = 0x0002;

/// Starts sending; what was sent before is over. The counts begin anew.
void send(Side side, const Traffic& traffic);
/// Stops sending; returns when no payload is on its way any more.
void pause(Side side);

/// The consumer has taken a frame; opens the closed loop. Any thread.
void delivered(Side side);
uint64_t delivered_count(Side side);
/// Frames whose last payload has been handed over.
uint64_t sent_count(Side side);
/// When the last payload of frame `number` was handed over (of the last 4096 frames), in
/// nanoseconds of CLOCK_MONOTONIC.
uint64_t ended_at(Side side, uint64_t number);
/// CPU clock of the event thread: that of the thread that handled the newest payload.
clockid_t event_clock(Side side);

/// Isochronous packets come `length` bytes long, ten to a transfer; 0: none come. A transfer every
/// 10 ms, or one in each event round.
void set_sound(unsigned length, bool paced);

uint64_t now_ns();

/// The number of a frame is written into its multiplexed header (offset 12) and over its last
/// eight bytes. Bytes of the two headers before a frame's data:
constexpr uint32_t kPayloadHeader = 12;
constexpr uint32_t kFrameHeader = 32;
constexpr uint32_t kSequenceOffset = 12;

}  // namespace bench
