#include "gst/stream_caps.h"

#include <gst/pbutils/codec-utils.h>
#include <turbojpeg.h>

#include "gst/h264_stream.h"
#include "host/pictures/raw_picture.h"

namespace gstcam {

namespace {

using camhost::Stream;

CapsRef h264_caps(std::span<const uint8_t> unit, int rate) {
    const auto parameters = sequence_parameters(unit);
    if (!parameters) {
        return nullptr;
    }
    GstCaps* caps = gst_caps_new_simple("video/x-h264", "stream-format", G_TYPE_STRING,
                                        "byte-stream", "alignment", G_TYPE_STRING, "au", "width",
                                        G_TYPE_INT, parameters->width, "height", G_TYPE_INT,
                                        parameters->height, "framerate", GST_TYPE_FRACTION, rate, 1,
                                        "pixel-aspect-ratio", GST_TYPE_FRACTION, 1, 1, nullptr);
    gst_codec_utils_h264_caps_set_level_and_profile(caps, parameters->bytes.data(),
                                                    static_cast<guint>(parameters->bytes.size()));
    return CapsRef(caps);
}

struct DecompressorEnd {
    void operator()(void* handle) const { tjDestroy(handle); }
};

CapsRef jpeg_caps(std::span<const uint8_t> picture) {
    const std::unique_ptr<void, DecompressorEnd> decompressor(tjInitDecompress());
    int width = 0;
    int height = 0;
    int subsampling = 0;
    int colours = 0;
    if (decompressor == nullptr ||
        tjDecompressHeader3(decompressor.get(), picture.data(),
                            static_cast<unsigned long>(picture.size()), &width, &height,
                            &subsampling, &colours) != 0) {
        return nullptr;
    }
    return CapsRef(gst_caps_new_simple("image/jpeg", "width", G_TYPE_INT, width, "height",
                                       G_TYPE_INT, height, "framerate", GST_TYPE_FRACTION, 0, 1,
                                       nullptr));
}

const char* format_of(Stream stream) {
    switch (stream) {
        case Stream::kGray:
            return "GRAY8";
        case Stream::kYuy2:
            return "YUY2";
        case Stream::kNv12:
            return "NV12";
        default:
            return "NV21";
    }
}

CapsRef raw_caps(Stream stream, size_t bytes) {
    const auto size = camhost::deduce_size(stream, bytes);
    if (!size) {
        return nullptr;
    }
    return CapsRef(gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, format_of(stream),
                                       "width", G_TYPE_INT, size->width, "height", G_TYPE_INT,
                                       size->height, "framerate", GST_TYPE_FRACTION,
                                       static_cast<int>(row_of(stream).rate), 1,
                                       "pixel-aspect-ratio", GST_TYPE_FRACTION, 1, 1, nullptr));
}

CapsRef sound_caps(int rate) {
    return CapsRef(gst_caps_new_simple("audio/x-raw", "format", G_TYPE_STRING, "S16LE", "layout",
                                       G_TYPE_STRING, "interleaved", "rate", G_TYPE_INT, rate,
                                       "channels", G_TYPE_INT, 2, "channel-mask", GST_TYPE_BITMASK,
                                       guint64{3}, nullptr));
}

}  // namespace

CapsRef caps_of(Stream stream, std::span<const uint8_t> record, const StreamSettings& settings) {
    switch (stream) {
        case Stream::kH264Main:
            return h264_caps(record, settings.main_rate);
        case Stream::kH264Sub:
            return h264_caps(record, static_cast<int>(row_of(stream).rate));
        case Stream::kJpeg:
            return jpeg_caps(record);
        case Stream::kPcm:
            return sound_caps(settings.sample_rate);
        default:
            return raw_caps(stream, record.size());
    }
}

}  // namespace gstcam
