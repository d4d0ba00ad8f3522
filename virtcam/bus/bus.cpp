#include "virtcam/bus/bus.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <nlohmann/json.hpp>
#include <utility>

namespace virtcam::bus {
namespace {

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

nlohmann::json to_json(const std::vector<Complaint>& list) {
    nlohmann::json result = nlohmann::json::array();
    for (const auto& complaint : list) {
        result.push_back(
            {{"code", complaint.code}, {"text", complaint.text}, {"expected", complaint.expected}});
    }
    return result;
}

std::atomic<bool> made_once{false};

}  // namespace

bool Bus::started() {
    return made_once;
}

Bus& Bus::instance() {
    static Bus* const bus = [] {
        auto* made = new Bus;
        // Before static objects that the camera may use go; the report itself comes last of all.
        std::atexit([] { instance().stop_threads(); });
        made_once = true;
        return made;
    }();
    return *bus;
}

Bus::Bus()
    : status_path_(environment("VIRTBUS_STATUS")),
      process_(getpid()),
      camera_ticker_([this] { return drive_camera(); }),
      clock_ticker_([this] { return keep_clocks(); }),
      journal_(environment("VIRTBUS_TRACE"), environment("VIRTBUS_PCAP"),
               !environment("VIRTBUS_PCAP_PAYLOADS").empty()),
      port_(shared_, journal_, *this),
      handle_table_(shared_),
      devices_(shared_, handle_table_),
      contexts_(shared_, handle_table_, devices_, port_),
      channels_(shared_, journal_, port_, clock_ticker_),
      transfers_(shared_, handle_table_, port_, channels_),
      events_(shared_, port_, channels_, transfers_),
      claims_(shared_, handle_table_, port_, channels_),
      handles_(shared_, handle_table_, devices_, port_, transfers_, claims_, events_),
      synchronous_(shared_, handle_table_, transfers_, events_) {
    if (const std::string broken = start_configuration(); !broken.empty()) {
        std::fprintf(stderr, "virtbus: configuration: %s\n", broken.c_str());
        contexts_.refuse(broken);
        line::Config absent;
        absent.present = false;
        absent.listing.clear();
        port_.power_on(equip(std::move(absent)));
    }
    camera_ticker_.start();
    clock_ticker_.start();
}

std::string Bus::start_configuration() {
    try {
        port_.power_on(equip(line::Config::from_file(environment("VIRTBUS_CONFIG"))));
    } catch (const std::exception& error) {
        return error.what();
    }
    return "";
}

line::Equipment Bus::equip(line::Config config) {
    return line::equip(std::move(config), "virtbus", [this] { wake(); });
}

void Bus::wake() {
    camera_ticker_.poke();
    clock_ticker_.poke();
}

void Bus::reset(const nlohmann::json& configuration) {
    line::Equipment equipment = equip(line::Config::from_json(configuration));
    std::shared_ptr<model::Camera> old;  // destroyed without the lock: it may wait for a picture
    {
        const Hold hold(shared_.lock);
        const size_t open = contexts_.unreported();
        ++shared_.generation;
        old = port_.shared_camera();
        port_.power_on(std::move(equipment));
        contexts_.refuse("");
        channels_.reset();
        shared_.complaints.take();
        if (open != 0) {
            shared_.complaints.raise("reset_with_contexts",
                                     "reset: contexts still open: " + std::to_string(open));
        }
    }
    old->set_listener([] {});
    wake();
}

std::shared_ptr<model::Camera> Bus::camera() {
    const Hold hold(shared_.lock);
    return port_.shared_camera();
}

void Bus::add_rules(const nlohmann::json& rules) {
    {
        const Hold hold(shared_.lock);
        port_.rules().add(rules);
    }
    clock_ticker_.poke();
}

bool Bus::owned_by_this_process() const {
    return getpid() == process_;
}

void Bus::stop_threads() {
    if (owned_by_this_process()) {
        camera_ticker_.stop();
        clock_ticker_.stop();
    }
}

TimePoint Bus::drive_camera() {
    const auto present = camera();
    const TimePoint next = present->advance(model::Clock::now());
    const Hold hold(shared_.lock);
    port_.sync();
    channels_.serve_all();
    return next;
}

TimePoint Bus::keep_clocks() {
    const auto present = camera();
    const TimePoint next = present->advance_presence(model::Clock::now());
    const Hold hold(shared_.lock);
    const TimePoint rules_due = port_.run_due();
    port_.sync();
    channels_.serve_all();
    return std::min({next, rules_due, channels_.due()});
}

void Bus::camera_left(const std::shared_ptr<const DeviceInfo>& camera) {
    channels_.flush_all(faults::Status::kNoDevice);
    contexts_.camera_left(camera);
}

void Bus::camera_came(const std::shared_ptr<const DeviceInfo>& camera) {
    contexts_.camera_came(camera);
}

faults::Action Bus::begin_call(const char* name, std::optional<int> argument) {
    const Hold hold(shared_.lock);
    journal_.count_call(name);
    faults::Action action = port_.rules().on_call(name, argument);
    port_.run(action.device);
    port_.sync();
    return action;
}

void Bus::end_call(const char* name, std::optional<int> argument, int result) {
    const Hold hold(shared_.lock);
    journal_.note_call({name, argument, result, std::this_thread::get_id()});
    shared_.changed();
}

bool Bus::wait_until(const std::function<bool()>& predicate, std::chrono::milliseconds limit) {
    constexpr auto kPoll = std::chrono::milliseconds(10);  // for what the bus does not see change
    const TimePoint deadline = model::Clock::now() + limit;
    while (!predicate()) {
        const TimePoint now = model::Clock::now();
        if (now >= deadline) {
            return false;
        }
        Hold hold(shared_.lock);
        shared_.change.wait_until(hold, std::min(deadline, now + kPoll));
    }
    return true;
}

std::vector<Complaint> Bus::leaks() {
    const Hold hold(shared_.lock);
    std::vector<Complaint> leaks;
    contexts_.tell_leaks(leaks);
    handles_.tell_leaks(leaks);
    devices_.tell_leaks(leaks);
    transfers_.tell_leaks(leaks);
    return leaks;
}

nlohmann::json Bus::bus_status() {
    const auto leaked = leaks();
    const Hold hold(shared_.lock);
    const auto& info = port_.camera_info();
    const Listing& listing = port_.listing();
    return {{"attached", port_.attachment() != 0},
            {"attachment", port_.attachment()},
            {"address", info ? info->address : 0},
            {"configuration_error", contexts_.refusal()},
            {"listing", {{"path", listing.path()}, {"state", listing.state()}}},
            {"calls", journal_.call_counts()},
            {"transfers", journal_.transfer_counts()},
            {"strikes", port_.rules().strike_counts()},
            {"complaints", to_json(shared_.complaints.all())},
            {"leaks", to_json(leaked)}};
}

nlohmann::json Bus::status() {
    return {{"camera", camera()->status()}, {"bus", bus_status()}};
}

void Bus::write_status() {
    if (status_path_.empty()) {
        return;
    }
    const std::lock_guard one_at_a_time(status_mutex_);
    const std::string temporary = status_path_ + ".new";
    std::ofstream file(temporary, std::ios::trunc);
    file << status().dump(2) << '\n';
    file.close();
    if (!file || std::rename(temporary.c_str(), status_path_.c_str()) != 0) {
        std::fprintf(stderr, "virtbus: cannot write the status \"%s\"\n", status_path_.c_str());
    }
}

}  // namespace virtcam::bus
