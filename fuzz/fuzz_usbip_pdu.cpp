// What a host sends after it has imported the camera: commands cut apart, queued, given up and
// answered. The answers must be ones that a kernel takes.
#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "tests/line/lone_camera.h"
#include "virtcam/usbip/pdu_reader.h"
#include "virtcam/usbip/urb_stream.h"

namespace {

/// A reply begins with a header of this side's commands, and has at least that.
void check_replies(virtcam::usbip::ByteView wire) {
    if (wire.empty()) {
        return;
    }
    if (wire.size() < virtcam::usbip::kHeaderBytes) {
        __builtin_trap();
    }
    const uint32_t command = virtcam::usbip::load_be32(wire, 0);
    if (command != 3 && command != 4) {
        __builtin_trap();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static virtcam::line::test::LoneCamera camera(virtcam::line::test::LoneCamera::run_time());
    camera.set_paced(false);
    virtcam::usbip::UrbStream stream(camera);
    virtcam::usbip::PduReader reader;
    // The first byte says how the rest is cut.
    const size_t step = size > 0 ? 1 + data[0] : 1;
    virtcam::usbip::Bytes wire;
    try {
        for (size_t at = 1; at < size; at += step) {
            reader.feed({data + at, std::min(step, size - at)});
            while (auto command = reader.next()) {
                if (const auto* unlink = std::get_if<virtcam::usbip::Unlink>(&*command)) {
                    stream.unlink(*unlink, wire);
                } else {
                    stream.submit(std::get<virtcam::usbip::Submit>(std::move(*command)));
                }
                stream.serve(virtcam::model::Clock::now(), wire);
                check_replies(wire);
                wire.clear();
            }
        }
    } catch (const virtcam::usbip::ProtocolError&) {
        // the connection would be closed
    }
    return 0;
}
