// The simulated USB core: contexts, devices, handles and transfers of one process, and the camera.
//
// Locking. One mutex guards everything below. It is never held while a completion callback runs or
// while Camera::advance() makes pictures; it may be held while the camera answers a request. Order:
// event lock of a context, waiter lock of a context, this mutex, the camera's own lock.
//
// Completions are handed to the program in event handling only (event_loop.cpp), which every
// synchronous call performs too. Two threads work behind the scene: one drives the camera, one
// keeps the clocks of isochronous endpoints, delayed answers and timed events.
#pragma once

#include <libusb-1.0/libusb.h>
#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "virtcam/bus/complaint_log.h"
#include "virtcam/bus/fixed_devices.h"
#include "virtcam/bus/interface_table.h"
#include "virtcam/bus/listing.h"
#include "virtcam/bus/objects.h"
#include "virtcam/bus/records.h"
#include "virtcam/bus/trace.h"
#include "virtcam/faults/rule_set.h"
#include "virtcam/line/config.h"
#include "virtcam/line/endpoint.h"
#include "virtcam/line/ticker.h"
#include "virtcam/model/camera.h"

namespace virtcam::bus {

class Bus {
  public:
    /// The bus of this process, made at the first use as VIRTBUS_CONFIG says. It is never
    /// destroyed: programs may still call into it while their own static objects go.
    static Bus& instance();
    /// True once instance() has made it.
    static bool started();

    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    // --- life cycle (bus.cpp) -------------------------------------------------------------------
    void reset(const nlohmann::json& configuration);
    std::shared_ptr<model::Camera> camera();
    void change_presence(faults::DeviceAction action);
    void add_rules(const nlohmann::json& rules);
    void clear_rules();
    /// False in a child that was forked from the process of the bus.
    bool owned_by_this_process() const;
    /// Ends the threads; the bus answers requests from then on but moves no streams.
    void stop_threads();

    // --- calls (bus.cpp) ------------------------------------------------------------------------
    /// Counts a call and applies the scripted failures of its name.
    faults::Action begin_call(const char* name, std::optional<int> argument);
    void end_call(const char* name, std::optional<int> argument, int result);

    // --- contexts and devices (devices.cpp)
    // -------------------------------------------------------
    int init(libusb_context** context);
    void exit(libusb_context* context);
    /// The context meant by `context` (null: the default one), or null with a complaint.
    libusb_context* resolve(libusb_context* context, const char* call);
    ssize_t list_devices(libusb_context* context, libusb_device*** list);
    void free_list(libusb_device** list, bool unreference);
    libusb_device* reference(libusb_device* device);
    void unreference(libusb_device* device);
    /// The device's properties, or null with a complaint when `device` is not one.
    std::shared_ptr<const DeviceInfo> info(libusb_device* device, const char* call);
    libusb_device* parent(libusb_device* device);
    libusb_config_descriptor* make_config(const DeviceInfo& device);
    void free_config(libusb_config_descriptor* config);

    // --- handles (handles.cpp)
    // --------------------------------------------------------------------
    int open(libusb_device* device, libusb_device_handle** handle);
    libusb_device_handle* open_by_id(libusb_context* context, uint16_t vendor, uint16_t product);
    void close(libusb_device_handle* handle);
    libusb_device* device_of(libusb_device_handle* handle);
    int configuration(libusb_device_handle* handle, int* value);
    int set_configuration(libusb_device_handle* handle, int value);
    int claim(libusb_device_handle* handle, int interface);
    int release(libusb_device_handle* handle, int interface);
    int set_alt_setting(libusb_device_handle* handle, int interface, int setting);
    int clear_halt(libusb_device_handle* handle, uint8_t endpoint);
    int reset_device(libusb_device_handle* handle);
    int driver_active(libusb_device_handle* handle, int interface);
    int detach_driver(libusb_device_handle* handle, int interface);
    int attach_driver(libusb_device_handle* handle, int interface);
    int set_auto_detach(libusb_device_handle* handle, bool enable);

    // --- transfers (transfers.cpp)
    // ------------------------------------------------------------------
    libusb_transfer* allocate(int packets, bool internal);
    void free(libusb_transfer* transfer);
    int submit(libusb_transfer* transfer);
    int cancel(libusb_transfer* transfer);

