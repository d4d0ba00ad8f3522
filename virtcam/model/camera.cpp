#include "virtcam/model/camera.h"

#include <deque>
#include <exception>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <utility>

#include "virtcam/model/describe.h"
#include "virtcam/model/device.h"
#include "virtcam/model/presence.h"
#include "virtcam/model/stream_producer.h"
#include "virtcam/model/usb.h"

namespace virtcam::model {
namespace {

// Bounds the record of a camera that runs for days; a download of 1 MiB in pieces fits.
constexpr size_t kMostCommands = 1 << 17;
// Commands that the status shows, newest first dropped last.
constexpr size_t kStatusCommands = 4096;

struct StreamStatistics {
    uint64_t pictures = 0;
    uint64_t bytes = 0;
    uint64_t key_frames = 0;
    uint32_t last_sequence = 0;
};

bool is_recorded(const Setup& setup) {
    return (setup.request_type & usb::kTypeMask) != usb::kTypeStandard;
}

bool is_download_piece(const Setup& setup) {
    return (setup.request_type & usb::kTypeMask) == usb::kTypeClass &&
           setup.index == usb::kEntityExtensionUnit << 8 && setup.value == usb::kFirmwareData << 8;
}

std::string hex(ByteView bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const uint8_t byte : bytes) {
        text += {kDigits[byte >> 4], kDigits[byte & 0xF]};
    }
    return text;
}

}  // namespace

struct Camera::Impl {
    explicit Impl(const CameraConfig& given)
        : config(given),
          producer(config),
          presence(config),
          device(std::make_unique<Device>(config, presence.personality(), firmware)) {}

    const CameraConfig config;

    // Serialises advance(); taken before `mutex`. Holds while pictures are made.
    std::mutex work;
    StreamProducer producer;

    // Protects all that follows; never held while pictures are made or the listener runs.
    mutable std::mutex mutex;
    Presence presence;
    Firmware firmware;
    std::unique_ptr<Device> device;
    std::deque<CommandRecord> commands;
    uint64_t command_count = 0;
    uint64_t frames = 0;
    std::map<StreamId, StreamStatistics> statistics;
    std::string failure;
    std::function<void()> listener;
    std::function<void(const std::string&)> failure_listener;

    void replace_device() {
        device = std::make_unique<Device>(config, presence.personality(), firmware);
    }

    void record(const Setup& setup, ByteView out, const ControlReply& reply) {
        CommandRecord entry{Clock::now(), setup, {}, reply.stall};
        entry.data = setup.device_to_host() ? reply.data : Bytes(out.begin(), out.end());
        commands.push_back(std::move(entry));
        ++command_count;
        if (commands.size() > kMostCommands) {
            commands.pop_front();
        }
    }

    void count(const FinishedFrame& frame) {
        ++frames;
        for (const SentPicture& picture : frame.pictures) {
            StreamStatistics& entry = statistics[picture.id];
            ++entry.pictures;
            entry.bytes += picture.bytes;
            entry.key_frames += picture.key_frame ? 1 : 0;
            entry.last_sequence = picture.sequence;
        }
    }

    /// True when presence changed.
    bool advance_presence(TimePoint now) {
        const Presence::Change change = presence.advance(now);
        if (change.arrived) {
            replace_device();
        }
        return change.departed || change.arrived;
    }

    /// Returns why none could be made, when that is news.
    std::string make_frame(const PictureJob& job, uint64_t attachment) {
        std::optional<FinishedFrame> frame;
        std::string problem;
        try {
            frame = producer.make(job);
        } catch (const std::exception& error) {
            problem = error.what();
        }
        const std::lock_guard lock(mutex);
        if (attachment != presence.attachment() || !presence.attached()) {
            return "";
        }
        if (!problem.empty()) {
            device->abandon(job.generation);
            return std::exchange(failure, problem) == problem ? "" : problem;
        }
        if (frame) {
            const FinishedFrame summary{{}, frame->pts, frame->pictures};
            if (device->publish(job.generation, std::move(*frame))) {
                count(summary);
            }
        }
        return "";
    }

