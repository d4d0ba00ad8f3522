// The three functions that the framework finds in the plug-in.
#include <assert.h>
#include <unistd.h>

#include "AitOrixCamera.h"
#include "CamDestroyFlag.h"
#include "aitdbg.h"

#define PLUGIN_EXPORT extern "C" __attribute__((visibility("default")))

namespace {
constexpr char kDriverVersion[] = "3.141229";
constexpr char kProduct[] = "TARLO";
constexpr int kPluginVersion = 169;

/// True on a thread of the plug-in, inside the host's code.
bool IsCalledBack() {
    return CAitOrixCamera::IsInsideUpdate() || CCameraFwLoader::OnLoaderThread();
}
}  // namespace

/// Makes a camera object, owned by the caller until cam_destroy. Takes a second. Each call makes a
/// new one; the newest is the one that counts. A failed allocation propagates as an exception.
PLUGIN_EXPORT ICameraSubject* cam_create() {
    PrintDebuggingInit(nullptr);
    AIT_LOG(1, "Vespin Driver ver: %s\r\n", kDriverVersion);
    AIT_LOG(1, "AitLib:: cam_create() \r\n");
    auto* camera = new CAitOrixCamera;
    sleep(1);
    return camera;
}

/// Destroys a camera object; null is allowed. Not from a callback or an observer: a thread cannot wait
/// for its own end, so that is refused with a line (a debug build aborts), and the object stays.
PLUGIN_EXPORT void cam_destroy(ICameraSubject* camera) {
    AIT_LOG(1, "AitLib:: [Start] cam_destroy() \r\n");
    if (IsCalledBack()) {
        AIT_LOG(1, "Not possible inside Update or the callback of Init.\r\n");
        assert(!"cam_destroy inside Update or the callback of Init");
        return;
    }
    SetCamDestroy(true);  // first, so that loader and callbacks see it
    delete camera;
    PrintDebuggingClose();
    AIT_LOG(1, "AitLib:: [End] cam_destroy() \r\n");
}

/// Version of the plug-in; needs no camera.
PLUGIN_EXPORT int cam_version() {
    AIT_LOG(1, "%s version %d\n", kProduct, kPluginVersion);
    return kPluginVersion;
}
