#include "virtcam/bus/control.h"

#include <nlohmann/json.hpp>

#include "virtcam/bus/bus.h"

namespace virtcam::bus {
namespace {

constexpr uint8_t kVideoEndpoint = 0x81;
constexpr uint8_t kAudioEndpoint = 0x82;

Bus& bus() {
    return Bus::instance();
}

faults::Status to_status(TransferStatus status) {
    return static_cast<faults::Status>(status);
}

}  // namespace

void reset(const nlohmann::json& configuration) {
    bus().reset(configuration);
}

model::Camera& camera() {
    return *bus().camera();
}

void unplug() {
    bus().change_presence(faults::DeviceAction::kUnplug);
}

void plug() {
    bus().change_presence(faults::DeviceAction::kPlug);
}

void power_cycle() {
    bus().change_presence(faults::DeviceAction::kPowerCycle);
}

void add_fault(const nlohmann::json& rule) {
    bus().add_rules(rule);
}

void clear_faults() {
    bus().clear_rules();
}

std::vector<Complaint> complaints() {
    return bus().complaints().all();
}

std::vector<Complaint> take_complaints() {
    return bus().complaints().take();
}

std::vector<Complaint> leaks() {
    return bus().leaks();
}

std::vector<ControlRecord> control_log() {
    return bus().control_log();
}

std::vector<CallRecord> call_log() {
    return bus().call_log();
}

std::map<std::string, uint64_t> call_counts() {
    return bus().call_counts();
}

void clear_logs() {
    bus().clear_logs();
}

size_t pending(uint8_t endpoint) {
    return bus().pending(endpoint);
}

std::optional<unsigned> last_timeout(uint8_t endpoint) {
    return bus().last_timeout(endpoint);
}

nlohmann::json status_json() {
    return bus().status();
}

bool wait_until(const std::function<bool()>& predicate, std::chrono::milliseconds limit) {
    return bus().wait_until(predicate, limit);
}

void script_stream(bool on) {
    bus().script_stream(on);
}

void push_bulk(TransferStatus status, std::vector<uint8_t> bytes,
               std::optional<int> actual_length) {
    line::Ending ending = line::ended(to_status(status));
    ending.count = static_cast<size_t>(actual_length.value_or(static_cast<int>(bytes.size())));
    ending.data = std::move(bytes);
    bus().push(kVideoEndpoint, std::move(ending));
}

void push_iso(std::vector<IsoPacket> packets, TransferStatus status) {
    line::Ending ending = line::ended(to_status(status));
    for (IsoPacket& packet : packets) {
        const size_t count =
            packet.actual_length.value_or(static_cast<unsigned>(packet.bytes.size()));
        ending.packets.push_back({to_status(packet.status), std::move(packet.bytes), count});
    }
    bus().push(kAudioEndpoint, std::move(ending));
}

void hold_completions(uint8_t endpoint) {
    bus().hold(endpoint);
}

void release_completions(uint8_t endpoint) {
    bus().release_held(endpoint);
}

}  // namespace virtcam::bus