    TimePoint next_wake(TimePoint now) const {
        const std::lock_guard lock(mutex);
        const TimePoint presence_time = presence.next(now);
        return presence.attached() ? std::min(presence_time, device->next_wake(now))
                                   : presence_time;
    }

    void notify() const {
        std::function<void()> call;
        {
            const std::lock_guard lock(mutex);
            call = listener;
        }
        if (call) {
            call();
        }
    }

    void tell_failure(const std::string& why) const {
        std::function<void(const std::string&)> call;
        {
            const std::lock_guard lock(mutex);
            call = failure_listener;
        }
        if (call) {
            call(why);
        }
    }

    nlohmann::json stream_report() const {
        nlohmann::json streams = nlohmann::json::object();
        for (const auto& [id, entry] : statistics) {
            streams[std::string(stream_name(id))] = {{"pictures", entry.pictures},
                                                     {"bytes", entry.bytes},
                                                     {"key_frames", entry.key_frames},
                                                     {"last_sequence", entry.last_sequence}};
        }
        return streams;
    }

    nlohmann::json flash_report() const {
        const Bytes image = firmware.flash().value_or(Bytes{});
        return {{"written", firmware.flash().has_value()},
                {"size", image.size()},
                {"checksum", image_checksum(image)},
                {"version", hex(image_version(image))}};
    }

    nlohmann::json command_report() const {
        nlohmann::json list = nlohmann::json::array();
        const size_t skipped =
            commands.size() > kStatusCommands ? commands.size() - kStatusCommands : 0;
        for (size_t i = skipped; i < commands.size(); ++i) {
            const CommandRecord& entry = commands[i];
            if (is_download_piece(entry.setup)) {
                continue;
            }
            list.push_back({{"request_type", entry.setup.request_type},
                            {"request", entry.setup.request},
                            {"value", entry.setup.value},
                            {"index", entry.setup.index},
                            {"length", entry.setup.length},
                            {"data", hex(entry.data)},
                            {"stalled", entry.stalled},
                            {"text", describe(entry.setup, entry.data)}});
        }
        return list;
    }
};

Camera::Camera(const CameraConfig& config) : impl_(std::make_unique<Impl>(config)) {}

Camera::~Camera() = default;

void Camera::power_cycle() {
    {
        const std::lock_guard lock(impl_->mutex);
        if (!impl_->presence.power_cycle()) {
            return;
        }
        impl_->replace_device();
    }
    impl_->notify();
}

void Camera::unplug() {
    {
        const std::lock_guard lock(impl_->mutex);
        if (!impl_->presence.unplug()) {
            return;
        }
    }
    impl_->notify();
}

void Camera::plug() {
    {
        const std::lock_guard lock(impl_->mutex);
        if (!impl_->presence.plug()) {
            return;
        }
        impl_->replace_device();
    }
    impl_->notify();
}

void Camera::bus_reset() {
    {
        const std::lock_guard lock(impl_->mutex);
        impl_->device->bus_reset();
    }
    impl_->notify();
}

bool Camera::attached() const {
    const std::lock_guard lock(impl_->mutex);
    return impl_->presence.attached();
}

bool Camera::restarting() const {
    const std::lock_guard lock(impl_->mutex);
    return impl_->presence.restarting();
}

uint64_t Camera::attachment() const {
    const std::lock_guard lock(impl_->mutex);
    return impl_->presence.attachment();
}

void Camera::set_listener(std::function<void()> listener) {
    const std::lock_guard lock(impl_->mutex);
    impl_->listener = std::move(listener);
}

void Camera::set_failure_listener(std::function<void(const std::string&)> listener) {
    const std::lock_guard lock(impl_->mutex);
    impl_->failure_listener = std::move(listener);
}

TimePoint Camera::advance(TimePoint now) {
    const std::lock_guard working(impl_->work);
    bool changed = false;
    std::optional<PictureJob> job;
    uint64_t attachment = 0;
    {
        const std::lock_guard lock(impl_->mutex);
        changed = impl_->advance_presence(now);
        attachment = impl_->presence.attachment();
        if (impl_->presence.attached()) {
            job = impl_->device->next_job(now);
        }
    }
    if (job) {
        if (const std::string why = impl_->make_frame(*job, attachment); !why.empty()) {
            impl_->tell_failure(why);
        }
    }
    if (changed) {
        impl_->notify();
    }
    return impl_->next_wake(now);
}

