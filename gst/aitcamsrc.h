// The element "aitcamsrc": a television camera as a live source with a pad for each stream.
#pragma once

#include <gst/gst.h>

G_BEGIN_DECLS

#define AITCAM_TYPE_SRC (aitcam_src_get_type())
G_DECLARE_FINAL_TYPE(AitcamSrc, aitcam_src, AITCAM, SRC, GstElement)

GST_ELEMENT_REGISTER_DECLARE(aitcamsrc)

G_END_DECLS
