// A USB/IP connection from its first byte: device list, import, and the stream of requests that
// follows, cut anywhere; and what the importing side makes of an answer.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "fuzz/tape.h"
#include "tests/line/lone_camera.h"
#include "virtcam/usbip/handshake.h"
#include "virtcam/usbip/pdu_reader.h"
#include "virtcam/usbip/urb_stream.h"

namespace {

using namespace virtcam::usbip;

/// What the server does with a peer, without the sockets.
class Connection {
  public:
    explicit Connection(virtcam::line::Device& device) : device_(device) {}

    void take(ByteView bytes) {
        if (stream_) {
            return serve(bytes);
        }
        received_.insert(received_.end(), bytes.begin(), bytes.end());
        while (const auto request = take_request(received_)) {
            answer(*request);
            if (stream_) {
                const Bytes rest = std::move(received_);
                return serve(rest);
            }
        }
    }

  private:
    void answer(const OpRequest& request) {
        const auto& camera = device_.camera();
        if (request.kind == OpRequest::Kind::kDeviceList) {
            if (device_list_reply(camera).size() < kOpHeaderBytes) {
                __builtin_trap();
            }
            return;
        }
        const auto status = request.our_camera ? ImportStatus::kOk : ImportStatus::kNoDevice;
        if (import_reply_status(import_reply(camera, status)) != static_cast<uint32_t>(status)) {
            __builtin_trap();
        }
        if (request.our_camera) {
            stream_.emplace(device_);
        }
    }

    void serve(ByteView bytes) {
        reader_.feed(bytes);
        while (auto command = reader_.next()) {
            Bytes wire;
            if (const auto* unlink = std::get_if<Unlink>(&*command)) {
                stream_->unlink(*unlink, wire);
            } else {
                stream_->submit(std::get<Submit>(std::move(*command)));
            }
            stream_->serve(virtcam::model::Clock::now(), wire);
            if (!wire.empty() && wire.size() < kHeaderBytes) {
                __builtin_trap();
            }
        }
    }

    virtcam::line::Device& device_;
    Bytes received_;
    PduReader reader_;
    std::optional<UrbStream> stream_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static virtcam::line::test::LoneCamera camera(virtcam::line::test::LoneCamera::run_time());
    camera.set_paced(false);
    const size_t step = size > 0 ? 1 + data[0] : 1;
    try {
        Connection connection(camera);
        for (size_t at = 1; at < size; at += step) {
            connection.take({data + at, std::min(step, size - at)});
        }
    } catch (const ProtocolError&) {
        // the connection would be closed
    }
    try {
        import_reply_status(ByteView(data, size).first(std::min(size, kOpHeaderBytes)));
    } catch (const ProtocolError&) {
        // not a server of ours
    }
    return 0;
}
