// Bit syntax after ITU-T H.264: 7.3.2.1.1 (SPS), 7.4.1 (emulation prevention), 9.1 (Exp-Golomb),
// E.1.1 (VUI), A.3.1 (limits of the levels).
#include "virtcam/model/h264_parameter_sets.h"

#include <algorithm>
#include <array>
#include <bit>
#include <optional>
#include <stdexcept>
#include <string>

namespace virtcam::model {
namespace {

constexpr uint8_t kEmulationPrevention = 3;

[[noreturn]] void refuse(const char* why) {
    throw std::runtime_error(std::string("SPS: ") + why);
}

/// Reads a NAL unit's payload, its emulation prevention bytes skipped.
class BitReader {
  public:
    explicit BitReader(ByteView payload) {
        for (size_t i = 0; i < payload.size(); ++i) {
            const bool is_escape = payload[i] == kEmulationPrevention && i >= 2 &&
                                   payload[i - 1] == 0 && payload[i - 2] == 0;
            if (!is_escape) {
                bytes_.push_back(payload[i]);
            }
        }
    }

    uint32_t bits(unsigned count) {
        uint32_t value = 0;
        for (; count != 0; --count) {
            if (at_ == bytes_.size() * 8) {
                refuse("ends early");
            }
            value = value << 1 | (bytes_[at_ / 8] >> (7 - at_ % 8) & 1U);
            ++at_;
        }
        return value;
    }
    bool flag() { return bits(1) != 0; }
    uint32_t ue() {
        constexpr unsigned kMostZeros = 31;
        unsigned zeros = 0;
        while (!flag()) {
            if (++zeros > kMostZeros) {
                refuse("number too large");
            }
        }
        return (1U << zeros) - 1 + bits(zeros);
    }

  private:
    Bytes bytes_;
    size_t at_ = 0;
};

class BitWriter {
  public:
    void bits(uint32_t value, unsigned count) {
        for (; count != 0; --count) {
            if (used_ % 8 == 0) {
                bytes_.push_back(0);
            }
            bytes_.back() |= static_cast<uint8_t>((value >> (count - 1) & 1U) << (7 - used_ % 8));
            ++used_;
        }
    }
    void flag(bool value) { bits(value ? 1 : 0, 1); }
    void ue(uint32_t value) {
        const auto width = static_cast<unsigned>(std::bit_width(value + 1));
        bits(0, width - 1);
        bits(value + 1, width);
    }
    /// Ends the payload and appends it to `unit` with emulation prevention.
    void finish(Bytes& unit) {
        flag(true);  // rbsp_stop_one_bit; the rest of the byte is zero
        size_t zeros = 0;
        for (const uint8_t byte : bytes_) {
            if (zeros >= 2 && byte <= kEmulationPrevention) {
                unit.push_back(kEmulationPrevention);
                zeros = 0;
            }
            unit.push_back(byte);
            zeros = byte == 0 ? zeros + 1 : 0;
        }
    }

