// What a scripted failure does to the call, request or transfer that it hits.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace virtcam::faults {

/// Ending of a transfer or of one isochronous packet. The values are those of
/// libusb_transfer_status, so that a libusb front end converts by cast.
enum class Status {
    kCompleted = 0,
    kError = 1,
    kTimedOut = 2,
    kCancelled = 3,
    kStall = 4,
    kNoDevice = 5,
    kOverflow = 6,
};

/// Change of presence that a rule causes besides, or instead of, a failure.
enum class DeviceAction { kUnplug, kPlug, kPowerCycle };

/// Lets it happen to a camera of any front end.
template <typename Camera>
void perform(DeviceAction action, Camera& camera) {
    switch (action) {
        case DeviceAction::kUnplug:
            camera.unplug();
            break;
        case DeviceAction::kPlug:
            camera.plug();
            break;
        case DeviceAction::kPowerCycle:
            camera.power_cycle();
            break;
    }
}

/// How a request that is to time out does so.
enum class TimeOut {
    kNone,
    kWait,  ///< stays pending until its own time-out (or until it is cancelled)
    kNow,   ///< is reported as timed out at once
};

/// Byte of the transferred data that arrives changed: data[offset] ^= mask.
struct Corruption {
    size_t offset = 0;
    uint8_t mask = 0xFF;
};

/// Bytes that arrive in place of others from `offset` on; what there is no room for is left out.
struct Overwriting {
    size_t offset = 0;
    std::vector<uint8_t> bytes;
};

/// Change of a video payload's header: its length, and bits of bmHeaderInfo.
struct HeaderChange {
    std::optional<uint8_t> length;
    uint8_t clear = 0;
    uint8_t set = 0;
    uint8_t toggle = 0;
};

/// Change of one number in the header of a sub-stream.
struct FieldChange {
    size_t offset = 0;  ///< in that header, bytes
    size_t width = 0;   ///< bytes
    uint32_t value = 0;
    bool add = false;  ///< to what is there; else in its place
};

/// What becomes of an answer that is as it should be.
enum class Fate {
    kArrives,
    kLost,     ///< the request gets the next one
    kTwice,    ///< it arrives, and again for the next request
    kSwapped,  ///< it changes places with the next one
};

/// Change of one packet of an isochronous transfer.
struct PacketChange {
    size_t index = 0;
    std::optional<Status> status;
    std::optional<size_t> length;  ///< actual_length reported for the packet
};

/// Union of everything that the rules due at one point ask for.
struct Action {
    std::optional<int> result;            ///< "return": code that the call reports
    bool null_result = false;             ///< "null": the pointer that the call yields is null
    bool stall = false;                   ///< "stall": refused, the device does not see it
    std::optional<Status> status;         ///< "status": ending of the transfer
    std::optional<size_t> short_to;       ///< "short": at most so many bytes arrive
    std::optional<size_t> actual_length;  ///< "actual_length": count reported, whatever arrived
    std::optional<std::vector<uint8_t>> reply;      ///< "reply": bytes in place of the device's
    std::optional<std::chrono::milliseconds> late;  ///< "late_ms": delay of the completion
    TimeOut time_out = TimeOut::kNone;              ///< "timeout": "wait" or "now"
    std::vector<Corruption> corruptions;            ///< "corrupt"
    std::vector<PacketChange> packets;              ///< "packets"
    Fate fate = Fate::kArrives;                     ///< "lose", "double", "swap"
    std::vector<HeaderChange> headers;              ///< "header"
    std::vector<Overwriting> overwritings;          ///< "overwrite"
    size_t appended = 0;                            ///< "append": bytes
    std::vector<FieldChange> fields;                ///< "fields"
    std::vector<DeviceAction> device;               ///< "unplug", "plug", "power_cycle"

    /// Takes from `other` what this action leaves open; device actions are appended.
    void merge(const Action& other);
};

}  // namespace virtcam::faults
