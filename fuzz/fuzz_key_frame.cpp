// The key-frame scan and the loss detector, on frames that end where their memory ends.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "H264ErrorDetector.h"
#include "PayloadParser.h"
#include "fuzz/tape.h"

namespace {

/// The scan looks that far behind the frame, which every frame buffer has room for.
constexpr size_t kLookAhead = 4;

void check_parts(const H264KeyFrame& parts, int size) {
    const bool cover = parts.sps_size > 0 &&
                       parts.pps_offset == parts.sps_offset + parts.sps_size &&
                       parts.idr_offset == parts.pps_offset + parts.pps_size &&
                       parts.idr_offset + parts.idr_size == size;
    if (!cover) {
        __builtin_trap();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Tape tape(data, size);
    CH264_ErrorDetector detector;
    while (!tape.empty()) {
        const uint32_t sequence = tape.byte();
        const size_t length = std::min<size_t>(tape.byte(), tape.rest());
        const auto frame = std::make_unique<uint8_t[]>(length + kLookAhead);
        tape.bytes(frame.get(), length);
        H264KeyFrame parts;
        if (ParseH264KeyFrame(frame.get(), static_cast<int>(length), &parts) == 1) {
            check_parts(parts, static_cast<int>(length));
        }
        const auto alone = std::make_unique<uint8_t[]>(length);
        std::copy_n(frame.get(), length, alone.get());
        const H264_STATUS status =
            detector.CheckFrame(alone.get(), static_cast<unsigned int>(length), sequence);
        if (detector.IsIframe() && status != H264_STATUS_OK) {
            __builtin_trap();  // a key frame always passes
        }
    }
    return 0;
}
