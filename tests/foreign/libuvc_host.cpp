// A host as others write it: libuvc finds the camera, sets its controls and takes pictures. It says
// what is not as it should be, a line each, and then ends with 1.
#include <libuvc/libuvc.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "virtcam/model/counter_code.h"

namespace {

constexpr int kVendor = 0x114D;
constexpr int kProduct = 0x2066;
constexpr int kWidth = 640, kHeight = 480;
constexpr uint8_t kCameraTerminal = 1, kProcessingUnit = 3;

int g_faults = 0;

bool expect(bool good, const std::string& what) {
    if (!good) {
        std::printf("not so: %s\n", what.c_str());
        ++g_faults;
    }
    return good;
}

bool expect_success(uvc_error_t result, const std::string& what) {
    return expect(result == UVC_SUCCESS, what + ": " + uvc_strerror(result));
}

struct Closer {
    void operator()(uvc_context_t* context) const { uvc_exit(context); }
    void operator()(uvc_device_t* device) const { uvc_unref_device(device); }
    void operator()(uvc_device_handle_t* handle) const { uvc_close(handle); }
    void operator()(uvc_device_descriptor_t* descriptor) const {
        uvc_free_device_descriptor(descriptor);
    }
};
template <typename Thing>
using Owned = std::unique_ptr<Thing, Closer>;

/// The camera, open; libuvc wants a context for each time that one is opened.
struct Camera {
    Owned<uvc_context_t> context;
    Owned<uvc_device_t> device;
    Owned<uvc_device_handle_t> handle;
};

std::optional<Camera> open_camera() {
    Camera camera;
    uvc_context_t* context = nullptr;
    if (!expect_success(uvc_init(&context, nullptr), "init")) {
        return std::nullopt;
    }
    camera.context.reset(context);
    uvc_device_t* device = nullptr;
    if (!expect_success(uvc_find_device(context, &device, kVendor, kProduct, nullptr), "find")) {
        return std::nullopt;
    }
    camera.device.reset(device);
    uvc_device_handle_t* handle = nullptr;
    if (!expect_success(uvc_open(device, &handle), "open")) {
        return std::nullopt;
    }
    camera.handle.reset(handle);
    return camera;
}

void look_at_descriptors(const Camera& camera) {
    uvc_device_descriptor_t* read = nullptr;
    if (!expect_success(uvc_get_device_descriptor(camera.device.get(), &read), "descriptor")) {
        return;
    }
    const Owned<uvc_device_descriptor_t> descriptor(read);
    expect(descriptor->idVendor == kVendor && descriptor->idProduct == kProduct, "numbers");
    expect(descriptor->product != nullptr && std::strlen(descriptor->product) > 0, "product text");
    std::vector<int> frames;
    for (auto* format = uvc_get_format_descs(camera.handle.get()); format != nullptr;
         format = format->next) {
        int count = 0;
        for (auto* frame = format->frame_descs; frame != nullptr; frame = frame->next) {
            ++count;
        }
        frames.push_back(count);
    }
    expect(frames == std::vector<int>{1, 1, 1, 5}, "frames of four formats");
}

/// A control of up to 16 bits that is one number.
struct NumberControl {
    const char* name;
    uint8_t unit, selector;
    bool is_signed;
};

constexpr NumberControl kControls[] = {
    {"focus", kCameraTerminal, 0x06, false},
    {"zoom", kCameraTerminal, 0x0B, false},
    {"backlight", kProcessingUnit, 0x01, false},
    {"brightness", kProcessingUnit, 0x02, true},
    {"contrast", kProcessingUnit, 0x03, false},
    {"gain", kProcessingUnit, 0x04, false},
    {"hue", kProcessingUnit, 0x06, true},
    {"saturation", kProcessingUnit, 0x07, false},
    {"sharpness", kProcessingUnit, 0x08, false},
    {"gamma", kProcessingUnit, 0x09, false},
    {"white balance", kProcessingUnit, 0x0A, false},
};

std::optional<int> get(const Camera& camera, const NumberControl& control, uvc_req_code what) {
    std::array<uint8_t, 2> bytes{};
    const int got = uvc_get_ctrl(camera.handle.get(), control.unit, control.selector, bytes.data(),
                                 static_cast<int>(bytes.size()), what);
    if (!expect(got == 2, std::string(control.name) + ": request " + std::to_string(what) +
                              " answers " + std::to_string(got))) {
        return std::nullopt;
    }
    const int value = bytes[0] | bytes[1] << 8;
    return control.is_signed ? static_cast<int16_t>(value) : value;
}

bool set(const Camera& camera, const NumberControl& control, int value) {
    std::array<uint8_t, 2> bytes{static_cast<uint8_t>(value & 0xFF),
                                 static_cast<uint8_t>(value >> 8 & 0xFF)};
    return uvc_set_ctrl(camera.handle.get(), control.unit, control.selector, bytes.data(),
                        static_cast<int>(bytes.size())) == 2;
}

/// To both ends and back to the default, each read back.
void try_control(const Camera& camera, const NumberControl& control) {
    const auto least = get(camera, control, UVC_GET_MIN);
    const auto most = get(camera, control, UVC_GET_MAX);
    const auto standard = get(camera, control, UVC_GET_DEF);
    if (!least || !most || !standard) {
        return;
    }
    expect(*least <= *standard && *standard <= *most && *least < *most,
           std::string(control.name) + ": range");
    for (const int value : {*least, *most, *standard}) {
        expect(set(camera, control, value) && get(camera, control, UVC_GET_CUR) == value,
               std::string(control.name) + ": set to " + std::to_string(value));
    }
}

void try_named_controls(const Camera& camera) {
    int32_t pan = 0, tilt = 0;
    expect_success(uvc_set_pantilt_abs(camera.handle.get(), 7200, -3600), "set pan and tilt");
    expect_success(uvc_get_pantilt_abs(camera.handle.get(), &pan, &tilt, UVC_GET_CUR),
                   "get pan and tilt");
    expect(pan == 7200 && tilt == -3600, "pan and tilt read back");
    uvc_set_pantilt_abs(camera.handle.get(), 0, 0);
    // What the camera does not have is refused, and what comes after it works.
    uint16_t iris = 0;
    expect(uvc_get_iris_abs(camera.handle.get(), &iris, UVC_GET_CUR) != UVC_SUCCESS, "no iris");
    int16_t brightness = 0;
    expect_success(uvc_get_brightness(camera.handle.get(), &brightness, UVC_GET_CUR),
                   "brightness after a stall");
}

/// What arrives, judged picture by picture, on libuvc's thread.
class Viewer {
  public:
    explicit Viewer(uvc_frame_format format) : format_(format) {}

