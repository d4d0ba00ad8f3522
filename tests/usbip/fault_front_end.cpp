// The fault cases over USB/IP: a kernel asks. The time is the test's.
#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <utility>

#include "tests/line/fault_cases.h"
#include "tests/line/lone_camera.h"
#include "tests/usbip/wire.h"
#include "virtcam/usbip/urb_stream.h"

namespace virtcam::line::test {
namespace {

using std::chrono::milliseconds;
using virtcam::model::Clock;
using virtcam::model::Setup;
using virtcam::model::TimePoint;
using virtcam::usbip::Submit;
using virtcam::usbip::UrbStream;
using virtcam::usbip::test::Reply;

virtcam::model::CameraConfig config(bool boot_code) {
    virtcam::model::CameraConfig config;
    if (!boot_code) {
        config = LoneCamera::run_time();
    }
    config.paced = false;
    return config;
}

Status status_for(int error) {
    constexpr std::pair<int, Status> kStatuses[] = {
        {0, Status::kCompleted},         {-EPIPE, Status::kStall},
        {-ETIMEDOUT, Status::kTimedOut}, {-EOVERFLOW, Status::kOverflow},
        {-ESHUTDOWN, Status::kNoDevice}, {-EPROTO, Status::kError},
        {-EILSEQ, Status::kError},
    };
    for (const auto& [code, status] : kStatuses) {
        if (code == error) {
            return status;
        }
    }
    throw std::runtime_error("no ending is called " + std::to_string(error));
}

Submit control_submit(const Setup& setup, Bytes out = {}) {
    Submit submit;
    submit.endpoint = setup.device_to_host() ? 0x80 : 0x00;
    submit.length = setup.length;
    Bytes packet{setup.request_type, setup.request};
    for (const uint16_t word : {setup.value, setup.index, setup.length}) {
        virtcam::model::append_le(packet, 2, word);
    }
    std::copy(packet.begin(), packet.end(), submit.setup.begin());
    submit.out = std::move(out);
    return submit;
}

class Kernel : public FrontEnd {
  public:
    explicit Kernel(bool boot_code) : device_(config(boot_code)), stream_(device_) {
        device_.set_paced(false);
        control({0x00, 9, 1, 0, 0});
        if (!boot_code) {
            control({0x01, 11, 1, 3, 0});
        }
    }

    void add_rule(const nlohmann::json& rule) override { device_.rules().add(rule); }
    milliseconds waited() const override { return waited_; }

    Seen ask(Question question, milliseconds patience) override {
        Submit submit;
        switch (question) {
            case Question::kGetVolume:
                return put(control_submit({0xA1, 0x81, 0x0200, 0x0503, 2}), patience);
            case Question::kSetVolume:
                return put(control_submit({0x21, 0x01, 0x0200, 0x0503, 2}, {0x00, 0xF8}), patience);
            case Question::kPicture:
                start_video();
                submit.endpoint = 0x81;
                submit.length = 16384;
                return put(std::move(submit), patience);
            case Question::kDownload:
                control({0x40, 130, 32, 0, 0});
                submit.endpoint = 0x01;
                submit.length = 16;
                submit.out.resize(16);
                return put(std::move(submit), patience);
            case Question::kSound:
                break;
        }
        submit.endpoint = 0x82;
        submit.length = 300;
        submit.packets = {{0, 100}, {100, 100}, {200, 100}};
        return put(std::move(submit), patience);
    }

  private:
    Bytes control(const Setup& setup, Bytes out = {}) {
        const Seen seen = put(control_submit(setup, std::move(out)), milliseconds(0));
        if (!seen.answered || seen.status != Status::kCompleted) {
            throw std::runtime_error("a request of the preparation failed");
        }
        return seen.data;
    }

    void start_video() {
        Bytes probe(26);
        probe[2] = 3;  // MJPEG
        probe[3] = 1;
        control({0x21, 0x01, 0x0100, 1, 26}, probe);
        control({0x21, 0x01, 0x0200, 1, 26}, control({0xA1, 0x81, 0x0100, 1, 26}));
    }

    Seen put(Submit submit, milliseconds patience) {
        submit.seqnum = ++seqnum_;
        const bool to_host = submit.device_to_host();
        const bool control = submit.is_control();
        const size_t commands = device_.camera().commands().size();
        stream_.submit(std::move(submit));
        Bytes wire = wait(patience);
        Seen seen;
        seen.answered = !wire.empty();
        if (seen.answered) {
            seen = read(virtcam::usbip::test::take_reply(wire, to_host), to_host);
        } else {
            stream_.unlink({++seqnum_, seqnum_ - 1}, wire);
        }
        seen.reached_device = !control || device_.camera().commands().size() != commands;
        seen.on_the_bus = device_.camera().attached();
        return seen;
    }

    /// Lets the time pass until there is an answer, or the host has waited for long enough.
    Bytes wait(milliseconds patience) {
        Bytes wire;
        const TimePoint begin = now_;
        for (;;) {
            const TimePoint camera = device_.camera().advance(now_);
            const TimePoint next = std::min(camera, stream_.serve(now_, wire));
            waited_ = std::chrono::duration_cast<milliseconds>(now_ - begin);
            if (!wire.empty() || next > begin + patience) {
                return wire;
            }
            now_ = std::max(next, now_ + milliseconds(1));
        }
    }

    static Seen read(const Reply& reply, bool to_host) {
        Seen seen;
        seen.status = status_for(reply.status);
        if (reply.packets != 0) {
            size_t at = 0;
            for (const virtcam::usbip::test::IsoReply& packet : reply.iso) {
                const auto data = reply.data.begin() + static_cast<std::ptrdiff_t>(at);
                seen.packets.push_back({status_for(packet.status), {data, data + packet.actual}});
                at += packet.actual;
            }
            return seen;
        }
        seen.count = reply.actual;
        if (to_host) {
            seen.data = reply.data;
        }
        return seen;
    }

    LoneCamera device_;
    UrbStream stream_;
    TimePoint now_ = Clock::now();
    uint32_t seqnum_ = 0;
    milliseconds waited_{0};
};

}  // namespace

std::unique_ptr<FrontEnd> make_front_end(bool boot_code) {
    return std::make_unique<Kernel>(boot_code);
}

}  // namespace virtcam::line::test
