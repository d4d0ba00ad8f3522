#include "host/base/temporary_folder.h"

#include <stdlib.h>

#include <string>

#include "host/base/exit_code.h"

namespace camhost {

TemporaryFolder::TemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "camhost-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        throw Failure(ExitCode::kFailed, "cannot make a temporary folder");
    }
    path_ = name;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code error;
    std::filesystem::remove_all(path_, error);
}

}  // namespace camhost
