// Whether a recording holds the tone of the virtual camera's microphone.
#pragma once

#include <span>

namespace recording_check {

struct ToneReport {
    double seconds = 0;  ///< length of the samples
    double share =
        0;  ///< of the sound's power that lies in the tone, median of 0.1 s blocks, 0 to 1
    double level = 0;  ///< RMS of the median block, full scale is 1
};

/// Measures `samples` (one channel, -1 to 1) at `rate` per second. The median is deaf to the
/// microphone's click once a second, which is short beside a block. Less than one block: share 0.
ToneReport measure_tone(std::span<const float> samples, unsigned rate, double tone_hz);

}  // namespace recording_check
