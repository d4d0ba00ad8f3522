#include "gst/camera_source.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdlib>

#include "gst/debug_category.h"

namespace gstcam {

namespace {

using camhost::Assignment;
using camhost::Property;
using camhost::ValueKind;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr const char* kPluginVariable = "AITCAM_PLUGIN";
constexpr const char* kPluginName = "libaitorixcamera.so";

/// Beside this library, where the build or the packages have it, or a folder above.
std::filesystem::path default_plugin() {
    if (const char* named = std::getenv(kPluginVariable); named != nullptr && *named != '\0') {
        return named;
    }
    Dl_info here{};
    static const char anchor = 0;
    if (dladdr(&anchor, &here) == 0 || here.dli_fname == nullptr) {
        return kPluginName;
    }
    const auto folder = std::filesystem::absolute(here.dli_fname).parent_path();
    for (const char* place : {".", "../Src", "../aitorixcamera", "..", "../.."}) {
        std::error_code error;
        auto path = folder / place / kPluginName;
        if (std::filesystem::exists(path, error)) {
            return path;
        }
    }
    return kPluginName;  // the loader's own search
}

bool is_worth_remembering(const Property& property) {
    return property.settable && property.kind != ValueKind::kTrigger &&
           property.kind != ValueKind::kRegister && property.kind != ValueKind::kRegisterValue;
}

const char* words_for(Progress progress) {
    switch (progress) {
        case Progress::kSearching:
            return "Searching for the camera";
        case Progress::kLoadingFirmware:
            return "Loading the camera's firmware";
        case Progress::kReady:
            return "The camera is ready";
        case Progress::kGivenUp:
            break;
    }
    return "The search for the camera was given up";
}

GstProgressType type_of(Progress progress) {
    switch (progress) {
        case Progress::kSearching:
            return GST_PROGRESS_TYPE_START;
        case Progress::kLoadingFirmware:
            return GST_PROGRESS_TYPE_CONTINUE;
        case Progress::kReady:
            return GST_PROGRESS_TYPE_COMPLETE;
        case Progress::kGivenUp:
            break;
    }
    return GST_PROGRESS_TYPE_CANCELED;
}

struct ErrorRow {
    GQuark domain;
    gint code;
    bool while_bringing_up;
};

ErrorRow error_of(Trouble trouble) {
    const GQuark resource = GST_RESOURCE_ERROR;
    switch (trouble) {
        case Trouble::kNoPlugin:
            return {GST_LIBRARY_ERROR, GST_LIBRARY_ERROR_INIT, true};
        case Trouble::kBusy:
            return {resource, GST_RESOURCE_ERROR_BUSY, true};
        case Trouble::kNoCamera:
            return {resource, GST_RESOURCE_ERROR_NOT_FOUND, true};
        case Trouble::kFirmware:
            return {resource, GST_RESOURCE_ERROR_OPEN_WRITE, true};
        case Trouble::kNotUsable:
            return {resource, GST_RESOURCE_ERROR_OPEN_READ_WRITE, true};
        case Trouble::kCombination:
            return {resource, GST_RESOURCE_ERROR_SETTINGS, false};
        case Trouble::kNotStarted:
            return {resource, GST_RESOURCE_ERROR_OPEN_READ, false};
        case Trouble::kGone:
            break;
    }
    return {resource, GST_RESOURCE_ERROR_READ, false};
}

}  // namespace

CameraSource::CameraSource(GstElement* element) : element_(element) {
    host_.element = element;
    host_.queue_length = [this] {
        return static_cast<int64_t>(settings().queue_time) * static_cast<int64_t>(GST_MSECOND);
    };
    host_.want_key = [this] { trigger(CAM_PROPERTY_NEWGOP); };
    host_.stopped = [this](GstFlowReturn flow) {
        GST_ELEMENT_FLOW_ERROR(element_, flow);
        end_streams();
    };
}

CameraSource::~CameraSource() = default;

// --- settings and properties

CameraSource::Settings CameraSource::settings() const {
    const std::lock_guard lock(mutex_);
    return settings_;
}

void CameraSource::change_settings(const std::function<void(Settings&)>& change) {
    {
        const std::lock_guard lock(mutex_);
        change(settings_);
    }
    tell_wish();
}

void CameraSource::remember(const Assignment& assignment) {
    const std::lock_guard lock(mutex_);
    std::erase_if(assigned_, [&](const Assignment& each) {
        return each.property.number == assignment.property.number;
    });
    assigned_.push_back(assignment);
}

void CameraSource::set(const Assignment& assignment) {
    if (is_worth_remembering(assignment.property)) {
        remember(assignment);
    }
    const std::shared_lock lock(control_mutex_);
    if (control_ != nullptr) {
        control_->set(assignment);
    }
}

std::optional<CAM_PROP_VALUE> CameraSource::get(const Property& property) const {
    if (property.gettable || property.kind == ValueKind::kRegister) {
        const std::shared_lock lock(control_mutex_);
        const auto value = control_ != nullptr ? control_->get(property.number) : std::nullopt;
        if (value) {
            return value;
        }
    }
    const std::lock_guard lock(mutex_);
    const auto found = std::find_if(
        assigned_.begin(), assigned_.end(),
        [&](const Assignment& each) { return each.property.number == property.number; });
    return found != assigned_.end() ? std::optional(found->value) : std::nullopt;
}

void CameraSource::trigger(CAM_PROPERTY property) {
    const std::shared_lock lock(control_mutex_);
    if (control_ != nullptr) {
        control_->post({camhost::find_property(property), {}});
    }
}

// --- state changes

CameraControl::Options CameraSource::control_options() const {
    const std::lock_guard lock(mutex_);
    CameraControl::Options options;
    options.plugin =
        settings_.plugin.empty() ? default_plugin() : std::filesystem::path(settings_.plugin);
    options.log = settings_.log;
    options.init_timeout = seconds(settings_.init_timeout);
    options.assignments = assigned_;
    return options;
}

void CameraSource::bring_up() {
    host_.group_id = gst_util_group_id_next();
    auto control = std::make_unique<CameraControl>(control_options(), router_, *this);
    const std::unique_lock lock(control_mutex_);
    control_ = std::move(control);
}

void CameraSource::activate_pads(bool active) {
    const std::lock_guard lock(mutex_);
    pads_active_ = active;
}

void CameraSource::play() {
    GstClock* clock = gst_element_get_clock(element_);
    if (clock == nullptr) {
        clock = gst_system_clock_obtain();
    }
    router_.run(clock, gst_element_get_base_time(element_));
    gst_object_unref(clock);
    set_playing(true);
}

void CameraSource::pause() {
    router_.pause();
    set_playing(false);
}

void CameraSource::set_playing(bool playing) {
    {
        const std::lock_guard lock(mutex_);
        playing_ = playing;
        for (const auto& pad : pads_) {
            if (pad != nullptr) {
                pad->channel()->queue().hold(!playing);
            }
        }
    }
    tell_wish();
}

void CameraSource::put_away() {
    std::unique_ptr<CameraControl> control;
    {
        const std::unique_lock lock(control_mutex_);
        control = std::move(control_);
    }
}

void CameraSource::tell_wish() {
    CameraControl::Wish wish;
    {
        const std::lock_guard lock(mutex_);
        wish.record = playing_;
        wish.combination = settings_.combination;
        wish.jpeg_interval = milliseconds(settings_.jpeg_interval);
        for (const auto& pad : pads_) {
            if (pad != nullptr) {
                wish.streams.insert(pad->stream());
            }
        }
    }
    const std::shared_lock lock(control_mutex_);
    if (control_ != nullptr) {
        control_->wish(std::move(wish));
    }
}

// --- pads

GstPad* CameraSource::request_pad(GstPadTemplate* pad_template) {
    const auto stream = stream_of_pad(GST_PAD_TEMPLATE_NAME_TEMPLATE(pad_template));
    g_return_val_if_fail(stream.has_value(), nullptr);
    StreamPad* made = nullptr;
    bool active = false;
    bool playing = false;
    {
        const std::lock_guard lock(mutex_);
        auto& place = pads_[static_cast<size_t>(*stream)];
        if (place != nullptr) {
            GST_WARNING_OBJECT(element_, "there is one pad %s only", row_of(*stream).pad);
            return nullptr;
        }
        place = std::make_unique<StreamPad>(pad_template, *stream, host_);
        made = place.get();
        active = pads_active_;
        playing = playing_;
    }
    if (active) {
        gst_pad_set_active(made->pad(), TRUE);
        made->channel()->queue().hold(!playing);
    }
    gst_element_add_pad(element_, made->pad());
    router_.connect(made->channel());
    tell_wish();
    return made->pad();
}

void CameraSource::release_pad(GstPad* pad) {
    std::unique_ptr<StreamPad> released;
    {
        const std::lock_guard lock(mutex_);
        const auto found = std::find_if(pads_.begin(), pads_.end(), [&](const auto& each) {
            return each != nullptr && each->pad() == pad;
        });
        if (found == pads_.end()) {
            return;
        }
        released = std::move(*found);
    }
    router_.disconnect(released->stream());
    gst_pad_set_active(pad, FALSE);
    gst_element_remove_pad(element_, pad);
    gst_pad_set_element_private(pad, nullptr);
    tell_wish();
}

void CameraSource::end_streams() {
    const std::lock_guard lock(mutex_);
    for (const auto& pad : pads_) {
        if (pad != nullptr) {
            pad->channel()->queue().end();
        }
    }
}

GstStructure* CameraSource::stats() const {
    GstStructure* all = gst_structure_new("application/x-aitcamsrc-stats", "clock-jumps",
                                          G_TYPE_UINT64, router_.clock_jumps(), "recordings-ended",
                                          G_TYPE_UINT64, router_.recordings_ended(), nullptr);
    const std::lock_guard lock(mutex_);
    for (const auto& pad : pads_) {
        if (pad != nullptr) {
            GstStructure* one = pad->stats();
            gst_structure_set(all, row_of(pad->stream()).pad, GST_TYPE_STRUCTURE, one, nullptr);
            gst_structure_free(one);
        }
    }
    return all;
}

// --- what the control thread tells

void CameraSource::progress(Progress progress) {
    GST_INFO_OBJECT(element_, "%s", words_for(progress));
    gst_element_post_message(
        element_, gst_message_new_progress(GST_OBJECT(element_), type_of(progress), "camera",
                                           words_for(progress)));
}

void CameraSource::failed(Trouble trouble, const std::string& sentence) {
    const ErrorRow row = error_of(trouble);
    std::string text = sentence;
    if (trouble == Trouble::kNoPlugin) {
        text += std::string(". The property plugin or the environment variable ") +
                kPluginVariable + " names the file.";
    }
    if (row.while_bringing_up) {
        gst_element_post_message(
            element_, gst_message_new_progress(GST_OBJECT(element_), GST_PROGRESS_TYPE_ERROR,
                                               "camera", text.c_str()));
    }
    gst_element_message_full(element_, GST_MESSAGE_ERROR, row.domain, row.code,
                             g_strdup(text.c_str()), nullptr, __FILE__, __func__, __LINE__);
    end_streams();
}

void CameraSource::warned(const std::string& sentence) {
    GST_ELEMENT_WARNING(element_, RESOURCE, SETTINGS, ("%s", sentence.c_str()), (nullptr));
}

}  // namespace gstcam
