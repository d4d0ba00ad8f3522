// Base of the tests of the statically linked plug-in: each test starts with an empty log at level
// 5, shortened sleeps and no failing system calls. None of the plug-in's threads may be detached: a
// stop would cancel it wherever it is.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/LogRecorder.h"
#include "tests/support/SystemCalls.h"
#include "tests/support/TestClock.h"

namespace test {

class PluginTest : public ::testing::Test {
  protected:
    PluginTest() {
        LogRecorder::instance().reset();
        TestClock::instance().reset();
        reset_system_calls();
    }
    ~PluginTest() override {
        EXPECT_EQ(system_calls().detached_threads, 0);
        reset_system_calls();
    }

    LogRecorder& log() { return LogRecorder::instance(); }
    TestClock& clock() { return TestClock::instance(); }

    /// The lines that pass a test, in order.
    template <typename Keep>
    Lines Log(Keep keep) {
        Lines kept;
        for (const LogLine& line : log().lines()) {
            if (keep(line)) {
                kept.emplace_back(line.level, line.text);
            }
        }
        return kept;
    }
    Lines Log() {
        return Log([](const LogLine&) { return true; });
    }
    /// Expects these lines, in this order and no other of the same texts, whatever else is logged
    /// between them.
    template <typename Keep>
    void ExpectInOrder(const Lines& ours, Keep keep) {
        const auto is_ours = [&](const LogLine& line) {
            return std::any_of(ours.begin(), ours.end(),
                               [&](const Logged& each) { return each.second == line.text; });
        };
        EXPECT_EQ(Log([&](const LogLine& line) { return is_ours(line) && keep(line); }), ours);
    }
    void ExpectInOrder(const Lines& ours) {
        ExpectInOrder(ours, [](const LogLine&) { return true; });
    }
    static bool OfThisThread(const LogLine& line) {
        return line.thread == std::this_thread::get_id();
    }
};

}  // namespace test
