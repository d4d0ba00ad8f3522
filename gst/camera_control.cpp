#include "gst/camera_control.h"

#include <algorithm>
#include <utility>

#include "gst/stream_choice.h"
#include "host/base/exit_code.h"
#include "host/base/log_diversion.h"
#include "host/base/text.h"
#include "host/session/property_access.h"

namespace gstcam {

namespace {

using camhost::Assignment;
using camhost::Clock;
using camhost::Failure;
using camhost::SetOutcome;
using std::chrono::milliseconds;

constexpr milliseconds kLookInterval{250};
constexpr milliseconds kPresenceInterval{1000};
constexpr const char* kBusListing = "/proc/bus/usb/devices";
constexpr const char* kSeeLog =
    " The plug-in's log says more (properties divert-log and debug-level).";

/// The plug-in serves one camera object at a time in a process.
std::atomic<bool> g_camera_taken{false};

class CameraClaim {
  public:
    CameraClaim() : mine_(!g_camera_taken.exchange(true)) {}
    ~CameraClaim() {
        if (mine_) {
            g_camera_taken.store(false);
        }
    }
    CameraClaim(const CameraClaim&) = delete;
    CameraClaim& operator=(const CameraClaim&) = delete;
    bool mine() const { return mine_; }

  private:
    const bool mine_;
};

bool restarts(const Assignment& assignment) {
    return assignment.property.assurance == camhost::Assurance::kRestart;
}

}  // namespace

/// Hands the records of one stream on. Observers of all streams are there from the start to the end
/// of the camera: registering one while pictures come would hold them up.
class CameraControl::Observer : public ICameraObserver {
  public:
    Observer(camhost::Stream stream, CameraControl& control)
        : stream_(stream), sink_(control.sink_), control_(control) {
        SetStreamType(camhost::info(stream).type);
    }

    bool Update(const CCameraData* data) override {
        if (data == nullptr) {
            return false;
        }
        if (data->m_pData != nullptr && data->m_size > 0) {
            if (sink_.take(stream_, *data)) {
                control_.post({camhost::find_property(CAM_PROPERTY_NEWGOP), {}});
            }
        } else if (stream_ == camhost::Stream::kNv12) {
            // When recording stops, an empty NV12 record comes after the last one of every stream.
            sink_.recording_ended();
        }
        return true;
    }

