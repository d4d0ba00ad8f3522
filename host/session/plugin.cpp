#include "host/session/plugin.h"

#include <dlfcn.h>

#include <string>

#include "host/base/exit_code.h"
#include "host/base/program_path.h"

namespace camhost {

namespace {

template <typename Function>
Function symbol(void* library, const char* name, const std::filesystem::path& path) {
    void* address = dlsym(library, name);
    if (address == nullptr) {
        throw Failure(ExitCode::kNoPlugin,
                      path.string() + " is no camera plug-in: it has no " + name + "()");
    }
    return reinterpret_cast<Function>(address);
}

}  // namespace

Plugin::Plugin(const std::filesystem::path& path) : handle_(dlopen(path.c_str(), RTLD_NOW)) {
    if (handle_ == nullptr) {
        throw Failure(ExitCode::kNoPlugin, std::string("cannot load the plug-in: ") + dlerror());
    }
    try {
        create_ = symbol<decltype(create_)>(handle_, "cam_create", path);
        destroy_ = symbol<decltype(destroy_)>(handle_, "cam_destroy", path);
        version_ = symbol<decltype(version_)>(handle_, "cam_version", path);
    } catch (const Failure&) {
        dlclose(handle_);
        throw;
    }
}

Plugin::~Plugin() {
    dlclose(handle_);
}

std::optional<std::filesystem::path> Plugin::find_default() {
    return find_near_program({"libaitorixcamera.so", "../Src/libaitorixcamera.so",
                              AITCAM_LIBRARIES "/libaitorixcamera.so"});
}

}  // namespace camhost
