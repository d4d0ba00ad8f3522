// Whether the camera is on the bus, as a user sees it: the plug-in tells no more than "usable".
#pragma once

struct libusb_context;

namespace gstcam {

/// Looks through libusb, without opening anything. One thread.
class BusWatch {
  public:
    enum class Sight { kNothing, kWithoutFirmware, kCamera };

    BusWatch();
    ~BusWatch();
    BusWatch(const BusWatch&) = delete;
    BusWatch& operator=(const BusWatch&) = delete;

    Sight look();

  private:
    libusb_context* context_ = nullptr;  ///< null: libusb cannot be used, nothing is seen
};

}  // namespace gstcam
