#include <libuvc/libuvc.h>

#include <stdexcept>

#include "bench/compare/sides.h"

namespace bench {
namespace {

constexpr int kWidth = 640, kHeight = 480, kRate = 30;

void check(uvc_error_t error, const char* what) {
    if (error != UVC_SUCCESS) {
        throw std::runtime_error(std::string("libuvc: ") + what + ": " + uvc_strerror(error));
    }
}

class LibuvcSide : public StreamSide {
  public:
    LibuvcSide() : StreamSide(Side::kLibuvc) {
        check(uvc_init(&context_, nullptr), "init");
        check(uvc_find_device(context_, &device_, kPlainVendor, kLibuvcProduct, nullptr), "find");
        check(uvc_open(device_, &handle_), "open");
    }
    ~LibuvcSide() override {
        stop();
        uvc_close(handle_);
        uvc_unref_device(device_);
        uvc_exit(context_);
    }

    void start() override {
        uvc_stream_ctrl_t control;
        check(uvc_get_stream_ctrl_format_size(handle_, &control, UVC_FRAME_FORMAT_YUYV, kWidth,
                                              kHeight, kRate),
              "negotiate");
        check(uvc_stream_open_ctrl(handle_, &stream_, &control), "open stream");
        check(uvc_stream_start(stream_, on_frame, this, 0), "start");
    }
    void stop() override {
        if (stream_ != nullptr) {
            uvc_stream_close(stream_);
            stream_ = nullptr;
        }
    }

  private:
    static void on_frame(uvc_frame_t* frame, void* self) {
        static_cast<LibuvcSide*>(self)->consumer_.take(static_cast<const uint8_t*>(frame->data),
                                                       frame->data_bytes);
    }

    uvc_context_t* context_ = nullptr;
    uvc_device_t* device_ = nullptr;
    uvc_device_handle_t* handle_ = nullptr;
    uvc_stream_handle_t* stream_ = nullptr;
};

}  // namespace

std::unique_ptr<StreamSide> make_libuvc_side() {
    return std::make_unique<LibuvcSide>();
}

}  // namespace bench
