// The diagnostic printer: what reaches standard output, byte by byte, and the level test.
#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <string>

#include "aitdbg.h"
#include "tests/support/PluginTest.h"

// The printer itself: calls by its name go to the recorder.
extern "C" void __real__Z10PrintDebugjjPKciS0_z(unsigned int module, unsigned int level,
                                                const char* function, int line, const char* format,
                                                ...) __attribute__((format(printf, 5, 6)));

namespace test {
namespace {

const unsigned int kLevelAtLoad = g_embedded_cam_dbg_level;

class DebugLog : public PluginTest {
  protected:
    ~DebugLog() override {
        PrintDebuggingClose();
        unlink(m_Path.c_str());
    }

    template <typename... Arguments>
    static std::string Printed(unsigned int module, unsigned int level, const char* function,
                               int line, const char* format, Arguments... arguments) {
        ::testing::internal::CaptureStdout();
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
        __real__Z10PrintDebugjjPKciS0_z(module, level, function, line, format, arguments...);
#pragma GCC diagnostic pop
        return ::testing::internal::GetCapturedStdout();
    }

    const std::string m_Path = ::testing::TempDir() + "debug_log_test." + std::to_string(getpid());
};

TEST_F(DebugLog, FirstLevelIsRedAndResetsTheColourAtTheEndOfTheLine) {
    g_embedded_cam_dbg_level = 1;
    EXPECT_EQ(Printed(0, 1, "cam_create", 42, "value %d\r\n", 7),
              "[TARLO 1.45/Fatal] [cam_create:42] \033[31mvalue 7\r\n\033[0m\n");
}

TEST_F(DebugLog, OtherLevelsAreInNoColour) {
    g_embedded_cam_dbg_level = 5;
    EXPECT_EQ(Printed(0, 2, "f", 1, "m"), "[TARLO 1.45/Major] [f:1] m\n");
    EXPECT_EQ(Printed(0, 3, "f", 2, "m"), "[TARLO 1.45/Warning] [f:2] m\n");
    EXPECT_EQ(Printed(0, 4, "Init", 392, "m\n"), "[TARLO 1.45/Debugging] [Init:392] m\n\n");
    EXPECT_EQ(Printed(0, 5, "f", 4, "m"), "[TARLO 1.45/Info] [f:4] m\n");
}

TEST_F(DebugLog, LevelZeroIsBareAndAlwaysPrinted) {
    g_embedded_cam_dbg_level = 0;
    EXPECT_EQ(Printed(0, 0, "f", 1, "text %s", "here"), "text here\n");
    g_embedded_cam_dbg_level = 5;
    EXPECT_EQ(Printed(0, 0, "f", 1, "text"), "text\n");
}

TEST_F(DebugLog, MessagesAboveTheLevelAreNotPrinted) {
    for (unsigned int current = 0; current <= 5; ++current) {
        g_embedded_cam_dbg_level = current;
        for (unsigned int level = 1; level <= 5; ++level) {
            EXPECT_EQ(Printed(0, level, "f", 1, "m").empty(), level > current)
                << "level " << level << " at " << current;
        }
    }
}

TEST_F(DebugLog, LevelIsComparedWithoutSign) {
    g_embedded_cam_dbg_level = 0x80000000u;
    EXPECT_FALSE(Printed(0, 5, "f", 1, "m").empty());
}

TEST_F(DebugLog, ModulesHaveNames) {
    g_embedded_cam_dbg_level = 5;
    EXPECT_EQ(Printed(0, 5, "f", 1, "m"), "[TARLO 1.45/Info] [f:1] m\n");
    EXPECT_EQ(Printed(1, 5, "f", 1, "m"), "[V4L2 1.45/Info] [f:1] m\n");
    EXPECT_EQ(Printed(2, 5, "f", 1, "m"), "[AIT 1.45/Info] [f:1] m\n");
}

TEST_F(DebugLog, HeaderIsCutAt1023CharactersAndTheBodyIsNot) {
    g_embedded_cam_dbg_level = 5;
    const std::string function(2000, 'f');
    const std::string body(5000, 'b');
    const std::string header = ("[TARLO 1.45/Info] [" + function).substr(0, 1023);
    EXPECT_EQ(Printed(0, 5, function.c_str(), 1, "%s", body.c_str()), header + body + "\n");
}

TEST_F(DebugLog, TheDefaultLevelIsOne) {
    EXPECT_EQ(kLevelAtLoad, 1u);
    EXPECT_EQ(sizeof g_embedded_cam_dbg_level, sizeof(unsigned int));
}

TEST_F(DebugLog, MacroPassesFunctionAndLevelAndEvaluatesNothingBelowIt) {
    int evaluated = 0;
    g_embedded_cam_dbg_level = 3;
    AIT_LOG(4, "%d", ++evaluated);
    EXPECT_EQ(evaluated, 0);
    EXPECT_TRUE(log().lines().empty());
    const int here = __LINE__ + 1;
    AIT_LOG(3, "%d", ++evaluated);
    EXPECT_EQ(evaluated, 1);
    ASSERT_EQ(log().lines().size(), 1u);
    EXPECT_EQ(log().lines()[0].level, 3u);
    EXPECT_EQ(log().lines()[0].function, "TestBody");
    EXPECT_EQ(log().lines()[0].text, "1");
    EXPECT_EQ(log().lines()[0].module, 0u);
    EXPECT_EQ(log().lines()[0].source_line, here);
}

void StepOfRun() {
    AIT_LOG_AS("Run");
    AIT_LOG(1, "x");
}

void StepOf(LogAs AitLogName) {
    AIT_LOG(1, "x");
}

struct StepsOfSetProperty {
    static AIT_LOG_AS("SetProperty");
    static void Step() { AIT_LOG(1, "x"); }
};

TEST_F(DebugLog, ALineOfAStepNamesItsOperation) {
    StepOfRun();
    StepsOfSetProperty::Step();
    StepOf(LogAs(__func__));
    AIT_LOG(1, "x");
    std::vector<std::string> names;
    for (const LogLine& line : log().lines()) {
        names.push_back(line.function);
    }
    EXPECT_EQ(names, (std::vector<std::string>{"Run", "SetProperty", "TestBody", "TestBody"}));
}

TEST_F(DebugLog, InitWithoutAPathOpensNothing) {
    EXPECT_EQ(PrintDebuggingInit(nullptr), nullptr);
    PrintDebuggingClose();
    PrintDebuggingClose();
    EXPECT_EQ(PrintDebuggingInit(nullptr), nullptr);
}

TEST_F(DebugLog, InitWithAPathTruncatesAndReturnsTheFileThatNobodyWritesTo) {
    FILE* before = fopen(m_Path.c_str(), "w");
    ASSERT_NE(before, nullptr);
    fputs("old", before);
    fclose(before);
    FILE* file = PrintDebuggingInit(m_Path.c_str());
    ASSERT_NE(file, nullptr);
    Printed(0, 1, "f", 1, "message");
    EXPECT_EQ(fseek(file, 0, SEEK_END), 0);
    EXPECT_EQ(ftell(file), 0);
    // Open for reading too.
    EXPECT_GE(fputs("x", file), 0);
    rewind(file);
    EXPECT_EQ(fgetc(file), 'x');
}

TEST_F(DebugLog, SecondInitClosesTheFirstFile) {
    FILE* first = PrintDebuggingInit(m_Path.c_str());
    ASSERT_NE(first, nullptr);
    const int descriptor = fileno(first);
    FILE* second = PrintDebuggingInit(m_Path.c_str());
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(fileno(second), descriptor);  // the number was free again
}

TEST_F(DebugLog, FailedOpenGivesNull) {
    EXPECT_EQ(PrintDebuggingInit("/nonexistent/folder/log"), nullptr);
    PrintDebuggingClose();
}

TEST_F(DebugLog, InitWithoutAPathReturnsTheClosedHandleAndForgetsIt) {
    FILE* file = PrintDebuggingInit(m_Path.c_str());
    ASSERT_NE(file, nullptr);
    const auto value = reinterpret_cast<uintptr_t>(file);
    const int descriptor = fileno(file);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(PrintDebuggingInit(nullptr)), value);
    EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
    EXPECT_EQ(PrintDebuggingInit(nullptr), nullptr);  // a second close would be one too many
    PrintDebuggingClose();
}

TEST_F(DebugLog, CloseForgetsTheFile) {
    ASSERT_NE(PrintDebuggingInit(m_Path.c_str()), nullptr);
    PrintDebuggingClose();
    EXPECT_EQ(PrintDebuggingInit(nullptr), nullptr);
}

}  // namespace
}  // namespace test
