// Whole files and pieces of them in memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <vector>

namespace camhost {

/// At most `limit` bytes of the file from `offset` on. Throws Failure (kFailed) when it cannot be
/// read.
std::vector<uint8_t> read_file(const std::filesystem::path& path, uint64_t offset, size_t limit);

}  // namespace camhost
