// A camera at the end of the simulated cable that does what it is asked. The cameras of the tests and
// of the fuzz targets derive from it and misbehave.
#pragma once

#include <cstdint>
#include <vector>

#include "tests/simulation/usb.h"

namespace sim {

constexpr uint16_t kBootCode = 0x2065;
constexpr uint16_t kRunTime = 0x2066;

class Camera : public Device {
  public:
    explicit Camera(uint16_t product = kRunTime) : product_(product) {}

    /// 30 at first. From the next payload on.
    void set_frames_per_second(int rate) {
        half_frame_ = Time(std::chrono::seconds(1)) / (2 * rate);
    }
    /// Firmware that has come in, and its burn, after which the camera restarts as a running one.
    const std::vector<uint8_t>& firmware() const { return firmware_; }

    uint16_t product() const override { return product_; }
    Answer control(const Setup& setup, unsigned char* data) override;
    Answer bulk_out(const unsigned char* data, int length) override;
    Ending submitted(const libusb_transfer& transfer) override;
    void fill(libusb_transfer& transfer) override;

  protected:
    /// The next multiplexed frame: a main picture with the next sequence number.
    virtual std::vector<uint8_t> next_frame();
    /// Puts a sub-stream's header and `size` bytes of data behind `frame`.
    static void append(std::vector<uint8_t>& frame, uint16_t format, uint32_t sequence,
                       const uint8_t* data, uint32_t size);

    uint32_t sequence_ = 0;  // of the last main picture

  private:
    void burn();
    void fill_video(libusb_transfer& transfer);

    uint16_t product_;
    std::vector<uint8_t> firmware_;
    std::vector<uint8_t> probe_;
    Time half_frame_ = Time(std::chrono::seconds(1)) / 60;
    Time next_video_{};
    Time next_sound_{};
    std::vector<uint8_t> frame_;
    size_t sent_ = 0;  // of the frame
    uint8_t frame_id_ = 0;
};

}  // namespace sim
