#include "virtcam/bus/control.h"

#include <nlohmann/json.hpp>

#include "virtcam/bus/bus.h"
#include "virtcam/model/usb.h"

namespace virtcam::bus {
namespace {

Bus& bus() {
    return Bus::instance();
}

void change_presence(faults::DeviceAction action) {
    bus().locked([&](Bus& bus) { bus.port().run(action); });
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
    change_presence(faults::DeviceAction::kUnplug);
}

void plug() {
    change_presence(faults::DeviceAction::kPlug);
}

void power_cycle() {
    change_presence(faults::DeviceAction::kPowerCycle);
}

bool restarting() {
    return bus().locked([](Bus& bus) {
        const model::Camera& camera = bus.port().camera();
        const uint64_t seen = camera.attached() ? camera.attachment() : 0;
        return camera.restarting() || seen != bus.port().attachment();
    });
}

void add_fault(const nlohmann::json& rule) {
    bus().add_rules(rule);
}

void clear_faults() {
    bus().locked([](Bus& bus) { bus.port().rules().clear(); });
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
    return bus().locked([](Bus& bus) { return bus.journal().controls(); });
}

std::vector<CallRecord> call_log() {
    return bus().locked([](Bus& bus) { return bus.journal().calls(); });
}

std::map<std::string, uint64_t> call_counts() {
    return bus().locked([](Bus& bus) { return bus.journal().call_counts(); });
}

void clear_logs() {
    bus().locked([](Bus& bus) { bus.journal().clear_logs(); });
}

size_t pending(uint8_t endpoint) {
    return bus().locked([&](Bus& bus) { return bus.channels().pending(endpoint); });
}

std::optional<unsigned> last_timeout(uint8_t endpoint) {
    return bus().locked([&](Bus& bus) { return bus.channels().last_timeout(endpoint); });
}

nlohmann::json status_json() {
    return bus().status();
}

bool wait_until(const std::function<bool()>& predicate, std::chrono::milliseconds limit) {
    return bus().wait_until(predicate, limit);
}

void script_stream(bool on) {
    bus().locked([&](Bus& bus) { bus.channels().script(on); });
}

void push_bulk(TransferStatus status, std::vector<uint8_t> bytes,
               std::optional<int> actual_length) {
    line::Ending ending = line::ended(to_status(status));
    ending.count = static_cast<size_t>(actual_length.value_or(static_cast<int>(bytes.size())));
    ending.data = std::move(bytes);
    bus().locked(
        [&](Bus& bus) { bus.channels().push(model::usb::kEndpointVideo, std::move(ending)); });
}

void push_iso(std::vector<IsoPacket> packets, TransferStatus status) {
    line::Ending ending = line::ended(to_status(status));
    for (IsoPacket& packet : packets) {
        const size_t count =
            packet.actual_length.value_or(static_cast<unsigned>(packet.bytes.size()));
        ending.packets.push_back({to_status(packet.status), std::move(packet.bytes), count});
    }
    bus().locked(
        [&](Bus& bus) { bus.channels().push(model::usb::kEndpointAudio, std::move(ending)); });
}

void hold_completions(uint8_t endpoint) {
    bus().locked([&](Bus& bus) { bus.channels().hold(endpoint); });
}

void release_completions(uint8_t endpoint) {
    bus().locked([&](Bus& bus) { bus.channels().release(endpoint); });
}

}  // namespace virtcam::bus