    static void on_picture(uvc_frame_t* picture, void* self) {
        static_cast<Viewer*>(self)->look_at(*picture);
    }

    /// False when they do not come in time.
    bool wait_for(unsigned pictures) {
        std::unique_lock lock(mutex_);
        return came_.wait_for(lock, std::chrono::seconds(20), [&] { return count_ >= pictures; });
    }
    std::string fault() const {
        const std::lock_guard lock(mutex_);
        return fault_;
    }

  private:
    void look_at(const uvc_frame_t& picture) {
        const std::string fault = fault_of(picture);
        const std::lock_guard lock(mutex_);
        ++count_;
        if (fault_.empty() && !fault.empty()) {
            fault_ = "picture " + std::to_string(count_) + " " + fault;
        }
        came_.notify_all();
    }

    std::string fault_of(const uvc_frame_t& picture) {
        const auto* bytes = static_cast<const uint8_t*>(picture.data);
        const size_t size = picture.data_bytes;
        switch (format_) {
            case UVC_FRAME_FORMAT_YUYV:
                return fault_of_yuyv(bytes, size);
            case UVC_FRAME_FORMAT_MJPEG: {
                const bool whole = size > 4 && bytes[0] == 0xFF && bytes[1] == 0xD8 &&
                                   bytes[size - 2] == 0xFF && bytes[size - 1] == 0xD9;
                return whole ? "" : "is no whole JPEG";
            }
            default:
                return size > 32 ? "" : "has nothing behind its header";
        }
    }

