#include "host/commands/shell_history.h"

#include <readline/history.h>

#include <cstdio>  // readline's headers want it
#include <cstdlib>

namespace camhost {

namespace {

constexpr int kLongestHistory = 1000;  // lines

/// An environment variable that holds an absolute path, as the XDG base directory rules demand.
std::filesystem::path folder_in(const char* variable) {
    const char* value = std::getenv(variable);
    const std::filesystem::path path = value != nullptr ? value : "";
    return path.is_absolute() ? path : std::filesystem::path();
}

std::filesystem::path history_file() {
    auto state = folder_in("XDG_STATE_HOME");
    if (state.empty()) {
        const auto home = folder_in("HOME");
        if (home.empty()) {
            return {};
        }
        state = home / ".local/state";
    }
    return state / "camhost/history";
}

}  // namespace

ShellHistory::ShellHistory() : file_(history_file()) {
    using_history();
    stifle_history(kLongestHistory);
    if (!file_.empty()) {
        read_history(file_.c_str());
    }
}

ShellHistory::~ShellHistory() {
    if (!file_.empty()) {
        std::error_code error;
        std::filesystem::create_directories(file_.parent_path(), error);
        write_history(file_.c_str());
    }
    clear_history();
}

}  // namespace camhost
