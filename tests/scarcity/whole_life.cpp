// A host that leads the plug-in through two whole lives: load, create, bring up, record, stop,
// destroy, unload. The first may fail where something was refused to it (scarce.so), but only as the
// interface says; the second must succeed and leave nothing.
//
// Usage: whole_life PLUGIN
// Exit status 0 when that is so. Standard error says how far the first life came.
#include <cstdio>
#include <new>

#include "tests/support/LoadedPlugin.h"

namespace {

using test::Entries;
using test::Fail;

constexpr int kFrames = 30;

/// How far a life came.
enum class Stage { kNotLoaded, kNotCreated, kNotUsable, kNotStarted, kNoFrames, kDone };

const char* Name(Stage stage) {
    constexpr const char* kNames[] = {"not loaded",  "not created", "not usable",
                                      "not started", "no frames",   "done"};
    return kNames[static_cast<int>(stage)];
}

Stage Record(ICameraSubject& camera) {
    test::CountingObserver main(CAM_STREAM_H264_MAIN), sound(CAM_STREAM_PCM);
    if (!camera.RegisterObserver(&main) || !camera.RegisterObserver(&sound)) {
        camera.RemoveObserver(&main);
        return Stage::kNotStarted;
    }
    Stage stage = Stage::kNotStarted;
    if (camera.StartRecording() && camera.GetState() == CAM_STATE_PLAYING) {
        stage = main.WaitFor(kFrames) ? Stage::kDone : Stage::kNoFrames;
    }
    camera.StopRecording();
    camera.RemoveObserver(&main);
    camera.RemoveObserver(&sound);
    return stage;
}

/// Null: memory was short, which the interface allows here, and nowhere else.
ICameraSubject* Create(const test::LoadedPlugin& plugin) {
    try {
        return plugin.Create();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

Stage Live(const char* path) {
    const test::LoadedPlugin plugin(path);
    if (!plugin.IsLoaded()) {
        return Stage::kNotLoaded;
    }
    ICameraSubject* camera = Create(plugin);
    if (camera == nullptr) {
        return Stage::kNotCreated;
    }
    const Stage stage = test::BringUp(*camera) ? Record(*camera) : Stage::kNotUsable;
    plugin.Destroy(camera);
    return stage;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: whole_life PLUGIN\n");
        return 2;
    }
    test::PowerCycle();  // starts the bus, whose threads and descriptors are not the plug-in's
    const size_t threads = Entries("/proc/self/task"), files = Entries("/proc/self/fd");
    const Stage first = Live(argv[1]);
    test::PowerCycle();
    const Stage second = Live(argv[1]);
    std::fprintf(stderr, "first life: %s\n", Name(first));
    if (first == Stage::kNoFrames) {
        Fail("it says that it plays, and nothing comes");
    }
    if (second != Stage::kDone) {
        std::fprintf(stderr, "second life: %s\n", Name(second));
        Fail("what was missing once is missing for good");
    }
    if (!test::Settles("/proc/self/task", threads) || !test::Settles("/proc/self/fd", files)) {
        Fail("threads or descriptors are left behind");
    }
    return 0;
}