    /// Parameters of libusb_control_transfer; result as documented there.
    int control(libusb_device_handle* handle, const model::Setup& setup, uint8_t* data,
                unsigned timeout_ms);
    /// libusb_bulk_transfer and libusb_interrupt_transfer.
    int stream(libusb_device_handle* handle, libusb_transfer_type type, uint8_t endpoint,
               uint8_t* data, int length, int* transferred, unsigned timeout_ms);

    // --- events (event_loop.cpp)
    // ----------------------------------------------------------------------
    using Finished = std::function<bool()>;
    /// One round of event handling; waits at most until `deadline`, less when `finished()` holds.
    int handle_events(libusb_context* context, TimePoint deadline, const Finished& finished);
    /// The same for a caller that holds the event lock.
    int handle_events_locked(libusb_context* context, TimePoint deadline);
    bool try_lock_events(libusb_context* context);
    void lock_events(libusb_context* context);
    void unlock_events(libusb_context* context);
    bool event_handling_ok(libusb_context* context);
    bool event_handler_active(libusb_context* context);
    void interrupt(libusb_context* context);
    /// Waits with the waiter lock held. Returns true when the time was over.
    bool wait_for_event(libusb_context* context, std::optional<TimePoint> deadline);
    /// When the next transfer of the context times out.
    std::optional<TimePoint> next_expiry(libusb_context* context);

    // --- observation and scripted streams (report.cpp, script.cpp)
    // --------------------------------------
    ComplaintLog& complaints() { return complaints_; }
    std::vector<Complaint> leaks();
    nlohmann::json status();
    /// Writes the status file, if one was asked for.
    void write_status();
    std::vector<ControlRecord> control_log();
    std::vector<CallRecord> call_log();
    std::map<std::string, uint64_t> call_counts();
    void clear_logs();
    size_t pending(uint8_t endpoint);
    std::optional<unsigned> last_timeout(uint8_t endpoint);
    bool wait_until(const std::function<bool()>& predicate, std::chrono::milliseconds limit);
    void script_stream(bool on);
    void push(uint8_t endpoint, line::Ending ending);
    void hold(uint8_t endpoint);
    void release_held(uint8_t endpoint);

  private:
    /// The camera as endpoints meet it; while a test scripts the streams, its script instead.
    class FarEnd : public line::Device {
      public:
        explicit FarEnd(Bus& bus) : bus_(bus) {}
        model::Camera& camera() override { return *bus_.camera_; }
        faults::RuleSet& rules() override { return bus_.rules_; }
        void run(faults::DeviceAction action) override { bus_.run_actions({action}); }
        bool iso_paced() const override;
        std::optional<line::Ending> answer(const line::Request& request) override;

      private:
        Bus& bus_;
    };
    /// An endpoint, and what tests do to it.
    struct Channel {
        explicit Channel(line::Device& device) : endpoint(device) {}

        line::Endpoint endpoint;
        std::deque<Urb*> held;              ///< ended, kept back by hold()
        std::deque<line::Ending> scripted;  ///< pushed, not yet taken
        bool hold = false;
        std::optional<unsigned> last_timeout;
    };
    /// Everything that a configuration brings; made before anything is replaced.
    struct Start {
        line::Config config;
        faults::RuleSet rules;
        std::shared_ptr<model::Camera> camera;
    };
    struct DeviceList {
        std::unique_ptr<libusb_device*[]> devices;  ///< null-terminated
        unsigned generation = 0;
    };
    struct ConfigCopy {
        std::unique_ptr<ConfigDescriptor> descriptor;
        unsigned generation = 0;
    };
    using Lock = std::unique_lock<std::mutex>;

    Bus();

    // bus.cpp
    /// Makes what a configuration asks for. Throws when that is not possible.
    Start prepare(line::Config config);
    void power_on(Start start);
    std::string start_configuration();
    TimePoint drive_camera();
    TimePoint keep_clocks();
    void changed() { change_.notify_all(); }
    void run_actions(const std::vector<faults::DeviceAction>& actions);
    /// Takes over arrivals and departures of the camera since the last look.
    void sync_presence();
    void depart();
    void arrive();
    std::chrono::milliseconds elapsed() const;

    // devices.cpp
    std::shared_ptr<DeviceInfo> describe_camera();
    void add_device(libusb_context& context, const std::shared_ptr<const DeviceInfo>& info);
    void drop_reference(libusb_device* device);
    void write_listing();
    bool known(libusb_device* device) const { return devices_.count(device) != 0; }
    int references_of_program(const libusb_device* device) const;

