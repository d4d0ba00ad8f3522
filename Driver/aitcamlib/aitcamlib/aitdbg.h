// The diagnostic printer of the whole library. Messages go to standard output, in colour whether or
// not it is a terminal: a host that prints must divert one of the two.
#pragma once

#include <stdio.h>

#include <atomic>

/// Messages of a level up to this one are printed: 1 failures and milestones, 3 warnings, 4
/// tracing, 5 per-frame chatter. Kept across power cycles by marker files, see SetDebugLevel.
extern std::atomic<unsigned int> g_embedded_cam_dbg_level;
static_assert(sizeof(std::atomic<unsigned int>) == sizeof(unsigned int), "one plain word");

/// Prints one message. `module` 0 to 2, `level` 0 (bare, always printed) to 5. May be called from
/// any thread; the lines of different threads may interleave. Cold: what leads to a line is moved out
/// of the way of what runs without it.
void PrintDebug(unsigned int module, unsigned int level, const char* function, int line,
                const char* format, ...) __attribute__((cold, format(printf, 5, 6)));

/// Closes an open log file and opens `path` ("w+t"). Null opens nothing and returns the old handle,
/// which is closed then: a value to compare, not to use.
FILE* PrintDebuggingInit(const char* path);
void PrintDebuggingClose();

/// Name under which a step logs for the operation that it is a part of.
class LogAs {
  public:
    explicit constexpr LogAs(const char* operation) : m_Operation(operation) {}
    constexpr const char* operator()(const char*) const { return m_Operation; }

  private:
    const char* m_Operation;
};

/// The function that a line names: the one that it stands in, unless AIT_LOG_AS or a parameter of
/// this name says otherwise.
constexpr const char* AitLogName(const char* function) {
    return function;
}

/// In a function, or with `static` in a class: its lines name this operation. Those who search
/// field logs know the operations (SetProperty, StartRecording, Run ...), not their steps.
#define AIT_LOG_AS(operation) constexpr auto AitLogName = LogAs(operation)

/// PrintDebug with the caller's function and line; below the level the arguments are not evaluated.
/// The texts are known to those who search field logs, too, and pinned by tests, misspellings
/// included.
#define AIT_LOG(level, ...)                                                        \
    do {                                                                           \
        if ((level) <= g_embedded_cam_dbg_level.load(std::memory_order_relaxed)) { \
            PrintDebug(0, (level), AitLogName(__func__), __LINE__, __VA_ARGS__);   \
        }                                                                          \
    } while (0)