TimePoint Camera::advance_presence(TimePoint now) {
    bool changed = false;
    TimePoint next;
    {
        const std::lock_guard lock(impl_->mutex);
        changed = impl_->advance_presence(now);
        next = impl_->presence.next(now);
    }
    if (changed) {
        impl_->notify();
    }
    return next;
}

ControlReply Camera::control(const Setup& setup, std::span<const uint8_t> out) {
    ControlReply reply{true, {}};
    bool wakes = false;
    {
        const std::lock_guard lock(impl_->mutex);
        if (!impl_->presence.attached()) {
            return reply;
        }
        const TimePoint before = impl_->device->next_wake(TimePoint::min());
        reply = impl_->device->control(setup, out);
        if (is_recorded(setup)) {
            impl_->record(setup, out, reply);
        }
        if (impl_->device->take_burned()) {
            impl_->presence.restart_after_burn();
            wakes = true;
        }
        wakes = wakes || impl_->device->next_wake(TimePoint::min()) < before;
    }
    if (wakes) {
        impl_->notify();
    }
    return reply;
}

bool Camera::bulk_out(uint8_t endpoint, std::span<const uint8_t> data) {
    const std::lock_guard lock(impl_->mutex);
    return impl_->presence.attached() && impl_->device->bulk_out(endpoint, data);
}

std::optional<std::vector<uint8_t>> Camera::bulk_in(uint8_t endpoint, size_t room, TimePoint now) {
    std::optional<Bytes> payload;
    bool wakes = false;
    {
        const std::lock_guard lock(impl_->mutex);
        if (!impl_->presence.attached()) {
            return std::nullopt;
        }
        const TimePoint before = impl_->device->next_wake(TimePoint::min());
        payload = impl_->device->bulk_in(endpoint, room, now);
        wakes = impl_->device->next_wake(TimePoint::min()) < before;
    }
    if (wakes) {
        impl_->notify();
    }
    return payload;
}

void Camera::halt(uint8_t endpoint) {
    const std::lock_guard lock(impl_->mutex);
    impl_->device->halt(endpoint);
}

bool Camera::halted(uint8_t endpoint) const {
    const std::lock_guard lock(impl_->mutex);
    return impl_->device->halted(endpoint);
}

std::vector<uint8_t> Camera::iso_in(uint8_t endpoint, size_t room) {
    const std::lock_guard lock(impl_->mutex);
    return impl_->presence.attached() ? impl_->device->iso_in(endpoint, room) : Bytes{};
}

std::vector<uint8_t> Camera::device_descriptor() const {
    const std::lock_guard lock(impl_->mutex);
    return descriptors::device(impl_->presence.personality(), impl_->config);
}

std::vector<uint8_t> Camera::configuration_descriptor() const {
    const std::lock_guard lock(impl_->mutex);
    return descriptors::configuration(impl_->presence.personality());
}

std::string Camera::string(uint8_t index) const {
    const std::lock_guard lock(impl_->mutex);
    return descriptors::text(impl_->presence.personality(), index);
}

std::vector<uint8_t> Camera::flash() const {
    const std::lock_guard lock(impl_->mutex);
    return impl_->firmware.flash().value_or(Bytes{});
}

std::vector<CommandRecord> Camera::commands() const {
    const std::lock_guard lock(impl_->mutex);
    return {impl_->commands.begin(), impl_->commands.end()};
}

nlohmann::json Camera::status() const {
    const std::lock_guard lock(impl_->mutex);
    nlohmann::json status;
    status["attached"] = impl_->presence.attached();
    status["attachment"] = impl_->presence.attachment();
    status["flash"] = impl_->flash_report();
    status["frames"] = impl_->frames;
    status["streams"] = impl_->stream_report();
    status["command_count"] = impl_->command_count;
    status["commands"] = impl_->command_report();
    status["failure"] = impl_->failure;
    impl_->device->report(status);
    return status;
}

}  // namespace virtcam::model
