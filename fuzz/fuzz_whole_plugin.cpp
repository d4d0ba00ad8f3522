// The whole plug-in in virtual time: a camera that answers, delivers and goes as the input says, a
// host that calls what the input says, in an order of threads that the input chooses. Besides what the
// sanitizers see: no call lasts longer than its transfers may, no deadlock, and nothing is left.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "aitdbg.h"
#include "fuzz/wild_camera.h"
#include "tests/simulation/host.h"

namespace {

using namespace std::chrono_literals;

constexpr int kMostSteps = 48;
constexpr sim::Time kLongestCall = 10min;  // some two hundred transfers of a mute camera
constexpr int kObserved[] = {CAM_STREAM_PCM,  CAM_STREAM_H264_MAIN, CAM_STREAM_H264_SUB,
                             CAM_STREAM_JPEG, CAM_STREAM_GRAY,      CAM_STREAM_NV12,
                             CAM_STREAM_YUYV, CAM_STREAM_NV21};

class Script;

/// Calls back into the camera now and then.
class Meddler : public sim::Reader {
  public:
    Meddler(int type, Script& script) : Reader(type), script_(script) {}

  protected:
    void see(const CCameraData& record) override;

  private:
    Script& script_;
};

class Script {
  public:
    Script(sim::Device& device, fuzz::Tape steps, fuzz::Tape inside)
        : device_(device), steps_(steps), inside_(inside) {
        for (const int type : kObserved) {
            observers_.push_back(std::make_unique<Meddler>(type, *this));
        }
    }

    void play() {
        host_.camera().Init(sim::Host::hear, 0);
        sim::Host::await_answer(2min);
        for (const auto& observer : observers_) {
            host_->RegisterObserver(observer.get());
        }
        bounded([&] { host_->StartRecording(); });
        for (int step = 0; step < kMostSteps && !steps_.empty(); ++step) {
            bounded([&] { make_step(steps_); });
        }
        sim::pass(1s);
        bounded([&] { host_->StopRecording(); });
        bounded([&] { host_.destroy(); });
    }

    void from_inside(const CCameraData& record) {
        if (record.m_size != 0 && inside_.byte() >= 0xC0) {
            call(inside_);
        }
    }

  private:
    template <typename Call>
    static void bounded(Call call) {
        const sim::Time begin = sim::World::now();
        call();
        if (sim::World::now() - begin > kLongestCall) {
            __builtin_trap();
        }
    }

    /// What only the host itself does, or a call.
    void make_step(fuzz::Tape& tape) {
        const uint8_t choice = tape.byte();
        switch (choice % 8) {
            case 0:
                return sim::pass(choice * 1ms);
            case 1:
                return sim::World::step_wall_clock((choice - 128) * 1h);
            case 2:
                return choice < 128 ? sim::Bus::unplug() : sim::Bus::plug(&device_);
            default:
                call(tape);
        }
    }

    void call(fuzz::Tape& tape) {
        const uint8_t choice = tape.byte();
        CAM_PROP_VALUE value;
        switch (choice % 8) {
            case 0:
                host_->StartRecording();
                break;
            case 1:
                host_->StopRecording();
                break;
            case 2:
                host_->GetProperty(property(tape), &value);
                break;
            case 3:
                host_->Init(sim::Host::hear, choice);
                break;
            case 4:
                host_->RegisterObserver(observers_[choice / 8 % observers_.size()].get());
                break;
            case 5:
                host_->RemoveObserver(observers_[choice / 8 % observers_.size()].get());
                break;
            default:
                value.value = (choice & 0x80) != 0 ? static_cast<int>(tape.number()) : tape.byte();
                host_->SetProperty(property(tape), &value);
        }
    }

    static CAM_PROPERTY property(fuzz::Tape& tape) {
        return static_cast<CAM_PROPERTY>(tape.byte() % 116);
    }

    sim::Device& device_;
    fuzz::Tape steps_;
    fuzz::Tape inside_;
    std::vector<std::unique_ptr<Meddler>> observers_;
    sim::Host host_;
};

void Meddler::see(const CCameraData& record) {
    script_.from_inside(record);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::prepare_television();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Tape tape(data, size);
    const uint8_t head = tape.byte();
    fuzz::Tape order = tape.cut(tape.byte());
    const fuzz::Tape steps = tape.cut(tape.byte());
    const fuzz::Tape inside = tape.cut(tape.byte());
    const fuzz::Tape answers = tape.cut(tape.byte() * 4u);
    fuzz::choose_platform(head & 15);
    fuzz::WildCamera camera((head & 16) != 0 ? sim::kBootCode : sim::kRunTime, answers, tape);
    const sim::World world;
    sim::World::choose_by([&](size_t) { return order.byte(); });
    const sim::Bus bus(&camera);
    sim::Bus::publish_listing();
    Script script(camera, steps, inside);
    g_embedded_cam_dbg_level = (head & 32) != 0 ? 5 : 1;
    script.play();
    if (sim::Bus::leavings().in_flight != 0 || sim::Bus::leavings().transfers != 0) {
        __builtin_trap();
    }
    return 0;
}
