// What camhost tells the shell that started it.
#pragma once

#include <array>
#include <stdexcept>
#include <string>

namespace camhost {

enum class ExitCode : int {
    kOk = 0,
    kFailed = 1,
    kUsage = 2,
    kNoCamera = 3,
    kCameraLost = 4,
    kNoFrames = 5,
    kRefused = 6,
    kCheckFailed = 7,
    kNoPlugin = 8,
    kInterrupted = 130,
};

struct ExitCodeRow {
    ExitCode code;
    const char* meaning;
};

/// Every code with its meaning, in the order of the help text.
inline constexpr std::array<ExitCodeRow, 10> kExitCodes{{
    {ExitCode::kOk, "done"},
    {ExitCode::kFailed, "a file could not be written, or recording could not be started"},
    {ExitCode::kUsage, "the command line is wrong"},
    {ExitCode::kNoCamera, "the camera did not become usable"},
    {ExitCode::kCameraLost, "the camera went away; what was recorded before is kept"},
    {ExitCode::kNoFrames, "recording ran, but no selected stream delivered a record"},
    {ExitCode::kRefused, "the plug-in refused a property or a combination"},
    {ExitCode::kCheckFailed, "camhost check found a fault"},
    {ExitCode::kNoPlugin, "the plug-in could not be loaded"},
    {ExitCode::kInterrupted, "interrupted; what was recorded before is kept"},
}};

/// An error that ends the program with a code of its own; what() is a sentence for the user.
class Failure : public std::runtime_error {
  public:
    Failure(ExitCode code, const std::string& sentence)
        : std::runtime_error(sentence), code_(code) {}
    ExitCode code() const { return code_; }

  private:
    ExitCode code_;
};

}  // namespace camhost
