// What the element has to know of the H.264 streams that it passes on.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace gstcam {

/// Makes access units of records. Mostly each record is one; in call mode the parameter sets of a
/// key frame come as records of their own before it. One thread.
class AccessUnits {
  public:
    struct Unit {
        std::span<const uint8_t> head;  ///< records that came before the last one
        std::span<const uint8_t> body;  ///< the last record
        bool key = false;               ///< a picture to begin with
        bool lost = false;              ///< what came before it was given up
    };

    /// The access unit that the record completes, if it does: valid until the next call.
    std::optional<Unit> add(std::span<const uint8_t> record);
    /// Forgets what waits for its picture.
    void reset() { waiting_.clear(); }

    /// Parameter sets are short: more than this, without a picture, is none, and given up.
    static constexpr size_t kMostWaiting = size_t{64} << 10;

  private:
    std::vector<uint8_t> waiting_;
    std::vector<uint8_t> head_;
    bool lost_ = false;
};

/// The part of a sequence parameter set (ITU-T H.264, 7.3.2.1.1) that caps tell.
struct SequenceParameters {
    std::vector<uint8_t> bytes;  ///< from profile_idc on, as in the stream
    int width = 0;               ///< pixels, cropped
    int height = 0;
};

/// The sequence parameters in an access unit; nothing when there are none, or none that make sense.
std::optional<SequenceParameters> sequence_parameters(std::span<const uint8_t> unit);

}  // namespace gstcam
