#include "host/pictures/h264_decoder.h"

#include <wels/codec_api.h>

#include <cstddef>
#include <vector>

#include "host/base/exit_code.h"

namespace camhost {

namespace {

void copy_plane(const uint8_t* source, int stride, Size size, std::vector<uint8_t>* plane) {
    plane->clear();
    plane->reserve(size.area());
    for (int y = 0; y < size.height; ++y) {
        const uint8_t* row = source + static_cast<ptrdiff_t>(y) * stride;
        plane->insert(plane->end(), row, row + size.width);
    }
}

bool copy_picture(uint8_t* const planes[3], const SBufferInfo& buffer, PlanarPicture* picture) {
    if (buffer.iBufferStatus != 1 || planes[0] == nullptr) {
        return false;
    }
    const SSysMEMBuffer& memory = buffer.UsrData.sSystemBuffer;
    picture->size = {memory.iWidth, memory.iHeight};
    picture->chroma = PlanarPicture::Chroma::k420;
    copy_plane(planes[0], memory.iStride[0], picture->size, &picture->y);
    copy_plane(planes[1], memory.iStride[1], picture->chroma_size(), &picture->u);
    copy_plane(planes[2], memory.iStride[1], picture->chroma_size(), &picture->v);
    return true;
}

}  // namespace

void H264Decoder::Destroyer::operator()(ISVCDecoder* decoder) const {
    decoder->Uninitialize();
    WelsDestroyDecoder(decoder);
}

H264Decoder::H264Decoder() {
    ISVCDecoder* decoder = nullptr;
    if (WelsCreateDecoder(&decoder) != 0 || decoder == nullptr) {
        throw Failure(ExitCode::kFailed, "OpenH264 gives no decoder");
    }
    decoder_.reset(decoder);
    int quiet = WELS_LOG_QUIET;
    decoder->SetOption(DECODER_OPTION_TRACE_LEVEL, &quiet);
    SDecodingParam parameters{};
    parameters.sVideoProperty.eVideoBsType = VIDEO_BITSTREAM_AVC;
    // Broken data must show as missing pictures, not be painted over.
    parameters.eEcActiveIdc = ERROR_CON_DISABLE;
    if (decoder->Initialize(&parameters) != 0) {
        throw Failure(ExitCode::kFailed, "OpenH264 does not initialise its decoder");
    }
}

bool H264Decoder::decode(std::span<const uint8_t> nal, PlanarPicture* picture) {
    std::vector<uint8_t> unit{0, 0, 0, 1};
    unit.insert(unit.end(), nal.begin(), nal.end());
    uint8_t* planes[3] = {};
    SBufferInfo buffer{};
    const DECODING_STATE state =
        decoder_->DecodeFrameNoDelay(unit.data(), static_cast<int>(unit.size()), planes, &buffer);
    if (state != dsErrorFree && state != dsFramePending) {
        ++errors_;
    }
    return copy_picture(planes, buffer, picture);
}

bool H264Decoder::flush(PlanarPicture* picture) {
    uint8_t* planes[3] = {};
    SBufferInfo buffer{};
    decoder_->FlushFrame(planes, &buffer);
    return copy_picture(planes, buffer, picture);
}

}  // namespace camhost
