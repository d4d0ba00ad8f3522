#include "picture_decoder.h"

#include <turbojpeg.h>
#include <wels/codec_api.h>

#include <algorithm>

namespace virtcam::model::test {
namespace {

void copy_plane(const uint8_t* from, int stride, int width, int height, std::vector<uint8_t>& to) {
    for (int row = 0; row < height; ++row) {
        std::copy_n(from + static_cast<std::ptrdiff_t>(row) * stride, width,
                    to.begin() + static_cast<std::ptrdiff_t>(row) * width);
    }
}

}  // namespace

struct H264Decoder::Handle {
    ISVCDecoder* decoder = nullptr;

    Handle() {
        WelsCreateDecoder(&decoder);
        int quiet = WELS_LOG_QUIET;
        decoder->SetOption(DECODER_OPTION_TRACE_LEVEL, &quiet);
        SDecodingParam parameters{};
        parameters.eEcActiveIdc = ERROR_CON_DISABLE;
        parameters.sVideoProperty.eVideoBsType = VIDEO_BITSTREAM_AVC;
        decoder->Initialize(&parameters);
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle() {
        decoder->Uninitialize();
        WelsDestroyDecoder(decoder);
    }
};

H264Decoder::H264Decoder() : handle_(std::make_unique<Handle>()) {}

H264Decoder::~H264Decoder() = default;

std::optional<Picture> H264Decoder::decode(ByteView access_unit) {
    unsigned char* planes[3] = {};
    SBufferInfo info{};
    const auto state = handle_->decoder->DecodeFrameNoDelay(
        access_unit.data(), static_cast<int>(access_unit.size()), planes, &info);
    if (state != dsErrorFree || info.iBufferStatus != 1) {
        return std::nullopt;
    }
    const auto& memory = info.UsrData.sSystemBuffer;
    Picture picture(memory.iWidth, memory.iHeight);
    copy_plane(planes[0], memory.iStride[0], picture.width, picture.height, picture.y);
    copy_plane(planes[1], memory.iStride[1], picture.width / 2, picture.height / 2, picture.u);
    copy_plane(planes[2], memory.iStride[1], picture.width / 2, picture.height / 2, picture.v);
    return picture;
}

std::optional<Picture> decode_jpeg(ByteView data) {
    const std::unique_ptr<void, int (*)(tjhandle)> handle(tjInitDecompress(), tjDestroy);
    int width = 0;
    int height = 0;
    int subsampling = 0;
    int colour_space = 0;
    if (tjDecompressHeader3(handle.get(), data.data(), data.size(), &width, &height, &subsampling,
                            &colour_space) != 0 ||
        subsampling != TJSAMP_420) {
        return std::nullopt;
    }
    Picture picture(width, height);
    unsigned char* planes[3] = {picture.y.data(), picture.u.data(), picture.v.data()};
    if (tjDecompressToYUVPlanes(handle.get(), data.data(), data.size(), planes, width, nullptr,
                                height, 0) != 0) {
        return std::nullopt;
    }
    return picture;
}

Picture unpack_yuy2(ByteView data, int width, int height) {
    Picture picture(width, height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; x += 2) {
            const size_t at = (static_cast<size_t>(y) * width + x) * 2;
            picture.row_y(y)[x] = data[at];
            picture.row_y(y)[x + 1] = data[at + 2];
            picture.row_u(y / 2)[x / 2] = data[at + 1];
            picture.row_v(y / 2)[x / 2] = data[at + 3];
        }
    }
    return picture;
}

Picture unpack_semi_planar(ByteView data, int width, int height, bool u_first) {
    Picture picture(width, height);
    std::copy_n(data.begin(), picture.y.size(), picture.y.begin());
    const size_t first = picture.y.size() + (u_first ? 0 : 1);
    const size_t second = picture.y.size() + (u_first ? 1 : 0);
    for (size_t i = 0; i < picture.u.size(); ++i) {
        picture.u[i] = data[first + 2 * i];
        picture.v[i] = data[second + 2 * i];
    }
    return picture;
}

Picture unpack_gray(ByteView data, int width, int height) {
    Picture picture(width, height);
    std::copy_n(data.begin(), picture.y.size(), picture.y.begin());
    std::fill(picture.u.begin(), picture.u.end(), uint8_t{128});
    std::fill(picture.v.begin(), picture.v.end(), uint8_t{128});
    return picture;
}

}  // namespace virtcam::model::test
