// Where the program's companions are.
#pragma once

#include <filesystem>
#include <optional>
#include <vector>

namespace camhost {

/// The first of the paths, relative to the program's own folder, that exists; made absolute.
std::optional<std::filesystem::path> find_near_program(
    const std::vector<std::filesystem::path>& candidates);

}  // namespace camhost
