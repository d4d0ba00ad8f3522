// The plug-in as a television's camera framework loads it: by path, through three C functions.
#pragma once

#include <filesystem>
#include <optional>

#include "Src/CameraInterface.h"

namespace camhost {

/// A loaded plug-in. Unloaded by the destructor: destroy every camera first.
class Plugin {
  public:
    /// Throws Failure (kNoPlugin) when the library or one of its functions is missing.
    explicit Plugin(const std::filesystem::path& path);
    ~Plugin();
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;

    /// A new camera, owned by the caller until destroy(). Blocks for about one second.
    ICameraSubject* create() const { return create_(); }
    void destroy(ICameraSubject* camera) const { destroy_(camera); }
    int version() const { return version_(); }

    /// The plug-in beside the program or in its build tree, if there is one.
    static std::optional<std::filesystem::path> find_default();

  private:
    void* handle_;
    ICameraSubject* (*create_)();
    void (*destroy_)(ICameraSubject*);
    int (*version_)();
};

}  // namespace camhost
