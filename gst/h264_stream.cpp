#include "gst/h264_stream.h"

#include <gst/base/gstbitreader.h>

#include <algorithm>
#include <array>
#include <utility>

#include "host/pictures/annexb.h"

// Sequence parameters are read here because the library that reads them, libgstcodecparsers, comes
// with a development package that depends on all of OpenCV's (libgstreamer-plugins-bad1.0-dev), and
// promises no stable interface.

namespace gstcam {

namespace {

constexpr unsigned kLongestSide = 16384;

/// Bits of a NAL unit's payload. After a failed read everything reads as 0 and ok() is false.
class PayloadBits {
  public:
    explicit PayloadBits(std::span<const uint8_t> payload) {
        // The third byte of 00 00 03 is there for the start codes' sake only.
        unsigned zeros = 0;
        for (const uint8_t byte : payload) {
            if (zeros >= 2 && byte == 3) {
                zeros = 0;
                continue;
            }
            zeros = byte == 0 ? zeros + 1 : 0;
            bytes_.push_back(byte);
        }
        gst_bit_reader_init(&reader_, bytes_.data(), static_cast<guint>(bytes_.size()));
    }

    bool ok() const { return ok_; }

    uint32_t bits(unsigned count) {
        uint32_t value = 0;
        ok_ = ok_ && gst_bit_reader_get_bits_uint32(&reader_, &value, count) != FALSE;
        return ok_ ? value : 0;
    }
    bool flag() { return bits(1) != 0; }

    /// ue(v), 9.1.
    uint32_t unsigned_number() {
        unsigned zeros = 0;
        while (ok_ && !flag()) {
            ++zeros;
            ok_ = ok_ && zeros < 32;
        }
        return ok_ ? (1U << zeros) - 1 + (zeros > 0 ? bits(zeros) : 0) : 0;
    }
    /// se(v), 9.1.1.
    int32_t signed_number() {
        const uint32_t number = unsigned_number();
        const auto half = static_cast<int32_t>((number + 1) / 2);
        return number % 2 != 0 ? half : -half;
    }

  private:
    std::vector<uint8_t> bytes_;
    GstBitReader reader_{};
    bool ok_ = true;
};

void skip_scaling_list(PayloadBits& bits, unsigned size) {
    int32_t last = 8;
    int32_t next = 8;
    for (unsigned i = 0; i < size && bits.ok(); ++i) {
        if (next != 0) {
            next = (last + bits.signed_number() + 256) % 256;
        }
        last = next == 0 ? last : next;
    }
}

bool has_chroma_format(uint32_t profile) {
    constexpr std::array kProfiles{100U, 110U, 122U, 244U, 44U,  83U, 86U,
                                   118U, 128U, 138U, 139U, 134U, 135U};
    return std::find(kProfiles.begin(), kProfiles.end(), profile) != kProfiles.end();
}

/// Reads chroma_format_idc and what goes with it in the high profiles.
uint32_t read_chroma_format(PayloadBits& bits) {
    const uint32_t format = bits.unsigned_number();
    if (format == 3) {
        bits.flag();  // separate_colour_plane_flag
    }
    bits.unsigned_number();  // bit_depth_luma_minus8
    bits.unsigned_number();  // bit_depth_chroma_minus8
    bits.flag();             // qpprime_y_zero_transform_bypass_flag
    if (bits.flag()) {       // seq_scaling_matrix_present_flag
        const unsigned lists = format == 3 ? 12 : 8;
        for (unsigned i = 0; i < lists && bits.ok(); ++i) {
            if (bits.flag()) {
                skip_scaling_list(bits, i < 6 ? 16 : 64);
            }
        }
    }
    return format;
}

void skip_picture_order(PayloadBits& bits) {
    const uint32_t type = bits.unsigned_number();
    if (type == 0) {
        bits.unsigned_number();  // log2_max_pic_order_cnt_lsb_minus4
    } else if (type == 1) {
        bits.flag();           // delta_pic_order_always_zero_flag
        bits.signed_number();  // offset_for_non_ref_pic
        bits.signed_number();  // offset_for_top_to_bottom_field
        const uint32_t count = bits.unsigned_number();
        for (uint32_t i = 0; i < count && bits.ok(); ++i) {
            bits.signed_number();  // offset_for_ref_frame
        }
    }
}

/// Width and height of the picture that is shown, from pic_width_in_mbs_minus1 on.
bool read_size(PayloadBits& bits, uint32_t chroma_format, SequenceParameters* result) {
    constexpr uint32_t kMacroblock = 16;
    const uint64_t width = uint64_t{kMacroblock} * (bits.unsigned_number() + uint64_t{1});
    const uint64_t units = bits.unsigned_number() + uint64_t{1};
    const bool frames_only = bits.flag();
    const uint64_t height = kMacroblock * units * (frames_only ? 1 : 2);
    if (!frames_only) {
        bits.flag();  // mb_adaptive_frame_field_flag
    }
    bits.flag();  // direct_8x8_inference_flag
    uint64_t cut_x = 0;
    uint64_t cut_y = 0;
    if (bits.flag()) {  // frame_cropping_flag; sums of the two sides
        cut_x = uint64_t{bits.unsigned_number()} + bits.unsigned_number();
        cut_y = uint64_t{bits.unsigned_number()} + bits.unsigned_number();
        cut_x *= chroma_format == 1 || chroma_format == 2 ? 2 : 1;
        cut_y *= chroma_format == 1 ? 2 : 1;
        cut_y *= frames_only ? 1 : 2;
    }
    if (!bits.ok() || width > kLongestSide || height > kLongestSide || cut_x >= width ||
        cut_y >= height) {
        return false;
    }
    result->width = static_cast<int>(width - cut_x);
    result->height = static_cast<int>(height - cut_y);
    return true;
}

std::optional<SequenceParameters> parse(std::span<const uint8_t> payload) {
    SequenceParameters result;
    result.bytes.assign(payload.begin(), payload.end());
    PayloadBits bits(payload);
    const uint32_t profile = bits.bits(8);
    bits.bits(16);           // constraint flags, level
    bits.unsigned_number();  // seq_parameter_set_id
    const uint32_t chroma_format = has_chroma_format(profile) ? read_chroma_format(bits) : 1;
    bits.unsigned_number();  // log2_max_frame_num_minus4
    skip_picture_order(bits);
    bits.unsigned_number();  // max_num_ref_frames
    bits.flag();             // gaps_in_frame_num_value_allowed_flag
    if (!read_size(bits, chroma_format, &result)) {
        return std::nullopt;
    }
    return result;
}

}  // namespace

std::optional<AccessUnits::Unit> AccessUnits::add(std::span<const uint8_t> record) {
    const camhost::AccessUnitParts parts = camhost::parts_of(record);
    if (parts.slices == 0 && waiting_.size() + record.size() > kMostWaiting) {
        waiting_.clear();
        lost_ = true;
        return std::nullopt;
    }
    if (parts.slices == 0) {
        waiting_.insert(waiting_.end(), record.begin(), record.end());
        return std::nullopt;
    }
    head_.swap(waiting_);
    waiting_.clear();
    return Unit{head_, record, parts.idr, std::exchange(lost_, false)};
}

std::optional<SequenceParameters> sequence_parameters(std::span<const uint8_t> unit) {
    std::optional<SequenceParameters> found;
    camhost::for_each_nal(unit, [&](std::span<const uint8_t> nal) {
        if (static_cast<camhost::NalType>(nal[0] & 0x1F) == camhost::NalType::kSps && !found) {
            found = parse(nal.subspan(1));
        }
    });
    return found;
}

}  // namespace gstcam
