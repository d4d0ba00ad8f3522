// A folder for one test's files, gone with the test.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

namespace camhost_test {

class TemporaryFolder {
  public:
    TemporaryFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "camhost-test-XXXXXX");
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("no temporary folder");
        }
        path_ = name;
    }
    ~TemporaryFolder() {
        std::error_code error;
        std::filesystem::remove_all(path_, error);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::string text_of(const std::string& name) const {
        std::ifstream file(path_ / name, std::ios::binary);
        std::ostringstream text;
        text << file.rdbuf();
        return text.str();
    }

  private:
    std::filesystem::path path_;
};

}  // namespace camhost_test
