// Preloaded: counts what the plug-in asks the system for, and refuses it the n-th of a kind.
//
// A request counts when the plug-in makes it, directly or through libc and libstdc++: the first
// frame above them decides. What libusb or the host ask for is never refused.
//
// Environment:
//   SCARCE_KIND    memory (malloc and what stands on it), threads (pthread_create) or descriptors
//                  (open, fopen)
//   SCARCE_NTH     which request fails, from 1; 0: none
//   SCARCE_REPORT  file for one line at the end: requests counted, blocks of the plug-in never freed
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <link.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>
#include <unwind.h>

#include <atomic>

extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void __libc_free(void*);
}

namespace {

constexpr char kPlugin[] = "libaitorixcamera";
constexpr const char* kPassedThrough[] = {"/libc.so", "/libstdc++.so", "/libgcc_s.so", "scarce.so"};

enum class Kind { kNone, kMemory, kThreads, kDescriptors };

Kind ChosenKind() {
    static const Kind kind = [] {
        const char* name = getenv("SCARCE_KIND");
        if (name == nullptr) {
            return Kind::kNone;
        }
        return strcmp(name, "memory") == 0    ? Kind::kMemory
               : strcmp(name, "threads") == 0 ? Kind::kThreads
                                              : Kind::kDescriptors;
    }();
    return kind;
}

long ChosenNumber() {
    static const long number = getenv("SCARCE_NTH") != nullptr ? atol(getenv("SCARCE_NTH")) : 0;
    return number;
}

std::atomic<long> g_requests{0};
thread_local bool t_inside = false;  // the look at the stack asks for memory itself

/// Blocks that the plug-in holds, as an open hash table of addresses; 0: free, 1: was used.
constexpr size_t kSlots = 1 << 16;
std::atomic<uintptr_t> g_blocks[kSlots];

size_t SlotOf(uintptr_t block) {
    return (block >> 4) * 2654435761U % kSlots;
}

void Remember(void* pointer) {
    const auto block = reinterpret_cast<uintptr_t>(pointer);
    for (size_t slot = SlotOf(block);; slot = (slot + 1) % kSlots) {
        uintptr_t found = g_blocks[slot];
        if (found <= 1 && g_blocks[slot].compare_exchange_strong(found, block)) {
            return;
        }
    }
}

/// True when the block was the plug-in's.
bool Forget(void* pointer) {
    const auto block = reinterpret_cast<uintptr_t>(pointer);
    for (size_t slot = SlotOf(block); g_blocks[slot] != 0; slot = (slot + 1) % kSlots) {
        if (g_blocks[slot] == block) {
            g_blocks[slot] = 1;
            return true;
        }
    }
    return false;
}

enum class Caller { kPassedOn, kThePlugin, kOther };

Caller WhoIsAt(const void* address) {
    Dl_info object;
    if (dladdr(address, &object) == 0 || object.dli_fname == nullptr) {
        return Caller::kPassedOn;
    }
    for (const char* name : kPassedThrough) {
        if (strstr(object.dli_fname, name) != nullptr) {
            return Caller::kPassedOn;
        }
    }
    return strstr(object.dli_fname, kPlugin) != nullptr ? Caller::kThePlugin : Caller::kOther;
}

_Unwind_Reason_Code LookAt(_Unwind_Context* context, void* argument) {
    auto* caller = static_cast<Caller*>(argument);
    *caller = WhoIsAt(reinterpret_cast<void*>(_Unwind_GetIP(context)));
    // All but NO_REASON end the walk; ARM knows no NORMAL_STOP.
    return *caller == Caller::kPassedOn ? _URC_NO_REASON : _URC_END_OF_STACK;
}

/// `caller`: where the request returns to. The walk alone would not do: on ARM it ends, without a
/// word, at a function that throws nothing.
bool CalledByPlugin(const void* caller) {
    if (t_inside) {
        return false;
    }
    t_inside = true;
    Caller who = WhoIsAt(caller);
    if (who == Caller::kPassedOn) {
        _Unwind_Backtrace(LookAt, &who);
    }
    t_inside = false;
    return who == Caller::kThePlugin;
}

/// Counts a request of the plug-in. True when it is the one that fails.
bool Refused(Kind kind) {
    return kind == ChosenKind() && ++g_requests == ChosenNumber();
}

template <typename Function>
Function* Next(const char* name) {
    t_inside = true;
    auto* next = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
    t_inside = false;
    return next;
}

template <typename Ask>
void* Allocate(const void* caller, Ask ask) {
    if (ChosenKind() != Kind::kMemory || !CalledByPlugin(caller)) {
        return ask();
    }
    if (Refused(Kind::kMemory)) {
        errno = ENOMEM;
        return nullptr;
    }
    void* block = ask();
    if (block != nullptr) {
        Remember(block);
    }
    return block;
}

bool DescriptorRefused(const void* caller) {
    if (ChosenKind() != Kind::kDescriptors || !CalledByPlugin(caller) ||
        !Refused(Kind::kDescriptors)) {
        return false;
    }
    errno = EMFILE;
    return true;
}

__attribute__((destructor)) void Report() {
    if (g_requests == 0) {
        return;  // a program on the way to the one that is looked at (env, timeout)
    }
    const char* path = getenv("SCARCE_REPORT");
    FILE* file =
        path != nullptr ? Next<FILE*(const char*, const char*)>("fopen")(path, "w") : nullptr;
    if (file == nullptr) {
        return;
    }
    size_t held = 0;
    for (const auto& block : g_blocks) {
        held += block > 1 ? 1 : 0;
    }
    fprintf(file, "%ld %zu\n", g_requests.load(), held);
    fclose(file);
}

}  // namespace

extern "C" {

void* malloc(size_t size) {
    return Allocate(__builtin_return_address(0), [&] { return __libc_malloc(size); });
}

void* calloc(size_t count, size_t size) {
    return Allocate(__builtin_return_address(0), [&] { return __libc_calloc(count, size); });
}

void* realloc(void* block, size_t size) {
    return Allocate(__builtin_return_address(0), [&] {
        const bool watched = block != nullptr && ChosenKind() == Kind::kMemory && Forget(block);
        void* moved = __libc_realloc(block, size);
        if (moved == nullptr && watched) {
            Remember(block);
        }
        return moved;
    });
}

void free(void* block) {
    if (block != nullptr && ChosenKind() == Kind::kMemory) {
        Forget(block);
    }
    __libc_free(block);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                   void* argument) {
    if (ChosenKind() == Kind::kThreads && CalledByPlugin(__builtin_return_address(0)) &&
        Refused(Kind::kThreads)) {
        return EAGAIN;
    }
    return Next<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>("pthread_create")(
        thread, attributes, run, argument);
}

int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return DescriptorRefused(__builtin_return_address(0))
               ? -1
               : Next<int(const char*, int, ...)>("open")(path, flags, mode);
}

FILE* fopen(const char* path, const char* mode) {
    return DescriptorRefused(__builtin_return_address(0))
               ? nullptr
               : Next<FILE*(const char*, const char*)>("fopen")(path, mode);
}
}
