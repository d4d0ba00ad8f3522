// The traffic of the virtual bus as a capture file that Wireshark reads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "virtcam/bus/objects.h"

namespace virtcam::bus {

/// Writes a pcap file of link type LINKTYPE_USB_LINUX_MMAPPED (220): the packets that the kernel's
/// usbmon would have, each once when it is submitted and once when it ends. Guarded by the lock.
class Capture {
  public:
    /// @param path empty: none is written.
    /// @param payloads whether data of bulk and isochronous transfers is written, or their length
    /// alone. Control transfers always have theirs.
    Capture(const std::string& path, bool payloads);

    bool enabled() const { return file_ != nullptr; }
    void submitted(const Urb& urb);
    void ended(const Urb& urb);
    /// A request of the host's own core, with the data of its answer.
    void kernel_request(uint8_t address, const model::Setup& setup, model::ByteView data,
                        bool done);

  private:
    struct Packet;

    void write(const Packet& packet);

    struct Closer {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    std::unique_ptr<std::FILE, Closer> file_;
    bool payloads_;
    uint64_t kernel_requests_ = 0;
};

}  // namespace virtcam::bus
