// Test control of the virtual bus: configuration, faults, scripted streams and what was observed.
//
// Exported by the substitute libusb-1.0.so.0 itself, so that a test steers the very bus that the
// plug-in under test uses. All functions may be called from any thread, and from completion
// callbacks unless said otherwise. Configurations and rules are described in docs/virtual-bus.md.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "virtcam/bus/records.h"
#include "virtcam/model/camera.h"

namespace virtcam::bus {

// --- life cycle ----------------------------------------------------------------------------------

/// A fresh camera and bus: new attachment, no faults, empty logs, counters at 0, transfers in
/// flight end with 'no device'. What is still open stays usable and is no leak of the fresh bus;
/// contexts that no call of leaks() has reported are complained of. Not from a completion callback.
/// Throws std::invalid_argument when the configuration is malformed; nothing changes then.
void reset(const nlohmann::json& configuration);

/// The camera on the bus; valid until the next reset().
model::Camera& camera();

void unplug();       ///< has taken full effect on return: transfers ended, listing written
void plug();         ///< likewise
void power_cycle();  ///< likewise; a departure and an arrival

/// True from a burn of firmware until the camera that restarts is back and listed.
bool restarting();

// --- faults --------------------------------------------------------------------------------------

/// Adds one rule, or a list of rules. Throws std::invalid_argument when malformed.
void add_fault(const nlohmann::json& rule);
void clear_faults();

// --- observation ---------------------------------------------------------------------------------

std::vector<Complaint> complaints();
/// Returns the complaints and forgets them.
std::vector<Complaint> take_complaints();
/// What would be complained of as leaked if the process ended now.
std::vector<Complaint> leaks();
std::vector<ControlRecord> control_log();
std::vector<CallRecord> call_log();
/// Calls of each function since the start.
std::map<std::string, uint64_t> call_counts();
/// Forgets control_log() and call_log().
void clear_logs();
/// Transfers of the program in flight on an endpoint, as the device sees them.
size_t pending(uint8_t endpoint);
/// Time-out in ms of the transfer submitted last on an endpoint; nothing before any.
std::optional<unsigned> last_timeout(uint8_t endpoint);
/// The status document (docs/virtual-bus.md, "Status").
nlohmann::json status_json();

/// Waits until `predicate` holds; evaluates it after each change of the bus and at least every
/// 10 ms. Returns its last value; at most `limit` passes.
bool wait_until(const std::function<bool()>& predicate, std::chrono::milliseconds limit);

// --- scripted streams and order of events --------------------------------------------------------

/// While on, bulk IN 0x81 and isochronous IN 0x82 deliver only what is pushed; switching it changes
/// nothing for transfers that are already complete and drops what was pushed and not delivered.
void script_stream(bool on);
/// Ends the next transfer on 0x81, now or when it is submitted. `actual_length` overrides the count
/// that the program sees.
void push_bulk(TransferStatus status, std::vector<uint8_t> bytes,
               std::optional<int> actual_length = std::nullopt);
/// Ends the next transfer on 0x82 likewise; packets that are not given are empty.
void push_iso(std::vector<IsoPacket> packets, TransferStatus status = TransferStatus::kCompleted);

/// Keeps back the completions of an endpoint (0: control): finished transfers are not handed to
/// event handling until release_completions(). Time-outs and cancellations are kept back too.
void hold_completions(uint8_t endpoint);
void release_completions(uint8_t endpoint);

}  // namespace virtcam::bus
