// camhost snapshot: one still through the trigger.
#include <mutex>
#include <utility>
#include <vector>

#include "host/acceptance/check.h"
#include "host/base/text.h"
#include "host/commands/commands.h"
#include "host/commands/workbench.h"
#include "host/properties/combination.h"
#include "host/session/property_access.h"
#include "host/streams/stream_observer.h"
#include "host/writers/output_file.h"

namespace camhost {

namespace {

constexpr std::chrono::milliseconds kPatience{5000};

/// Keeps the first picture and wakes the controlling thread.
class FirstPicture : public ICameraObserver {
  public:
    explicit FirstPicture(WakeEvent& wake) : wake_(wake) { SetStreamType(CAM_STREAM_JPEG); }

    bool Update(const CCameraData* data) override {
        if (data == nullptr || data->m_size == 0) {
            return true;
        }
        const auto* bytes = static_cast<const uint8_t*>(data->m_pData);
        const std::lock_guard lock(mutex_);
        if (picture_.empty()) {
            picture_.assign(bytes, bytes + data->m_size);
        }
        wake_.signal();
        return true;
    }

    std::vector<uint8_t> take() {
        const std::lock_guard lock(mutex_);
        return std::exchange(picture_, {});
    }

  private:
    WakeEvent& wake_;
    std::mutex mutex_;
    std::vector<uint8_t> picture_;
};

/// Chooses the combination that sends stills, as this television selects.
void choose_stills(Session& session) {
    const Selector selector = session.selector();
    set_property(session,
                 {find_property(property_of(selector)), {.value = with_stills(selector).number}});
}

std::vector<uint8_t> await(FirstPicture& still, const Controls& controls) {
    const auto deadline = Clock::now() + kPatience;
    while (Clock::now() < deadline && !controls.interrupt.requested()) {
        if (auto picture = still.take(); !picture.empty()) {
            return picture;
        }
        controls.wake.wait_until(deadline);
    }
    return {};
}

}  // namespace

ExitCode run_snapshot(const Options& options) {
    const std::filesystem::path path = options.words.front();
    OutputFile file(path);  // What cannot be written is told before the camera is brought up.
    Workbench bench(options.common, log_of(options.common));
    Session& session = bench.bring_up();
    choose_stills(session);
    FirstPicture still(bench.controls().wake);
    session.camera().RegisterObserver(&still);
    std::vector<uint8_t> picture;
    if (session.start()) {
        CAM_PROP_VALUE none{};
        session.set(CAM_PROPERTY_TRIGGER_JPEG, &none);
        picture = await(still, bench.controls());
    }
    session.stop();
    session.camera().RemoveObserver(&still);
    bench.step_done();
    if (picture.empty()) {
        bench.console().line("no still arrived");
        return ExitCode::kNoFrames;
    }
    file.write(picture);
    file.close();
    bench.console().line(format("%s: %zu bytes", path.c_str(), picture.size()));
    return ExitCode::kOk;
}

}  // namespace camhost
