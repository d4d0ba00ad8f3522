// What libusb's opaque pointers point to, and the bus's own record of each transfer.
// Unless said otherwise every member is guarded by the lock (shared.h).
#pragma once

#include <libusb-1.0/libusb.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "virtcam/bus/descriptors.h"
#include "virtcam/line/ending.h"
#include "virtcam/line/request.h"
#include "virtcam/model/clock.h"

namespace virtcam::bus {

using model::TimePoint;

/// A device as it stands on the bus during one attachment; immutable.
struct DeviceInfo {
    enum class Kind { kRootHub, kOther, kCamera };

    Kind kind = Kind::kOther;
    uint8_t address = 0;
    uint8_t port = 0;  ///< 0: root hub
    std::vector<uint8_t> device_bytes;
    std::vector<uint8_t> config_bytes;
    std::string manufacturer;  ///< UTF-8 texts for the bus listing
    std::string product;
    std::string serial;
};

constexpr uint8_t kBusNumber = 1;

/// The bus's side of a libusb_transfer; what it asks of the camera is set at each submission.
struct Urb : line::Request {
    enum class State {
        kIdle,     ///< the program's
        kPending,  ///< waits on its endpoint
        kDone,     ///< ended, waits for event handling
    };

    libusb_transfer* transfer = nullptr;  ///< allocated with calloc, owned
    int packet_capacity = 0;
    bool internal = false;  ///< made by a synchronous call
    unsigned generation = 0;
    State state = State::kIdle;
    libusb_device_handle* handle = nullptr;  ///< of the last submission; null once closed
    std::optional<TimePoint> expires;
    std::optional<uint64_t> control_record;  ///< number of its entry in the control log
    line::Ending ending;                     ///< kept until event handling hands it over

    ~Urb();
    Urb() = default;
    Urb(const Urb&) = delete;
    Urb& operator=(const Urb&) = delete;
};

}  // namespace virtcam::bus

struct libusb_device {
    libusb_context* context = nullptr;  ///< null once the context was exited
    std::shared_ptr<const virtcam::bus::DeviceInfo> info;
    int references = 0;  ///< the context's own included, while the device is attached
    bool attached = true;
    unsigned generation = 0;  ///< of the bus: counts its resets
};

struct libusb_device_handle {
    libusb_context* context = nullptr;
    libusb_device* device = nullptr;  ///< referenced
    bool auto_detach = false;
    unsigned generation = 0;
    bool poisoned = false;  ///< closing it aborts libusb 1.0.26, see Claims::set_alt_setting
};

struct libusb_context {
    int references = 1;  ///< above 1 for the default context only
    unsigned generation = 0;
    bool leak_reported = false;                ///< a caller of leaks() knows that it is open
    std::vector<libusb_device*> devices;       ///< attached ones, in listing order; each referenced
    std::deque<virtcam::bus::Urb*> completed;  ///< ready for event handling
    std::condition_variable wake;              ///< waits with the lock
    bool interrupted = false;
    bool handler_active = false;
    int closing = 0;     ///< threads in libusb_close that want the event lock
    std::mutex events;   ///< held by the thread that handles events; taken before the lock
    std::mutex waiters;  ///< for `waiters_wake`; taken before the lock
    std::condition_variable waiters_wake;
};
