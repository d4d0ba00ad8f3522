// A folder for files that nobody asked to keep.
#pragma once

#include <filesystem>

namespace camhost {

/// A fresh folder that goes with its files.
class TemporaryFolder {
  public:
    /// Throws Failure (kFailed) when the system makes none.
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }

  private:
    std::filesystem::path path_;
};

}  // namespace camhost
