// For programs that load the plug-in as the framework does: nothing of it is linked into them.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>

#include "Src/CameraInterface.h"

namespace test {

/// Says why on standard error, flushes what the plug-in has logged, and ends the program: status 1.
[[noreturn]] void Fail(const char* why);

/// Number of entries of a folder of /proc/self: threads, descriptors.
size_t Entries(const char* folder);

/// True once the folder has `count` entries: a thread that was waited for may be listed a little
/// longer. False: not within 10 s.
bool Settles(const char* folder, size_t count);

/// A size of /proc/self/status, VmSize or the like, in KiB.
long Kibibytes(const char* name);

/// Whether the process has a file of that path mapped.
bool IsMapped(const char* path);

/// Turns the camera of the virtual bus off and on. Starts the bus, where that has not been.
void PowerCycle();
/// Empties the log of calls that the virtual bus keeps, which grows with each of them.
void ForgetCalls();

/// The plug-in, from dlopen to dlclose.
class LoadedPlugin {
  public:
    explicit LoadedPlugin(const char* path);
    /// Fails the program when the plug-in cannot be unloaded.
    ~LoadedPlugin();
    LoadedPlugin(const LoadedPlugin&) = delete;
    LoadedPlugin& operator=(const LoadedPlugin&) = delete;

    /// False: dlopen failed, for dlerror's reason.
    bool IsLoaded() const { return handle_ != nullptr; }
    /// May throw std::bad_alloc, as the interface allows.
    ICameraSubject* Create() const { return create_(); }
    void Destroy(ICameraSubject* camera) const { destroy_(camera); }

  private:
    void* handle_;
    ICameraSubject* (*create_)() = nullptr;
    void (*destroy_)(ICameraSubject*) = nullptr;
};

/// Calls that come from threads of the plug-in, to be waited for.
class Calls {
  public:
    void Add();
    void Clear();
    /// False: fewer than `count` came within 30 s.
    bool WaitFor(int count);

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int count_ = 0;
};

/// Counts records.
class CountingObserver : public ICameraObserver {
  public:
    explicit CountingObserver(CAM_STREAM_TYPE type) { m_StreamType = type; }
    bool Update(const CCameraData*) override {
        calls_.Add();
        return true;
    }
    bool WaitFor(int count) { return calls_.WaitFor(count); }

  private:
    Calls calls_;
};

/// Init, and what it reports. Fails the program when it never does.
bool BringUp(ICameraSubject& camera);

}  // namespace test
