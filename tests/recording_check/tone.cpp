#include "tests/recording_check/tone.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

namespace recording_check {

namespace {

struct BlockMeasure {
    double share;
    double level;
};

/// Power of one frequency by the Goertzel algorithm, against the power of the whole block.
BlockMeasure measure_block(std::span<const float> block, double radians_per_sample) {
    const double coefficient = 2 * std::cos(radians_per_sample);
    double previous = 0;
    double before_previous = 0;
    double power = 0;
    for (const double sample : block) {
        const double current = sample + coefficient * previous - before_previous;
        before_previous = previous;
        previous = current;
        power += sample * sample;
    }
    const double bin = previous * previous + before_previous * before_previous -
                       coefficient * previous * before_previous;
    const auto count = static_cast<double>(block.size());
    const double tone_power = 2 * bin / count;
    return {power > 0 ? std::min(1.0, tone_power / power) : 0, std::sqrt(power / count)};
}

template <typename Member>
double median(const std::vector<BlockMeasure>& blocks, Member member) {
    std::vector<double> values;
    values.reserve(blocks.size());
    for (const BlockMeasure& block : blocks) {
        values.push_back(block.*member);
    }
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

}  // namespace

ToneReport measure_tone(std::span<const float> samples, unsigned rate, double tone_hz) {
    ToneReport report;
    const size_t block = rate / 10;
    if (block == 0) {
        return report;
    }
    report.seconds = static_cast<double>(samples.size()) / rate;
    std::vector<BlockMeasure> blocks;
    for (size_t at = 0; at + block <= samples.size(); at += block) {
        blocks.push_back(
            measure_block(samples.subspan(at, block), 2 * std::numbers::pi * tone_hz / rate));
    }
    if (!blocks.empty()) {
        report.share = median(blocks, &BlockMeasure::share);
        report.level = median(blocks, &BlockMeasure::level);
    }
    return report;
}

}  // namespace recording_check
