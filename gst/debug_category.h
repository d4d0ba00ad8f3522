// The element's own messages: GST_DEBUG=aitcamsrc:5.
#pragma once

#include <gst/gst.h>

GST_DEBUG_CATEGORY_EXTERN(aitcamsrc_debug);
#undef GST_CAT_DEFAULT
#define GST_CAT_DEFAULT aitcamsrc_debug