  private:
    Bytes bytes_;
    size_t used_ = 0;
};

/// Exp-Golomb numbers as they are coded, since nothing is calculated from them.
struct Crop {
    uint32_t left, right, top, bottom;
};

struct Sps {
    uint8_t header = 0;
    uint8_t profile = 0;
    uint8_t constraints = 0;
    uint8_t level = 0;
    uint32_t id = 0;
    uint32_t frame_num_width = 0;  ///< coded: less 4
    uint32_t order_type = 0;       ///< pic_order_cnt_type, 0 or 2
    uint32_t order_width = 0;      ///< coded: less 4; of order type 0
    uint32_t reference_frames = 0;
    bool frame_num_gaps = false;
    uint32_t width = 0;   ///< macroblocks less 1
    uint32_t height = 0;  ///< the same
    bool direct_8x8 = false;
    std::optional<Crop> crop;
    bool has_vui = false;
};

void read_order(BitReader& in, Sps& sps) {
    sps.order_type = in.ue();
    if (sps.order_type == 0) {
        sps.order_width = in.ue();
    } else if (sps.order_type != 2) {
        refuse("picture order by cycles");
    }
}

Sps parse(ByteView unit) {
    constexpr uint8_t kBaseline = 66;
    constexpr size_t kFixedPart = 4;
    if (unit.size() <= kFixedPart) {
        refuse("ends early");
    }
    Sps sps;
    sps.header = unit[0];
    sps.profile = unit[1];
    sps.constraints = unit[2];
    sps.level = unit[3];
    if (sps.profile != kBaseline) {
        refuse("not of the Baseline profile");
    }
    BitReader in(unit.subspan(kFixedPart));
    sps.id = in.ue();
    sps.frame_num_width = in.ue();
    read_order(in, sps);
    sps.reference_frames = in.ue();
    sps.frame_num_gaps = in.flag();
    sps.width = in.ue();
    sps.height = in.ue();
    if (!in.flag()) {
        refuse("interlaced pictures");
    }
    sps.direct_8x8 = in.flag();
    if (in.flag()) {
        sps.crop = Crop{in.ue(), in.ue(), in.ue(), in.ue()};
    }
    sps.has_vui = in.flag();
    return sps;
}

/// The VUI of a stream whose pictures are shown in the order in which they are coded, as OpenH264
/// writes it.
void write_vui(BitWriter& out, uint32_t frames) {
    constexpr uint32_t kLongestVector = 16;  // log2, in quarter samples
    out.bits(0, 8);                          // no aspect ratio ... no pic_struct
    out.flag(true);                          // bitstream_restriction_flag
    out.flag(true);                          // motion vectors over the picture's edges
    out.ue(0);                               // no limit of bytes per picture
    out.ue(0);                               // nor of bits per macroblock
    out.ue(kLongestVector);                  // horizontal
    out.ue(kLongestVector);                  // vertical
    out.ue(0);                               // max_num_reorder_frames
    out.ue(frames);                          // max_dec_frame_buffering
}

Bytes write(const Sps& sps) {
    BitWriter out;
    out.ue(sps.id);
    out.ue(sps.frame_num_width);
    out.ue(sps.order_type);
    if (sps.order_type == 0) {
        out.ue(sps.order_width);
    }
    out.ue(sps.reference_frames);
    out.flag(sps.frame_num_gaps);
    out.ue(sps.width);
    out.ue(sps.height);
    out.flag(true);  // frame_mbs_only_flag
    out.flag(sps.direct_8x8);
    out.flag(sps.crop.has_value());
    if (sps.crop) {
        for (const uint32_t side :
             {sps.crop->left, sps.crop->right, sps.crop->top, sps.crop->bottom}) {
            out.ue(side);
        }
    }
    out.flag(sps.has_vui);
    if (sps.has_vui) {
        write_vui(out, sps.reference_frames);
    }
    Bytes unit{sps.header, sps.profile, sps.constraints, sps.level};
    out.finish(unit);
    return unit;
}

/// Raises the level to one whose decoders keep the reference frames (MaxDpbMbs). False: there is
/// none.
bool raise_level(Sps& sps) {
    struct Level {
        uint8_t code;
        uint32_t macroblocks;
    };
    constexpr std::array<Level, 12> kLevels{{{10, 396},
                                             {11, 900},
                                             {12, 2376},
                                             {21, 4752},
                                             {22, 8100},
                                             {31, 18000},
                                             {32, 20480},
                                             {40, 32768},
                                             {42, 34816},
                                             {50, 110400},
                                             {51, 184320},
                                             {60, 696320}}};
    const uint64_t needed =
        (uint64_t{sps.width} + 1) * (uint64_t{sps.height} + 1) * sps.reference_frames;
    for (const Level& level : kLevels) {
        if (needed <= level.macroblocks) {
            sps.level = std::max(sps.level, level.code);
            return true;
        }
    }
    return false;
}

bool contains(ByteView unit, uint8_t byte) {
    return std::find(unit.begin() + 1, unit.end(), byte) != unit.end();
}

}  // namespace

Bytes sps_without_byte(ByteView sps, uint8_t unwanted) {
    if (!sps.empty() && !contains(sps, unwanted)) {
        return {sps.begin(), sps.end()};
    }
    const Sps original = parse(sps);
    for (const bool with_vui : {original.has_vui, false}) {
        // More reference frames than are used cost a decoder memory, nothing else. Their number
        // stands before the picture's size, and larger ones are coded in more bits.
        constexpr uint32_t kMost = 16;
        for (uint32_t frames = original.reference_frames; frames <= kMost; ++frames) {
            Sps changed = original;
            changed.has_vui = with_vui;
            changed.reference_frames = frames;
            const bool allowed = frames == original.reference_frames || raise_level(changed);
            Bytes unit = write(changed);
            if (allowed && !contains(unit, unwanted)) {
                return unit;
            }
        }
    }
    refuse("no form of it without an unwanted byte");
}

}  // namespace virtcam::model
