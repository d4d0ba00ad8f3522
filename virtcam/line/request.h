// What a host asks of the camera, as far as the line needs to know it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "virtcam/faults/rule.h"
#include "virtcam/model/bytes.h"
#include "virtcam/model/setup.h"

namespace virtcam::line {

/// @param packet eight bytes, as they lie on the wire.
inline model::Setup read_setup(model::ByteView packet) {
    return {packet[0], packet[1], model::load_u16(packet, 2), model::load_u16(packet, 4),
            model::load_u16(packet, 6)};
}

/// A front end derives its own from it and keeps it where it is while an endpoint has it.
struct Request {
    std::optional<faults::TransferKind> kind;  ///< nothing: a control request
    uint8_t endpoint = 0;                      ///< address with the direction bit; control: 0
    model::Setup setup;                        ///< control only
    bool malformed = false;       ///< control: the host contradicts itself, so it is stalled
    model::ByteView out;          ///< OUT data, the front end's
    size_t room = 0;              ///< for IN data
    std::vector<size_t> packets;  ///< isochronous only: room of each

    bool is_control() const { return !kind; }
    bool is_iso() const { return kind == faults::TransferKind::kIsochronous; }
    bool to_host() const { return (endpoint & 0x80) != 0; }  ///< control: see the setup packet
};

}  // namespace virtcam::line
