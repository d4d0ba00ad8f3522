#include "host/commands/surroundings.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "host/base/process.h"
#include "host/base/program_path.h"
#include "host/base/temporary_folder.h"

namespace camhost {

namespace {

std::filesystem::path script(const std::string& name) {
    const auto found =
        find_near_program({"../../../scripts/" + name, "../share/aitorixcamera/scripts/" + name});
    if (!found) {
        throw Failure(ExitCode::kUsage,
                      "the television's folders are missing here, and so is scripts/" + name +
                          ", which would make them; run camhost from the project's build tree");
    }
    return *found;
}

}  // namespace

bool in_television_surroundings() {
    constexpr std::array kFolders{"/mtd_exe", "/mtd_rwarea", "/mtd_rwcommon", "/dtv",
                                  "/proc/bus/usb"};
    return std::getenv("AITCAM_SANDBOX") != nullptr ||
           std::all_of(kFolders.begin(), kFolders.end(), [](const char* folder) {
               std::error_code error;
               return std::filesystem::is_directory(folder, error);
           });
}

int run_in_sandbox(char** argv) {
    const TemporaryFolder files;
    if (run_program({script("make-tv-files"), files.path()}) != 0) {
        throw Failure(ExitCode::kFailed, "cannot make the television's files");
    }
    std::vector<std::string> command{script("sandbox"), "--tv", files.path(), "--",
                                     std::filesystem::read_symlink("/proc/self/exe")};
    for (char** word = argv + 1; *word != nullptr; ++word) {
        command.emplace_back(*word);
    }
    return run_program(command);
}

}  // namespace camhost
