#include "host/base/program_path.h"

namespace camhost {

std::optional<std::filesystem::path> find_near_program(
    const std::vector<std::filesystem::path>& candidates) {
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) {
        return std::nullopt;
    }
    for (const auto& candidate : candidates) {
        const auto path = program.parent_path() / candidate;
        if (std::filesystem::exists(path, error)) {
            return std::filesystem::canonical(path, error);
        }
    }
    return std::nullopt;
}

}  // namespace camhost
