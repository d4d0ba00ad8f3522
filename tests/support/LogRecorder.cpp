#include "tests/support/LogRecorder.h"

#include <stdarg.h>
#include <stdio.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <sstream>

#include "aitdbg.h"

namespace test {

struct LogRecorder::State {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<LogLine> lines;
};

std::ostream& operator<<(std::ostream& out, const LogLine& line) {
    return out << line.level << " " << line.function << ": " << line.text;
}

LogRecorder& LogRecorder::instance() {
    static LogRecorder recorder;
    return recorder;
}

LogRecorder::State& LogRecorder::state() {
    static auto* state = new State;  // outlives every thread of the code under test
    return *state;
}

void LogRecorder::reset() {
    std::lock_guard lock(state().mutex);
    state().lines.clear();
    g_embedded_cam_dbg_level = 5;
}

std::vector<LogLine> LogRecorder::lines() const {
    std::lock_guard lock(state().mutex);
    return state().lines;
}

std::vector<std::string> LogRecorder::texts() const {
    std::vector<std::string> texts;
    for (const LogLine& line : lines()) {
        texts.push_back(line.text);
    }
    return texts;
}

std::vector<std::string> LogRecorder::texts(unsigned int level) const {
    std::vector<std::string> texts;
    for (const LogLine& line : lines()) {
        if (line.level == level) {
            texts.push_back(line.text);
        }
    }
    return texts;
}

size_t LogRecorder::count(unsigned int level, const std::string& text) const {
    const auto all = lines();
    return static_cast<size_t>(std::count_if(all.begin(), all.end(), [&](const LogLine& line) {
        return line.level == level && line.text == text;
    }));
}

size_t LogRecorder::count_containing(const std::string& piece) const {
    const auto all = lines();
    return static_cast<size_t>(std::count_if(all.begin(), all.end(), [&](const LogLine& line) {
        return line.text.find(piece) != std::string::npos;
    }));
}

bool LogRecorder::wait_for(unsigned int level, const std::string& text,
                           std::chrono::milliseconds limit) const {
    std::unique_lock lock(state().mutex);
    return state().changed.wait_for(lock, limit, [&] {
        return std::any_of(state().lines.begin(), state().lines.end(), [&](const LogLine& line) {
            return line.level == level && line.text == text;
        });
    });
}

void LogRecorder::record(LogLine line) {
    std::lock_guard lock(state().mutex);
    state().lines.push_back(std::move(line));
    state().changed.notify_all();
}

std::string log_listing() {
    std::ostringstream listing;
    listing << "logged:\n";
    for (const LogLine& line : LogRecorder::instance().lines()) {
        listing << "  " << line << "\n";
    }
    return listing.str();
}

}  // namespace test

// The wrapped name is PrintDebug(unsigned, unsigned, const char*, int, const char*, ...) as the
// compiler mangles it.
extern "C" void __wrap__Z10PrintDebugjjPKciS0_z(unsigned int module, unsigned int level,
                                                const char* function, int line, const char* format,
                                                ...) {
    if (level > g_embedded_cam_dbg_level) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    char* text = nullptr;
    const int length = vasprintf(&text, format, arguments);
    va_end(arguments);
    if (length >= 0) {
        test::LogRecorder::instance().record({level, function,
                                              std::string(text, static_cast<size_t>(length)),
                                              std::this_thread::get_id(), module, line});
        free(text);
    }
}
