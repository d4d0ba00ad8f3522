// The messages of a USB/IP connection after import, and how they lie on the wire. Headers and
// isochronous descriptors are big-endian; setup packet and data are USB's own bytes.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <variant>
#include <vector>

#include "virtcam/usbip/big_endian.h"

namespace virtcam::usbip {

inline constexpr size_t kHeaderBytes = 48;
inline constexpr size_t kIsoDescriptorBytes = 16;

/// Place of one packet in the host's buffer.
struct IsoPacket {
    uint32_t offset = 0;
    uint32_t length = 0;
};

/// CMD_SUBMIT, checked: the lengths agree with each other and with what follows the header.
struct Submit {
    uint32_t seqnum = 0;
    uint8_t endpoint = 0;  ///< address, bit 7 set for IN; 0x00 or 0x80 for control
    uint32_t length = 0;   ///< OUT: size of `out`; IN: room at the host
    std::array<uint8_t, 8> setup{};
    Bytes out;
    std::vector<IsoPacket> packets;  ///< empty unless isochronous

    bool device_to_host() const { return (endpoint & 0x80) != 0; }
    uint8_t number() const { return endpoint & 0x0F; }
    bool is_control() const { return number() == 0; }
    bool is_iso() const { return !packets.empty(); }
};

/// CMD_UNLINK: the host gives up the request `victim`.
struct Unlink {
    uint32_t seqnum = 0;
    uint32_t victim = 0;
};

using Command = std::variant<Submit, Unlink>;

struct IsoResult {
    Bytes data;      ///< at most the packet's length
    int status = 0;  ///< 0 or a negative errno
};

/// What the device made of a request. `data` is empty for isochronous requests.
struct Result {
    int status = 0;         ///< 0 or a negative errno, as the kernel's drivers see it
    Bytes data;             ///< IN data
    uint32_t accepted = 0;  ///< OUT: bytes taken
    std::vector<IsoResult> packets;
};

/// Appends RET_SUBMIT. Whatever `result` holds, no more is sent than `submit` has room for, and the
/// counts agree with each other: the kernel of the other side trusts, or drops the connection.
void append_reply(const Submit& submit, const Result& result, uint32_t frame_number, Bytes& wire);

/// Appends RET_UNLINK.
void append_reply(const Unlink& unlink, int status, Bytes& wire);

}  // namespace virtcam::usbip
