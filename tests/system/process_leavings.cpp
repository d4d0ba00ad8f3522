#include "tests/system/process_leavings.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

namespace system_test {
namespace {

namespace fs = std::filesystem;

constexpr char kOutput[] = "/proc/self/fd/1";
constexpr char kLeftOpen[] = "The lost device's handle is left open";

size_t count_in(const std::string& text, const std::string& wanted) {
    size_t count = 0;
    for (size_t at = text.find(wanted); at != std::string::npos; at = text.find(wanted, at + 1)) {
        ++count;
    }
    return count;
}

}  // namespace

size_t thread_count() {
    const fs::directory_iterator tasks("/proc/self/task");
    return static_cast<size_t>(std::distance(begin(tasks), end(tasks)));
}

size_t open_usb_devices() {
    size_t count = 0;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code error;  // one that is closed meanwhile, such as the iterator's own
        const std::string target = fs::read_symlink(entry, error).string();
        count += target.rfind("/dev/bus/usb/", 0) == 0 ? 1 : 0;
    }
    return count;
}

size_t handles_left_open() {
    if (!fs::is_regular_file(kOutput)) {
        throw std::runtime_error("standard output is no file, so the plug-in's log cannot be read");
    }
    std::fflush(stdout);
    std::ifstream log(kOutput);
    const std::string text{std::istreambuf_iterator<char>(log), {}};
    return count_in(text, kLeftOpen);
}

}  // namespace system_test