    /// The camera numbers its pictures: none may come twice or out of its turn.
    std::string fault_of_yuyv(const uint8_t* bytes, size_t size) {
        if (size != size_t{kWidth} * kHeight * 2) {
            return "has " + std::to_string(size) + " bytes";
        }
        std::vector<uint8_t> luma(size_t{kWidth} * kHeight);
        for (size_t i = 0; i < luma.size(); ++i) {
            luma[i] = bytes[2 * i];
        }
        const auto number = virtcam::model::read_counter(luma.data(), kWidth, kHeight, kWidth);
        if (!number) {
            return "has no number";
        }
        const bool follows = *number > last_number_;
        last_number_ = *number;
        return follows ? "" : "comes again";
    }

    const uvc_frame_format format_;
    mutable std::mutex mutex_;
    std::condition_variable came_;
    unsigned count_ = 0;
    uint32_t last_number_ = 0;
    std::string fault_;
};

struct Wish {
    const char* name;
    uvc_frame_format format;
    int pictures_per_second;
    unsigned pictures;
};

void stream(const Camera& camera, const Wish& wish) {
    const std::string name =
        std::string(wish.name) + " at " + std::to_string(wish.pictures_per_second) + "/s";
    uvc_stream_ctrl_t control{};
    if (!expect_success(uvc_get_stream_ctrl_format_size(camera.handle.get(), &control, wish.format,
                                                        kWidth, kHeight, wish.pictures_per_second),
                        name + ": negotiation")) {
        return;
    }
    Viewer viewer(wish.format);
    if (!expect_success(
            uvc_start_streaming(camera.handle.get(), &control, Viewer::on_picture, &viewer, 0),
            name + ": start")) {
        return;
    }
    expect(viewer.wait_for(wish.pictures), name + ": the pictures do not come");
    uvc_stop_streaming(camera.handle.get());
    expect(viewer.fault().empty(), name + ": " + viewer.fault());
}

void stream_everything(const Camera& camera) {
    constexpr Wish kWishes[] = {
        {"YUY2", UVC_FRAME_FORMAT_YUYV, 30, 30},
        {"MJPEG", UVC_FRAME_FORMAT_MJPEG, 30, 30},
        {"YUY2", UVC_FRAME_FORMAT_YUYV, 10, 10},
        {"MJPEG", UVC_FRAME_FORMAT_MJPEG, 10, 10},
#if LIBUVC_VERSION_GTE(0, 0, 7)
        {"H.264", UVC_FRAME_FORMAT_H264, 30, 30},
#endif
    };
    for (const Wish& wish : kWishes) {
        stream(camera, wish);
    }
    for (int again = 0; again < 4; ++again) {
        stream(camera, again % 2 == 0 ? Wish{"YUY2 again", UVC_FRAME_FORMAT_YUYV, 30, 2}
                                      : Wish{"MJPEG again", UVC_FRAME_FORMAT_MJPEG, 30, 2});
    }
}

/// The H.264 frames as far as this libuvc goes: negotiation, for every size.
void negotiate_h264(const Camera& camera) {
    for (uint8_t frame = 1; frame <= 5; ++frame) {
        uvc_stream_ctrl_t control{};
        control.bmHint = 1;
        control.bFormatIndex = 4;
        control.bFrameIndex = frame;
        control.dwFrameInterval = 333333;
        control.bInterfaceNumber = 1;
        const std::string name = "H.264, size " + std::to_string(frame);
        if (expect_success(uvc_probe_stream_ctrl(camera.handle.get(), &control), name)) {
            expect(control.bFrameIndex == frame && control.dwMaxVideoFrameSize > 0, name);
        }
    }
}

}  // namespace

int main() {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const auto camera = open_camera();
    if (!camera) {
        return 1;
    }
    look_at_descriptors(*camera);
    for (const NumberControl& control : kControls) {
        try_control(*camera, control);
    }
    try_named_controls(*camera);
    negotiate_h264(*camera);
    stream_everything(*camera);
    std::printf("libuvc %s%s\n", LIBUVC_VERSION_STR,
                LIBUVC_VERSION_GTE(0, 0, 7) ? "" : " (knows no H.264: negotiated only)");
    return g_faults == 0 ? 0 : 1;
}