    // handles.cpp
    /// True, or false with a complaint, when `handle` is open.
    bool usable(libusb_device_handle* handle, const char* call);
    int open_locked(libusb_device* device, libusb_device_handle** handle);
    void close_locked(libusb_device_handle* handle);
    void abandon_transfers(libusb_device_handle* handle);
    void release_locked(int interface);
    /// A standard request that the host controller driver makes by itself; false: stalled.
    bool kernel_request(const model::Setup& setup);
    /// Selects the camera's only configuration, as the kernel does for a device that arrives.
    void configure_camera();
    /// Ends the transfers on an interface as usbfs does when their endpoints go.
    void flush_interface(int interface);

    // transfers.cpp
    Urb* find(libusb_transfer* transfer);
    int check(const libusb_transfer& transfer, const Urb& urb);
    int check_control(const libusb_transfer& transfer);
    int check_recipient(libusb_device_handle* handle, const model::Setup& setup);
    int check_stream(const libusb_transfer& transfer, const Urb& urb);
    void enqueue(Urb& urb);
    /// Ends a pending transfer.
    void finish(Urb& urb, line::Ending ending);
    void finish_all(Channel& channel, faults::Status status);
    void publish(Urb& urb);
    // sync.cpp
    /// @return 0 or the libusb error that stands for the ending.
    int run_synchronously(libusb_transfer* transfer);

    // endpoints.cpp
    Channel& channel(uint8_t address);
    /// Ends what is due.
    void serve(Channel& channel);
    void serve_all();

    // event_loop.cpp
    static bool in_callback_of(const libusb_context* context);
    void refuse_in_callback();
    /// Transfers in flight that can time out, by the time at which they do.
    std::vector<Urb*> expiring(const libusb_context* context) const;
    void expire(libusb_context* context, TimePoint now);
    void deliver(Urb& urb, Lock& lock);
    int run_events(libusb_context* context, TimePoint deadline);

    // report.cpp
    void log_control(Urb& urb);
    void log_result(const Urb& urb);
    std::string leaked_handle_text(const libusb_device_handle& handle) const;
    nlohmann::json bus_status();

    std::mutex mutex_;
    std::condition_variable change_;

    line::Config config_;
    std::string status_path_;
    std::string broken_;  ///< why the configuration was refused; libusb_init fails then
    ComplaintLog complaints_;
    Trace trace_;
    faults::RuleSet rules_;
    Listing listing_;
    TimePoint started_;
    pid_t process_;  ///< that has the threads: a forked child has none
    /// Counts resets. Objects of an earlier generation stay usable but are nobody's leak any more.
    unsigned generation_ = 0;

    std::shared_ptr<model::Camera> camera_;
    uint64_t attachment_ = 0;  ///< that the bus has taken over; 0: the camera is off the bus
    uint8_t last_address_ = 0;
    std::vector<std::shared_ptr<const DeviceInfo>> fixed_devices_;
    std::shared_ptr<const DeviceInfo> camera_info_;    ///< null while off the bus
    std::unique_ptr<ConfigDescriptor> camera_config_;  ///< interfaces_ points into it
    InterfaceTable interfaces_;

    libusb_context* default_context_ = nullptr;
    std::map<libusb_context*, std::unique_ptr<libusb_context>> contexts_;
    /// Exited while something still points to them.
    std::vector<std::unique_ptr<libusb_context>> exited_contexts_;
    std::map<libusb_device*, std::unique_ptr<libusb_device>> devices_;
    std::map<libusb_device_handle*, std::unique_ptr<libusb_device_handle>> handles_;
    std::map<libusb_device**, DeviceList> lists_;
    std::map<libusb_config_descriptor*, ConfigCopy> configs_;
    std::unordered_map<libusb_transfer*, std::unique_ptr<Urb>> urbs_;
    FarEnd far_end_{*this};
    std::map<uint8_t, Channel> channels_;  ///< by address; control under 0
    bool scripted_ = false;

    std::deque<ControlRecord> control_log_;
    uint64_t control_log_first_ = 0;  ///< number of the first entry
    std::deque<CallRecord> call_log_;
    std::map<std::string, uint64_t, std::less<>> call_counts_;
    std::map<std::pair<int, int>, uint64_t> transfer_counts_;  ///< by type and status

    std::unique_ptr<line::Ticker> camera_ticker_;
    std::unique_ptr<line::Ticker> clock_ticker_;
    TimePoint clocks_wake_ = TimePoint::max();  ///< when the latter goes on by itself
};

}  // namespace virtcam::bus
