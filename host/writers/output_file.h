// A file being written, with every error told.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <span>
#include <string_view>

namespace camhost {

/// Throws Failure (kFailed) with the file's name whenever the system refuses.
class OutputFile {
  public:
    explicit OutputFile(const std::filesystem::path& path);

    void write(std::span<const uint8_t> bytes);
    void write(std::string_view text);
    /// Overwrites bytes written earlier; later writes go on at the end.
    void write_at(long offset, std::string_view text);
    /// Flushes and closes; the destructor closes too but cannot report.
    void close();

    const std::filesystem::path& path() const { return path_; }
    uint64_t size() const { return size_; }

  private:
    struct Closer {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    [[noreturn]] void fail() const;

    std::filesystem::path path_;
    std::unique_ptr<std::FILE, Closer> file_;
    uint64_t size_ = 0;
};

}  // namespace camhost
