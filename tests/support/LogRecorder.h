// What the code under test logs: PrintDebug of the statically linked plug-in is link-wrapped and
// every message that it would print is recorded here instead, formatted, with its level.
#pragma once

#include <chrono>
#include <ostream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace test {

struct LogLine {
    unsigned int level;
    std::string function;
    std::string text;  ///< as formatted, line ends included
    std::thread::id thread;
    unsigned int module = 0;  ///< number of the module that logs
    int source_line = 0;
};

std::ostream& operator<<(std::ostream& out, const LogLine& line);

/// Level and text, what most tests compare.
typedef std::pair<unsigned, std::string> Logged;
typedef std::vector<Logged> Lines;

class LogRecorder {
  public:
    static LogRecorder& instance();

    /// Forgets all lines and lets every level (1 to 5) through.
    void reset();
    std::vector<LogLine> lines() const;
    /// Texts in order, of one level or of all.
    std::vector<std::string> texts() const;
    std::vector<std::string> texts(unsigned int level) const;
    /// Number of lines with exactly this level and text.
    size_t count(unsigned int level, const std::string& text) const;
    bool has(unsigned int level, const std::string& text) const { return count(level, text) != 0; }
    /// Number of lines of any level that contain a piece of text.
    size_t count_containing(const std::string& piece) const;
    /// Waits until such a line is there (also one from before the call).
    bool wait_for(unsigned int level, const std::string& text,
                  std::chrono::milliseconds limit) const;

    // For the wrapper.
    void record(LogLine line);

  private:
    LogRecorder() = default;
    struct State;
    static State& state();
};

}  // namespace test

/// True with a listing of what was logged otherwise.
#define EXPECT_LOG(level, text) \
    EXPECT_TRUE(test::LogRecorder::instance().has(level, text)) << ::test::log_listing()
#define EXPECT_NO_LOG(level, text) \
    EXPECT_FALSE(test::LogRecorder::instance().has(level, text)) << ::test::log_listing()
#define EXPECT_LOG_COUNT(level, text, n) \
    EXPECT_EQ(test::LogRecorder::instance().count(level, text), size_t{n}) << ::test::log_listing()

namespace test {
std::string log_listing();
}
