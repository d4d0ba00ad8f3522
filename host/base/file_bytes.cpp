#include "host/base/file_bytes.h"

#include <fstream>

#include "host/base/exit_code.h"

namespace camhost {

std::vector<uint8_t> read_file(const std::filesystem::path& path, uint64_t offset, size_t limit) {
    std::error_code error;
    const uint64_t size = std::filesystem::file_size(path, error);
    std::ifstream file(path, std::ios::binary);
    if (error || !file) {
        throw Failure(ExitCode::kFailed, "cannot read " + path.string());
    }
    const uint64_t available = offset < size ? size - offset : 0;
    std::vector<uint8_t> bytes(available < limit ? static_cast<size_t>(available) : limit);
    file.seekg(static_cast<std::streamoff>(offset));
    file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    bytes.resize(static_cast<size_t>(file.gcount()));
    return bytes;
}

}  // namespace camhost
