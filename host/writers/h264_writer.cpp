#include "host/writers/h264_writer.h"

#include <cstdio>
#include <utility>
#include <vector>

#include "host/base/file_bytes.h"
#include "host/pictures/annexb.h"
#include "host/pictures/h264_decoder.h"

namespace camhost {

namespace {
// A camera sends key frames on request only, so the last one may be far back: what is decoded for
// one picture is bounded (some 60 s at the default 2 Mbit/s).
constexpr size_t kDecodedBytes = size_t{16} << 20;
}  // namespace

H264Writer::H264Writer(Stream stream, const std::filesystem::path& folder)
    : file_(folder / (std::string(info(stream).name) + ".h264")) {}

void H264Writer::write(const Record& record, bool /*restarted*/) {
    const AccessUnitParts parts = parts_of(record.data);
    // In call mode a key frame comes as three records; it begins at the first of them, the SPS.
    if (parts.sps || (parts.idr && !after_parameter_sets_)) {
        last_key_frame_ = file_.size();
    }
    after_parameter_sets_ = parts.slices == 0 && (parts.sps || parts.pps);
    file_.write(record.data);
}

WrittenStream H264Writer::finish() {
    file_.close();
    WrittenStream result;
    result.files.push_back(file_.path());
    decode_last_picture(&result);
    return result;
}

void H264Writer::decode_last_picture(WrittenStream* result) const {
    if (!last_key_frame_) {
        result->notes.emplace_back("no key frame, so nothing can be decoded");
        return;
    }
    H264Decoder decoder;
    PlanarPicture picture;
    for_each_nal(read_file(file_.path(), *last_key_frame_, kDecodedBytes),
                 [&](std::span<const uint8_t> nal) { decoder.decode(nal, &picture); });
    decoder.flush(&picture);
    result->picture_size = picture.size;
    if (picture.y.empty()) {
        result->notes.emplace_back("the last key frame does not decode");
        return;
    }
    result->picture = to_rgb(picture);
}

}  // namespace camhost
