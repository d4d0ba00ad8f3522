// A host that knows only the framework's interface: loads the plug-in, brings the camera up,
// records, stops and unloads, as often as it is told, and says what it got. Exit status 0 when
// every round delivered frames and nothing was left after an unload: neither the library nor a thread
// nor a descriptor, and of memory no more than after the load before.
//
// Usage: plugin_host PLUGIN LOADS CREATES STARTS RECORDS
//   each of LOADS loads creates CREATES cameras, each of which records STARTS times until RECORDS
//   records of the main stream and of sound have come. The camera is power-cycled before each.
#include <dlfcn.h>
#include <limits.h>
#include <malloc.h>

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

/// An emulator's own memory cannot be told from the program's.
const bool g_Emulated = getenv("AITCAM_EMULATOR") != nullptr;

/// What the process holds while the plug-in is not loaded.
class Holdings {
  public:
    /// Fails the program where there is more than before.
    void Compare(const char* plugin) {
        if (test::IsMapped(plugin)) {
            Fail("the plug-in stays in memory");
        }
        if (!test::Settles("/proc/self/task", threads_)) {
            Fail("a thread is left behind");
        }
        if (!test::Settles("/proc/self/fd", files_)) {
            Fail("a descriptor is left behind");
        }
        CompareMemory();
    }

  private:
    /// The first loads leave what the C library keeps for good; the virtual bus keeps a little for
    /// each. Small leaks are LeakSanitizer's.
    void CompareMemory() {
        constexpr int kFirstLoads = 5;
        test::ForgetCalls();
        malloc_trim(0);
        const long data = test::Kibibytes("VmData"), resident = test::Kibibytes("RssAnon");
        std::fprintf(stderr, "memory: %ld KiB, %ld resident\n", data, resident);
        if (++loads_ <= kFirstLoads) {
            data_ = data;
            resident_ = resident;
        }
        const long more = kMoreEach * (loads_ - kFirstLoads);
        if (loads_ > kFirstLoads && !g_Emulated &&
            (data > data_ + more || resident > resident_ + more)) {
            Fail("memory is left behind");
        }
    }

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    static constexpr long kMoreEach = LONG_MAX / 1000;  // a sanitizer keeps what was freed
#else
    static constexpr long kMoreEach = 256;  // KiB: far less than a stack or a frame buffer
#endif
    const size_t threads_ = test::Entries("/proc/self/task");
    const size_t files_ = test::Entries("/proc/self/fd");
    int loads_ = 0;
    long data_ = 0;
    long resident_ = 0;
};

void Load(const char* path, int creates, int starts, int records) {
    const test::LoadedPlugin plugin(path);
    if (!plugin.IsLoaded()) {
        Fail(dlerror());
    }
    for (int i = 0; i < creates; ++i) {
        test::PowerCycle();
        Live(plugin, starts, records);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 6) {
        std::fprintf(stderr, "usage: plugin_host PLUGIN LOADS CREATES STARTS RECORDS\n");
        return 2;
    }
    const int loads = std::atoi(argv[2]), creates = std::atoi(argv[3]), starts = std::atoi(argv[4]),
              records = std::atoi(argv[5]);
    constexpr int kMappedFrom = 128 * 1024;
    mallopt(M_MMAP_THRESHOLD, kMappedFrom);  // fixed: what is freed goes back to the system
    test::PowerCycle();  // starts the bus, whose threads and descriptors are not the plug-in's
    Holdings holdings;
    for (int load = 0; load < loads; ++load) {
        Load(argv[1], creates, starts, records);
        holdings.Compare(argv[1]);
    }
    std::fprintf(stderr, "plugin_host: done\n");
    return 0;
}
