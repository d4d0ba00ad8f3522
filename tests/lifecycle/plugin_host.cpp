// A host that knows only the framework's interface: loads the plug-in, brings the camera up,
// records, stops and unloads, as often as it is told, and says what it got. Exit status 0 when
// every round delivered frames.
//
// Usage: plugin_host PLUGIN LOADS CREATES STARTS RECORDS
//   each of LOADS loads creates CREATES cameras, each of which records STARTS times until RECORDS
//   records of the main stream and of sound have come. The camera is power-cycled between
//   creations.
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

#include "tests/support/LoadedPlugin.h"

namespace {

using test::Fail;

void Record(ICameraSubject& camera, int records) {
    test::CountingObserver main(CAM_STREAM_H264_MAIN), sound(CAM_STREAM_PCM);
    camera.RegisterObserver(&main);
    camera.RegisterObserver(&sound);
    if (!camera.StartRecording() || camera.GetState() != CAM_STATE_PLAYING) {
        Fail("recording did not start");
    }
    if (!main.WaitFor(records) || !sound.WaitFor(records)) {
        Fail("no records came");
    }
    if (!camera.StopRecording()) {
        Fail("recording did not stop");
    }
    camera.RemoveObserver(&main);
    camera.RemoveObserver(&sound);
}

void Live(const test::LoadedPlugin& plugin, int starts, int records) {
    ICameraSubject* camera = plugin.Create();
    if (!test::BringUp(*camera)) {
        Fail("Init did not answer true");
    }
    for (int start = 0; start < starts; ++start) {
        Record(*camera, records);
    }
    plugin.Destroy(camera);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 6) {
        std::fprintf(stderr, "usage: plugin_host PLUGIN LOADS CREATES STARTS RECORDS\n");
        return 2;
    }
    const int loads = std::atoi(argv[2]), creates = std::atoi(argv[3]), starts = std::atoi(argv[4]),
              records = std::atoi(argv[5]);
    bool first = true;
    for (int load = 0; load < loads; ++load) {
        const test::LoadedPlugin plugin(argv[1]);
        if (!plugin.IsLoaded()) {
            Fail(dlerror());
        }
        for (int i = 0; i < creates; ++i) {
            if (!first) {
                test::PowerCycle();
            }
            first = false;
            Live(plugin, starts, records);
        }
    }
    std::fprintf(stderr, "plugin_host: done\n");
    return 0;
}
