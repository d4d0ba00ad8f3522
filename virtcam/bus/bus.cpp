#include "virtcam/bus/bus.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>

namespace virtcam::bus {
namespace {

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

/// Old entries go when a log reaches this length, so that a long run does not eat the memory.
constexpr size_t kCallLogLimit = 100'000;

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
      trace_(environment("VIRTBUS_TRACE")),
      process_(getpid()) {
    broken_ = start_configuration();
    if (!broken_.empty()) {
        std::fprintf(stderr, "virtbus: configuration: %s\n", broken_.c_str());
        line::Config absent;
        absent.present = false;
        absent.listing.clear();
        power_on(prepare(std::move(absent)));
    }
    camera_ticker_ = std::make_unique<line::Ticker>([this] { return drive_camera(); });
    clock_ticker_ = std::make_unique<line::Ticker>([this] { return keep_clocks(); });
    camera_ticker_->start();
    clock_ticker_->start();
}

std::string Bus::start_configuration() {
    try {
        power_on(prepare(line::Config::from_file(environment("VIRTBUS_CONFIG"))));
    } catch (const std::exception& error) {
        return error.what();
    }
    return "";
}

Bus::Start Bus::prepare(line::Config config) {
    Start start;
    start.rules.add(config.rules);
    start.camera = std::make_shared<model::Camera>(config.camera);
    if (!config.present) {
        start.camera->unplug();
    }
    start.camera->set_listener([this] {
        if (camera_ticker_ && clock_ticker_) {
            camera_ticker_->poke();
            clock_ticker_->poke();
        }
    });
    start.camera->set_failure_listener([](const std::string& why) {
        std::fprintf(stderr, "virtbus: the camera cannot make pictures: %s\n", why.c_str());
    });
    start.config = std::move(config);
    return start;
}

void Bus::power_on(Start start) {
    config_ = std::move(start.config);
    rules_ = std::move(start.rules);
    camera_ = std::move(start.camera);
    complaints_.set_quiet(config_.quiet);
    listing_.move_to(config_.listing);
    started_ = std::chrono::steady_clock::now();
    fixed_devices_ = make_fixed_devices(config_.other_devices);
    last_address_ = static_cast<uint8_t>(fixed_devices_.size());
    write_listing();
    sync_presence();
}

void Bus::reset(const nlohmann::json& configuration) {
    Start start = prepare(line::Config::from_json(configuration));
    std::shared_ptr<model::Camera> old;  // destroyed without the lock: it may wait for a picture
    {
        const std::lock_guard lock(mutex_);
        const auto open = std::count_if(contexts_.begin(), contexts_.end(), [&](const auto& entry) {
            return entry.second->generation == generation_ && !entry.second->leak_reported;
        });
        ++generation_;
        old = camera_;
        if (attachment_ != 0) {
            depart();
        }
        power_on(std::move(start));
        broken_.clear();
        scripted_ = false;
        for (auto& [address, channel] : channels_) {
            channel.hold = false;
            for (Urb* urb : std::exchange(channel.held, {})) {
                publish(*urb);
            }
        }
        channels_.clear();
        complaints_.take();
        control_log_first_ += control_log_.size();
        control_log_.clear();
        call_log_.clear();
        call_counts_.clear();
        transfer_counts_.clear();
        if (open != 0) {
            complaints_.raise("reset_with_contexts",
                              "reset: contexts still open: " + std::to_string(open));
        }
    }
    old->set_listener([] {});
    camera_ticker_->poke();
    clock_ticker_->poke();
}

std::shared_ptr<model::Camera> Bus::camera() {
    const std::lock_guard lock(mutex_);
    return camera_;
}

bool Bus::owned_by_this_process() const {
    return getpid() == process_;
}

void Bus::stop_threads() {
    if (!owned_by_this_process()) {
        return;
    }
    camera_ticker_->stop();
    clock_ticker_->stop();
}

TimePoint Bus::drive_camera() {
    const auto present = camera();
    const TimePoint next = present->advance(std::chrono::steady_clock::now());
    const std::lock_guard lock(mutex_);
    sync_presence();
    serve_all();
    return next;
}

TimePoint Bus::keep_clocks() {
    const std::lock_guard lock(mutex_);
    clocks_wake_ = TimePoint::min();  // this thread need not be woken while it is at it
    run_actions(rules_.take_due(elapsed()));
    sync_presence();
    serve_all();
    TimePoint next = TimePoint::max();
    for (const auto& [address, channel] : channels_) {
        next = std::min(next, channel.endpoint.due().value_or(next));
    }
    if (const auto due = rules_.next_due()) {
        next = std::min(next, started_ + *due);
    }
    clocks_wake_ = next;
    return next;
}

std::chrono::milliseconds Bus::elapsed() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                 started_);
}

faults::Action Bus::begin_call(const char* name, std::optional<int> argument) {
    const std::lock_guard lock(mutex_);
    if (const auto found = call_counts_.find(std::string_view(name)); found != call_counts_.end()) {
        ++found->second;
    } else {
        call_counts_.emplace(name, 1);
    }
    faults::Action action;
    if (!rules_.empty()) {
        action = rules_.on_call(name, argument);
        run_actions(action.device);
    }
    sync_presence();
    return action;
}

void Bus::end_call(const char* name, std::optional<int> argument, int result) {
    const std::lock_guard lock(mutex_);
    if (call_log_.size() == kCallLogLimit) {
        call_log_.pop_front();
    }
    call_log_.push_back({name, argument, result, std::this_thread::get_id()});
    changed();
}

void Bus::add_rules(const nlohmann::json& rules) {
    {
        const std::lock_guard lock(mutex_);
        rules_.add(rules);
    }
    clock_ticker_->poke();
}

void Bus::clear_rules() {
    const std::lock_guard lock(mutex_);
    rules_.clear();
}

void Bus::change_presence(faults::DeviceAction action) {
    const std::lock_guard lock(mutex_);
    run_actions({action});
}

void Bus::run_actions(const std::vector<faults::DeviceAction>& actions) {
    for (const auto action : actions) {
        faults::perform(action, *camera_);
        sync_presence();
    }
}

void Bus::sync_presence() {
    const uint64_t now = camera_->attached() ? camera_->attachment() : 0;
    if (now == attachment_) {
        return;
    }
    if (attachment_ != 0) {
        depart();
    }
    if (now != 0) {
        attachment_ = now;
        arrive();
    }
    changed();
}

void Bus::depart() {
    attachment_ = 0;
    for (auto& [address, channel] : channels_) {
        finish_all(channel, faults::Status::kNoDevice);
    }
    interfaces_ = InterfaceTable();
    camera_config_.reset();
    for (auto& [key, context] : contexts_) {
        const auto found =
            std::find_if(context->devices.begin(), context->devices.end(),
                         [&](const auto* device) { return device->info == camera_info_; });
        if (found != context->devices.end()) {
            libusb_device* const device = *found;
            context->devices.erase(found);
            device->attached = false;
            drop_reference(device);
        }
    }
    camera_info_.reset();
    write_listing();
}

void Bus::arrive() {
    camera_info_ = describe_camera();
    camera_config_ = ConfigDescriptor::parse(camera_info_->config_bytes);
    if (camera_config_) {
        interfaces_ = InterfaceTable(**camera_config_, config_.kernel_drivers);
        configure_camera();
    }
    for (auto& [key, context] : contexts_) {
        add_device(*context, camera_info_);
    }
    write_listing();
}

}  // namespace virtcam::bus
