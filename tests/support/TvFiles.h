// The television's files, which are private to each test process (scripts/sandbox).
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace test {

inline void WriteFile(const std::filesystem::path& path, const std::string& content) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << content;
}

inline std::string ReadFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// Bytes that differ from place to place, so that a swapped or missing piece shows.
inline std::string ImageOf(size_t size) {
    std::string image(size, '\0');
    uint32_t state = 12345;
    for (char& byte : image) {
        state = state * 1664525u + 1013904223u;
        byte = static_cast<char>(state >> 24);
    }
    return image;
}

/// Empties the folders that the plug-in reads and writes.
inline void RemoveTvFiles() {
    for (const char* folder : {"/mtd_exe", "/mtd_rwarea", "/mtd_rwcommon", "/dtv"}) {
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            std::filesystem::remove_all(entry.path());
        }
    }
}

}  // namespace test
