// The library that GStreamer loads.
#include <gst/gst.h>

#include "gst/aitcamsrc.h"
#include "gst/camera_device_provider.h"

#define PACKAGE "aitorixcamera"

static gboolean plugin_init(GstPlugin* plugin) {
    return GST_ELEMENT_REGISTER(aitcamsrc, plugin) &&
           GST_DEVICE_PROVIDER_REGISTER(aitcamdeviceprovider, plugin);
}

GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, aitcam, "Television camera", plugin_init,
                  AITCAM_VERSION, "Proprietary", "aitorixcamera", "https://localhost/")
