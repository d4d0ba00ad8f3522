// The fault cases on the virtual bus: a program of libusb asks.
#include <libusb-1.0/libusb.h>

#include <stdexcept>

#include "tests/line/fault_cases.h"
#include "tests/virtbus/bus_fixture.h"

namespace virtcam::line::test {
namespace {

using std::chrono::milliseconds;
using virtcam::bus::test::Transfer;
using Clock = std::chrono::steady_clock;

constexpr int kDownloadInterface = 2;

nlohmann::json configuration(bool boot_code) {
    return {{"camera",
             {{"identity", boot_code ? "boot-code" : "run-time"},
              {"paced", false},
              {"audio_paced", false}}},
            {"bus", {{"listing", ""}, {"quiet", true}}}};
}

void require(bool condition, const char* what) {
    if (!condition) {
        throw std::runtime_error(what);
    }
}

class ProgramOfLibusb : public FrontEnd {
  public:
    explicit ProgramOfLibusb(bool boot_code) {
        virtcam::bus::reset(configuration(boot_code));
        require(libusb_init(&context_) == 0, "no context");
        handle_ = libusb_open_device_with_vid_pid(
            context_, virtcam::bus::test::kVendor,
            boot_code ? virtcam::bus::test::kBootProduct : virtcam::bus::test::kRunProduct);
        require(handle_ != nullptr, "no camera");
        claimed_ = boot_code ? std::vector{kDownloadInterface} : std::vector{0, 1, 2, 3};
        for (const int interface : claimed_) {
            require(libusb_claim_interface(handle_, interface) == 0, "interface not claimed");
        }
        if (!boot_code) {
            require(libusb_set_interface_alt_setting(handle_, 3, 1) == 0, "no sound");
        }
    }

    ~ProgramOfLibusb() override {
        for (const int interface : claimed_) {
            libusb_release_interface(handle_, interface);
        }
        libusb_close(handle_);
        libusb_exit(context_);
        for (const auto& complaint : virtcam::bus::take_complaints()) {
            ADD_FAILURE() << complaint.text;
        }
    }

    void add_rule(const nlohmann::json& rule) override { virtcam::bus::add_fault(rule); }
    milliseconds waited() const override { return waited_; }

    Seen ask(Question question, milliseconds patience) override {
        const auto timeout = static_cast<unsigned>(patience.count());
        switch (question) {
            case Question::kGetVolume: {
                Transfer get = Transfer::control(handle_, 0xA1, 0x81, 0x0200, 0x0503, 2, timeout);
                return put(get, patience);
            }
            case Question::kSetVolume: {
                Transfer set = Transfer::control(handle_, 0x21, 0x01, 0x0200, 0x0503, 2, timeout);
                set.buffer().back() = 0xF8;
                return put(set, patience);
            }
            case Question::kPicture: {
                start_video();
                Transfer bulk = Transfer::bulk(handle_, 16384, timeout);
                return put(bulk, patience);
            }
            case Question::kDownload: {
                require(control(0x40, 130, 32, 0, 0) == 0, "no download announced");
                Transfer out = Transfer::bulk(handle_, 16, timeout);
                out->endpoint = 1;
                return put(out, patience);
            }
            case Question::kSound:
                break;
        }
        Transfer iso = Transfer::iso(handle_, 3, timeout);
        return put(iso, patience);
    }

  private:
    int control(uint8_t type, uint8_t request, uint16_t value, uint16_t index, uint16_t length) {
        return libusb_control_transfer(handle_, type, request, value, index, probe_.data(), length,
                                       1000);
    }

    void start_video() {
        probe_ = {0, 0, 3, 1};  // MJPEG
        require(control(0x21, 0x01, 0x0100, 1, 26) == 26 &&
                    control(0xA1, 0x81, 0x0100, 1, 26) == 26 &&
                    control(0x21, 0x01, 0x0200, 1, 26) == 26,
                "no stream");
        // What comes later than the host's patience would prove nothing.
        require(virtcam::bus::wait_until(
                    [] { return virtcam::bus::camera().status().at("frames") > 0; },
                    std::chrono::seconds(30)),
                "no picture");
    }

    Seen put(Transfer& transfer, milliseconds patience) {
        const size_t commands = virtcam::bus::camera().commands().size();
        const auto begin = Clock::now();
        require(transfer.submit() == 0, "not submitted");
        while (transfer.completions() == 0) {
            require(Clock::now() - begin < patience + std::chrono::seconds(10), "never ended");
            timeval round{0, 5000};
            libusb_handle_events_timeout(context_, &round);
        }
        waited_ = std::chrono::duration_cast<milliseconds>(Clock::now() - begin);
        Seen seen = read(transfer);
        const bool control = transfer->type == LIBUSB_TRANSFER_TYPE_CONTROL;
        seen.reached_device = !control || virtcam::bus::camera().commands().size() != commands;
        seen.on_the_bus = virtcam::bus::camera().attached();
        // The bus tells a program of a departure, and of its own time-out, by an ending.
        seen.answered = seen.status != Status::kNoDevice &&
                        !(seen.status == Status::kTimedOut && waited_ >= patience);
        return seen;
    }

    static Seen read(Transfer& transfer) {
        Seen seen;
        seen.status = static_cast<Status>(transfer.status());
        if (transfer->type == LIBUSB_TRANSFER_TYPE_ISOCHRONOUS) {
            for (int i = 0; i < transfer->num_iso_packets; ++i) {
                const auto& packet = transfer->iso_packet_desc[i];
                const uint8_t* data =
                    libusb_get_iso_packet_buffer_simple(transfer.get(), static_cast<unsigned>(i));
                seen.packets.push_back(
                    {static_cast<Status>(packet.status), {data, data + packet.actual_length}});
            }
            return seen;
        }
        seen.count = static_cast<size_t>(transfer->actual_length);
        const bool control = transfer->type == LIBUSB_TRANSFER_TYPE_CONTROL;
        const uint8_t direction = control ? transfer.buffer()[0] : transfer->endpoint;
        if ((direction & LIBUSB_ENDPOINT_IN) != 0) {
            const auto* data = transfer.buffer().data() + (control ? LIBUSB_CONTROL_SETUP_SIZE : 0);
            seen.data.assign(data, data + seen.count);
        }
        return seen;
    }

    libusb_context* context_ = nullptr;
    libusb_device_handle* handle_ = nullptr;
    std::vector<int> claimed_;
    std::array<uint8_t, 26> probe_{};
    milliseconds waited_{0};
};

}  // namespace

std::unique_ptr<FrontEnd> make_front_end(bool boot_code) {
    return std::make_unique<ProgramOfLibusb>(boot_code);
}

}  // namespace virtcam::line::test
