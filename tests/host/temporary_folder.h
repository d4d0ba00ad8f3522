// A folder for one test's files, gone with the test.
#pragma once

#include <fstream>
#include <sstream>
#include <string>

#include "host/base/temporary_folder.h"

namespace camhost::test {

class TemporaryFolder : public camhost::TemporaryFolder {
  public:
    std::string text_of(const std::string& name) const {
        std::ifstream file(path() / name, std::ios::binary);
        std::ostringstream text;
        text << file.rdbuf();
        return text.str();
    }
};

}  // namespace camhost::test
