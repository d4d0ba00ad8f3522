// Lets ThreadSanitizer see GLib's locks. GMutex and GCond are made of futexes and atomics, and
// neither GLib nor GStreamer is instrumented: what one thread hands to another under such a lock
// would look like a race. The functions here stand before GLib's own for the whole process, do what
// those do and tell the sanitizer. GRecMutex is pthread's inside, which it knows, but made by the
// thread that is first to lock it, and handed to the others by an atomic.
#include <dlfcn.h>
#include <glib.h>
#include <sanitizer/tsan_interface.h>

namespace {

template <typename Function>
Function* glibs(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

// Messages and events count their references with atomics inside GStreamer, so that the last one
// frees what another has read. This leaves out what GLib itself does in calls of the C library, and
// nothing that our code does, whoever has called it.
const char* __tsan_default_suppressions() {
    return "called_from_lib:libglib-2.0.so.0\n";
}

void g_mutex_lock(GMutex* mutex) {
    static auto* const lock = glibs<void(GMutex*)>("g_mutex_lock");
    lock(mutex);
    __tsan_acquire(mutex);
}

gboolean g_mutex_trylock(GMutex* mutex) {
    static auto* const trylock = glibs<gboolean(GMutex*)>("g_mutex_trylock");
    const gboolean locked = trylock(mutex);
    if (locked != FALSE) {
        __tsan_acquire(mutex);
    }
    return locked;
}

void g_mutex_unlock(GMutex* mutex) {
    static auto* const unlock = glibs<void(GMutex*)>("g_mutex_unlock");
    __tsan_release(mutex);
    unlock(mutex);
}

void g_cond_wait(GCond* condition, GMutex* mutex) {
    static auto* const wait = glibs<void(GCond*, GMutex*)>("g_cond_wait");
    __tsan_release(mutex);
    wait(condition, mutex);
    __tsan_acquire(mutex);
}

gboolean g_cond_wait_until(GCond* condition, GMutex* mutex, gint64 end) {
    static auto* const wait = glibs<gboolean(GCond*, GMutex*, gint64)>("g_cond_wait_until");
    __tsan_release(mutex);
    const gboolean signalled = wait(condition, mutex, end);
    __tsan_acquire(mutex);
    return signalled;
}

void g_rec_mutex_lock(GRecMutex* mutex) {
    static auto* const lock = glibs<void(GRecMutex*)>("g_rec_mutex_lock");
    __tsan_acquire(mutex);
    lock(mutex);
    __tsan_release(mutex);
}

}  // extern "C"
