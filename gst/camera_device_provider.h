// Lists the camera among the devices while it is on the bus (gst-device-monitor-1.0).
#pragma once

#include <gst/gst.h>

G_BEGIN_DECLS

#define AITCAM_TYPE_DEVICE (aitcam_device_get_type())
G_DECLARE_FINAL_TYPE(AitcamDevice, aitcam_device, AITCAM, DEVICE, GstDevice)

#define AITCAM_TYPE_DEVICE_PROVIDER (aitcam_device_provider_get_type())
G_DECLARE_FINAL_TYPE(AitcamDeviceProvider, aitcam_device_provider, AITCAM, DEVICE_PROVIDER,
                     GstDeviceProvider)

GST_DEVICE_PROVIDER_REGISTER_DECLARE(aitcamdeviceprovider)

G_END_DECLS
