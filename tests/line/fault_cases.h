// What each member of a fault rule means to a host. One list of cases; every front end of the camera
// runs it (FaultMeaning in its own test program) and must show its host the same.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <ostream>
#include <string>
#include <vector>

#include "virtcam/faults/action.h"

namespace virtcam::line::test {

using virtcam::faults::Status;
using Bytes = std::vector<uint8_t>;

/// What a host asks in a case, of a camera that was switched on for it.
enum class Question {
    kGetVolume,  ///< control, IN: two bytes of the microphone's feature unit
    kSetVolume,  ///< control, OUT: likewise
    kPicture,    ///< bulk IN with room for 16 KiB, of a stream just started
    kDownload,   ///< bulk OUT of 16 bytes
    kSound,      ///< three isochronous packets
};

struct PacketSeen {
    Status status = Status::kCompleted;
    Bytes data;

    bool operator==(const PacketSeen&) const = default;
};

/// What the host has of it, in no front end's words.
struct Seen {
    bool answered = true;  ///< before it gave up
    Status status = Status::kCompleted;
    Bytes data;        ///< IN: as many bytes as were counted
    size_t count = 0;  ///< bytes moved; 0 for isochronous requests
    std::vector<PacketSeen> packets;
    bool reached_device = true;  ///< control only
    bool on_the_bus = true;      ///< afterwards
};
bool operator==(const Seen& a, const Seen& b);
std::ostream& operator<<(std::ostream& stream, const Seen& seen);

/// One camera behind one front end, switched on by the constructor.
class FrontEnd {
  public:
    virtual ~FrontEnd() = default;

    virtual void add_rule(const nlohmann::json& rule) = 0;
    /// Puts a question once. The host waits for `patience`, then gives up.
    virtual Seen ask(Question question, std::chrono::milliseconds patience) = 0;
    /// Between question and answer of the last ask(), by the front end's clock.
    virtual std::chrono::milliseconds waited() const = 0;
};

/// Defined by each test program. `boot_code`: the camera waits for its firmware.
std::unique_ptr<FrontEnd> make_front_end(bool boot_code);

struct FaultCase {
    std::string name;
    Question question;
    nlohmann::json action;
    std::function<void(Seen&)> change;  ///< of what a camera without faults shows
    std::chrono::milliseconds late{0};
};

inline std::ostream& operator<<(std::ostream& stream, const FaultCase& fault) {
    return stream << fault.action;
}

const std::vector<FaultCase>& fault_cases();

}  // namespace virtcam::line::test
