// Commands as a kernel writes them, and the answers that come back, read apart.
#pragma once

#include <cstdint>
#include <vector>

#include "virtcam/model/camera.h"
#include "virtcam/usbip/big_endian.h"

namespace virtcam::usbip::test {

/// Header of CMD_SUBMIT; tests change what they want to be wrong.
struct SubmitHeader {
    uint32_t command = 1;
    uint32_t seqnum = 1;
    uint32_t direction = 1;
    uint32_t endpoint = 0;
    uint32_t length = 0;
    uint32_t packets = 0;
    Bytes setup = Bytes(8);

    Bytes bytes() const;
};

/// A control request; OUT data is appended.
Bytes control_submit(uint32_t seqnum, const virtcam::model::Setup& setup, ByteView out = {});
Bytes bulk_in_submit(uint32_t seqnum, uint32_t endpoint, uint32_t room);
/// `packets` packets of `length` bytes, one behind the other.
Bytes iso_in_submit(uint32_t seqnum, uint32_t endpoint, uint32_t packets, uint32_t length);
Bytes unlink_command(uint32_t seqnum, uint32_t victim);

struct IsoReply {
    uint32_t offset, length, actual;
    int status;
};

/// One RET_SUBMIT or RET_UNLINK.
struct Reply {
    uint32_t command = 0;
    uint32_t seqnum = 0;
    int status = 0;
    uint32_t actual = 0;
    uint32_t packets = 0;
    Bytes data;
    std::vector<IsoReply> iso;
};

/// Takes the first reply from `wire`, as the kernel does: `data_in` says whether the request was an
/// IN one. Throws std::out_of_range when it is incomplete.
Reply take_reply(Bytes& wire, bool data_in = true);

inline constexpr virtcam::model::Setup kGetDeviceDescriptor{0x80, 6, 0x0100, 0, 18};
inline constexpr virtcam::model::Setup kSetConfiguration{0x00, 9, 1, 0, 0};
inline constexpr virtcam::model::Setup kSoundOn{0x01, 11, 1, 3, 0};

}  // namespace virtcam::usbip::test
