// Answers of every length and content, and every error, to each request of Init, start, SetProperty
// and GetProperty, in virtual time.
#include <cstddef>
#include <cstdint>

#include "aitdbg.h"
#include "fuzz/wild_camera.h"
#include "tests/simulation/host.h"

namespace {

using namespace std::chrono_literals;

constexpr int kProperties = 116;

/// Each request has an answer of its own in the input.
class Answering : public sim::Camera {
  public:
    explicit Answering(fuzz::Tape answers) : answers_(answers) {}

    /// The requests before are answered well.
    void begin() { answers_begun_ = true; }

    sim::Answer control(const sim::Setup& setup, unsigned char* data) override {
        const sim::Answer good = Camera::control(setup, data);
        if (!answers_begun_) {
            return good;
        }
        const uint8_t choice = answers_.byte();
        if (choice == 0) {
            return good;
        }
        if (choice >= 0xF0) {
            return {-(choice & 0x0F) - 1};
        }
        answers_.bytes(data, (setup.type & 0x80) != 0 ? setup.length : 0u);
        return {choice % (setup.length + 1)};
    }

  private:
    fuzz::Tape answers_;
    bool answers_begun_ = false;
};

void set_and_get(sim::Host& host, fuzz::Tape& calls) {
    const auto property = static_cast<CAM_PROPERTY>(calls.byte() % kProperties);
    CAM_PROP_VALUE value;
    value.value = (calls.byte() & 1) != 0 ? static_cast<int>(calls.number()) : calls.byte();
    host->SetProperty(property, &value);
    host->GetProperty(property, &value);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::prepare_television();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Tape tape(data, size);
    const uint8_t head = tape.byte();
    fuzz::Tape calls = tape.cut(tape.byte());
    fuzz::choose_platform(head & 15);
    Answering camera(tape);
    const sim::World world;
    const sim::Bus bus(&camera);
    sim::Bus::publish_listing();
    if ((head & 16) != 0) {
        camera.begin();
    }
    sim::Host host;
    g_embedded_cam_dbg_level = 5;
    const bool usable = host.init();
    camera.begin();
    if (usable && (head & 32) != 0) {
        host->StartRecording();
        sim::pass(100ms);
    }
    while (!calls.empty()) {
        set_and_get(host, calls);
    }
    host->StopRecording();
    host.destroy();
    if (sim::Bus::leavings().transfers != 0) {
        __builtin_trap();
    }
    return 0;
}