  private:
    const camhost::Stream stream_;
    RecordSink& sink_;
    CameraControl& control_;
};

CameraControl::CameraControl(Options options, RecordSink& sink, CameraListener& listener)
    : options_(std::move(options)), sink_(sink), listener_(listener) {
    for (const camhost::StreamInfo& row : camhost::kStreams) {
        observers_.push_back(std::make_unique<Observer>(row.stream, *this));
    }
    thread_ = std::thread([this] { run(); });
}

CameraControl::~CameraControl() {
    {
        const std::lock_guard lock(mutex_);
        quit_ = true;
    }
    wake_.signal();
    thread_.join();
}

void CameraControl::wish(Wish wish) {
    {
        const std::lock_guard lock(mutex_);
        wish_ = std::move(wish);
    }
    wake_.signal();
}

void CameraControl::post(const Assignment& assignment) {
    {
        const std::lock_guard lock(mutex_);
        jobs_.push_back([this, assignment] { apply(assignment); });
        ++jobs_posted_;
    }
    wake_.signal();
}

void CameraControl::set(const Assignment& assignment) {
    if (std::this_thread::get_id() == thread_.get_id()) {
        apply(assignment);  // from inside a message of ours: waiting would be for ourselves
        return;
    }
    uint64_t ticket = 0;
    {
        const std::lock_guard lock(mutex_);
        jobs_.push_back([this, assignment] { apply(assignment); });
        ticket = ++jobs_posted_;
    }
    wake_.signal();
    std::unique_lock lock(mutex_);
    job_done_.wait(lock, [&] { return !serving_ || jobs_taken_ >= ticket; });
}

std::optional<CAM_PROP_VALUE> CameraControl::get(CAM_PROPERTY property) const {
    if (!serving_) {
        return std::nullopt;  // without waiting: making a camera object takes a second
    }
    const std::shared_lock lock(session_mutex_);
    const bool still_serving = serving_.load();
    if (!still_serving || !session_) {
        return std::nullopt;
    }
    if (property == CAM_PROPERTY_I2C_READ_AUDIO) {
        return CAM_PROP_VALUE{.value = register_answer_};
    }
    return session_->get(property);
}

bool CameraControl::quits() const {
    const std::lock_guard lock(mutex_);
    return quit_;
}

void CameraControl::fail(Trouble trouble, const std::string& sentence) {
    listener_.failed(trouble, sentence);
}

void CameraControl::run() {
    const CameraClaim claim;
    if (!claim.mine()) {
        fail(Trouble::kBusy, "The camera is in use by another element of this process.");
        return;
    }
    try {
        load_and_serve();
    } catch (const std::exception& failure) {  // the plug-in's lack of memory, too
        fail(Trouble::kNoPlugin, failure.what());
    }
}

void CameraControl::load_and_serve() {
    listener_.progress(Progress::kSearching);
    std::optional<camhost::LogDiversion> diversion;
    if (!options_.log.empty()) {
        diversion.emplace(options_.log);
    }
    const camhost::Plugin plugin(options_.plugin);
    bring_up(plugin);
    const std::unique_lock lock(session_mutex_);
    session_.reset();
}

void CameraControl::bring_up(const camhost::Plugin& plugin) {
    {
        const std::unique_lock lock(session_mutex_);
        session_.emplace(plugin, wake_);
    }
    session_->begin();
    if (!wait_for_report()) {
        return;
    }
    if (!session_->usable()) {
        explain_failure();
        return;
    }
    listener_.progress(Progress::kReady);
    register_observers();
    serve();
    stop();
    for (const auto& observer : observers_) {
        session_->camera().RemoveObserver(observer.get());
    }
}

/// True when Init has reported.
bool CameraControl::wait_for_report() {
    const auto deadline = Clock::now() + options_.init_timeout;
    while (!session_->reported()) {
        if (quits()) {
            listener_.progress(Progress::kGivenUp);
            return false;
        }
        if (Clock::now() >= deadline) {
            fail(Trouble::kNotUsable,
                 camhost::format("The plug-in did not report on the camera within %g s.",
                                 std::chrono::duration<double>(options_.init_timeout).count()) +
                     kSeeLog);
            return false;
        }
        look_at_the_bus();
        wake_.wait_until(std::min(deadline, Clock::now() + kLookInterval));
    }
    return true;
}

void CameraControl::look_at_the_bus() {
    const BusWatch::Sight sight = bus_.look();
    found_ = found_ || sight == BusWatch::Sight::kCamera;
    if (sight == BusWatch::Sight::kWithoutFirmware && !found_without_firmware_) {
        found_without_firmware_ = true;
        listener_.progress(Progress::kLoadingFirmware);
    }
}

void CameraControl::explain_failure() {
    look_at_the_bus();
    if (found_) {
        fail(Trouble::kNotUsable,
             std::string("The camera is there and cannot be opened; another program may have it.") +
                 kSeeLog);
        return;
    }
    if (found_without_firmware_) {
        fail(Trouble::kFirmware,
             std::string("The camera was found without firmware and did not come back with it: it "
                         "was unplugged, or refused it, or /mtd_exe/lumo has none.") +
                 kSeeLog);
        return;
    }
    std::error_code error;
    const bool listed = std::filesystem::exists(kBusListing, error);
    fail(Trouble::kNoCamera,
         std::string("No camera was found: plug it in.") +
             (listed ? ""
                     : std::string(" The plug-in looks for it in ") + kBusListing +
                           ", which is missing here: see docs/gstreamer.md.") +
             kSeeLog);
}

void CameraControl::register_observers() {
    for (const auto& observer : observers_) {
        session_->camera().RegisterObserver(observer.get());
    }
}

void CameraControl::serve() {
    for (const Assignment& assignment : options_.assignments) {
        apply(assignment);
    }
    serving_ = true;
    while (!quits()) {
        do_jobs();
        check_presence();
        follow_wish();
        trigger_due_jpeg();
        wake_.wait_until(next_due());
    }
    {
        const std::lock_guard lock(mutex_);
        serving_ = false;
    }
    job_done_.notify_all();
}

void CameraControl::do_jobs() {
    std::vector<Job> jobs;
    uint64_t posted = 0;
    {
        const std::lock_guard lock(mutex_);
        jobs.swap(jobs_);
        posted = jobs_posted_;
    }
    for (const Job& job : jobs) {
        job();
    }
    {
        const std::lock_guard lock(mutex_);
        jobs_taken_ = posted;
    }
    job_done_.notify_all();
}

void CameraControl::check_presence() {
    if (!gone_ && session_->lost()) {
        gone_ = true;
        fail(Trouble::kGone,
             "The camera went away: it was unplugged or lost its power. Plug it in "
             "and start the element anew.");
    }
}

Clock::time_point CameraControl::next_due() const {
    const auto presence = Clock::now() + kPresenceInterval;
    return triggers_jpegs() ? std::min(presence, next_jpeg_) : presence;
}

bool CameraControl::triggers_jpegs() const {
    return followed_.jpeg_interval.count() > 0 && session_->playing() &&
           session_->by_signal_type() && followed_.streams.count(camhost::Stream::kJpeg) > 0;
}

void CameraControl::trigger_due_jpeg() {
    if (!triggers_jpegs() || Clock::now() < next_jpeg_) {
        return;
    }
    CAM_PROP_VALUE none{};
    session_->set(CAM_PROPERTY_TRIGGER_JPEG, &none);
    next_jpeg_ = std::max(next_jpeg_ + followed_.jpeg_interval, Clock::now());
}

bool CameraControl::read_register(const Assignment& assignment) {
    if (assignment.property.number != CAM_PROPERTY_I2C_READ_AUDIO) {
        return false;
    }
    CAM_PROP_VALUE value = assignment.value;
    session_->set(assignment.property.number, &value);  // false even when all went well
    register_answer_ = value.value;
    return true;
}

void CameraControl::apply(const Assignment& assignment) {
    if (read_register(assignment)) {
        return;
    }
    const bool was_playing = session_->playing();
    if (restarts(assignment)) {
        const bool rate = assignment.property.number == CAM_PROPERTY_SAMPLERATE;
        announce_settings(true, rate ? assignment.value.value : 0);
        dead_end_ = false;
    }
    nv12_by_host_ |= assignment.property.number == CAM_PROPERTY_NV12_MODE_CONTROL;
    const SetOutcome outcome = camhost::set_property(*session_, assignment);
    if ((outcome.result == SetOutcome::Result::kRefused && !outcome.same) ||
        outcome.result == SetOutcome::Result::kIgnored) {
        listener_.warned(outcome.sentence);
    }
    announce_settings(false);
    if (was_playing && !session_->playing() && !session_->lost()) {
        dead_end_ = true;
        fail(Trouble::kNotStarted, "Recording could not be started again.");
    }
}

/// Tells the sink what comes. `sample_rate`: what it is about to become, where the camera takes it.
void CameraControl::announce_settings(bool after_restart, int sample_rate) {
    StreamSettings settings;
    const auto rate = session_->get(CAM_PROPERTY_SAMPLERATE);
    const auto pictures = session_->get(CAM_PROPERTY_FRAMERATE);
    settings.sample_rate = rate && rate->value > 0 ? rate->value : settings.sample_rate;
    settings.main_rate = pictures && pictures->value > 0 ? pictures->value : settings.main_rate;
    if (sample_rate == 16000 || sample_rate == 24000) {
        settings.sample_rate = sample_rate;
    }
    sink_.settings(settings, after_restart);
}

void CameraControl::follow_wish() {
    Wish wish;
    {
        const std::lock_guard lock(mutex_);
        wish = wish_;
    }
    if (!(wish == followed_)) {
        followed_ = wish;
        dead_end_ = false;
    }
    if (gone_ || dead_end_) {
        return;
    }
    if (!wish.record) {
        stop();
        return;
    }
    if (wish.streams.empty()) {
        return;  // nobody listens yet
    }
    try {
        have_combination(wish);
    } catch (const Failure& failure) {
        dead_end_ = true;
        fail(Trouble::kCombination, failure.what());
        return;
    }
    start();
}

/// Throws Failure when what is wanted does not go together.
void CameraControl::have_combination(const Wish& wish) {
    const camhost::Selector selector = session_->selector();
    const bool keep = wish.combination.empty() && combination_ >= 0 && session_->playing() &&
                      carries(selector, combination_, wish.streams);
    const StreamChoice choice =
        keep ? StreamChoice{combination_, wish.streams.count(camhost::Stream::kNv12) != 0}
             : choose_streams(selector, wish.streams, wish.combination);
    add_nv12(choice.nv12);
    select(choice.combination);
}

void CameraControl::select(int combination) {
    if (combination == combination_) {
        return;
    }
    combination_ = combination;
    CAM_PROP_VALUE value{};
    value.value = combination;
    announce_settings(true);
    // Restarts a recording; otherwise it is kept for the next start, whatever it answers.
    session_->set(camhost::property_of(session_->selector()), &value);
}

void CameraControl::add_nv12(bool on) {
    if (nv12_by_host_ || on == nv12_added_) {
        return;
    }
    nv12_added_ = on;
    CAM_PROP_VALUE value{};
    value.value = on ? 1 : 0;
    session_->set(CAM_PROPERTY_NV12_MODE_CONTROL, &value);
}

void CameraControl::start() {
    if (session_->playing()) {
        return;
    }
    announce_settings(false);
    next_jpeg_ = Clock::now() + followed_.jpeg_interval / 2;
    if (session_->start()) {
        return;
    }
    session_->stop();
    check_presence();
    if (!gone_) {
        dead_end_ = true;
        fail(Trouble::kNotStarted, std::string("Recording could not be started.") + kSeeLog);
    }
}

void CameraControl::stop() {
    if (session_->playing()) {
        session_->stop();
    }
}

}  // namespace gstcam
