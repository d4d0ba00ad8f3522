#include "aitdbg.h"

#include <stdarg.h>

std::atomic<unsigned int> g_embedded_cam_dbg_level{1};

namespace {

const char* const g_szLevelName[] = {"-", "Fatal", "Major", "Warning", "Debugging", "Info"};
const char* const g_szModuleName[] = {"TARLO", "V4L2", "AIT"};
constexpr unsigned int kLevelBare = 0;
constexpr unsigned int kLevelFatal = 1;
// The logger's own version mark: every header reads "1.45".
constexpr unsigned int kMarkMajor = 1;
constexpr unsigned int kMarkMinor = 0x45;

FILE* gDbgLog = nullptr;

}  // namespace

// NOLINTNEXTLINE(cert-dcl50-cpp): printf's own form, known to everyone who logs
void PrintDebug(unsigned int module, unsigned int level, const char* function, int line,
                const char* format, ...) {
    if (level > g_embedded_cam_dbg_level) {
        return;
    }
    const bool red = level == kLevelFatal;
    char header[1024] = {};
    if (level != kLevelBare) {
        snprintf(header, sizeof header, "[%s %X.%X/%s] [%s:%d] %s", g_szModuleName[module],
                 kMarkMajor, kMarkMinor, g_szLevelName[level], function, line,
                 red ? "\033[31m" : "");
    }
    printf("%s", header);
    va_list arguments;
    va_start(arguments, format);
    vfprintf(stdout, format, arguments);
    va_end(arguments);
    // The line feed of puts comes on top of one in the format: the empty lines are expected.
    puts(red ? "\033[0m" : "");
}

FILE* PrintDebuggingInit(const char* path) {
    FILE* const previous = gDbgLog;
    PrintDebuggingClose();
    if (path == nullptr) {
        return previous;  // also when it was closed just now: callers compare the value
    }
    gDbgLog = fopen(path, "w+t");
    return gDbgLog;
}

void PrintDebuggingClose() {
    if (gDbgLog != nullptr) {
        fclose(gDbgLog);
    }
    gDbgLog = nullptr;
}
