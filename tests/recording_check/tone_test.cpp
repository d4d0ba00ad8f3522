#include "tests/recording_check/tone.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>
#include <vector>

namespace recording_check::test {
namespace {

constexpr unsigned kRate = 16000;

std::vector<float> tone(double hz, double amplitude, size_t samples) {
    std::vector<float> result(samples);
    for (size_t i = 0; i < samples; ++i) {
        result[i] = static_cast<float>(
            amplitude * std::sin(2 * std::numbers::pi * hz * static_cast<double>(i) / kRate));
    }
    return result;
}

TEST(Tone, PureToneHasAllThePower) {
    const ToneReport report = measure_tone(tone(1000, 0.5, size_t{2} * kRate), kRate, 1000);
    EXPECT_DOUBLE_EQ(report.seconds, 2);
    EXPECT_NEAR(report.share, 1, 0.001);
    EXPECT_NEAR(report.level, 0.5 / std::numbers::sqrt2, 0.001);
}

TEST(Tone, AnotherToneHasNone) {
    EXPECT_LT(measure_tone(tone(1100, 0.5, kRate), kRate, 1000).share, 0.01);
    EXPECT_LT(measure_tone(tone(2000, 0.5, kRate), kRate, 1000).share, 0.01);
}

TEST(Tone, NoiseHasLittle) {
    std::mt19937 random(1);
    std::uniform_real_distribution<float> value(-1, 1);
    std::vector<float> noise(kRate);
    for (float& sample : noise) {
        sample = value(random);
    }
    EXPECT_LT(measure_tone(noise, kRate, 1000).share, 0.05);
}

TEST(Tone, ClickOnceASecondDoesNotMatter) {
    auto samples = tone(1000, 0.3, size_t{3} * kRate);
    for (size_t second = 0; second < 3; ++second) {
        std::fill_n(samples.begin() + static_cast<std::ptrdiff_t>(second * kRate), kRate / 250, 1);
    }
    EXPECT_GT(measure_tone(samples, kRate, 1000).share, 0.99);
}

TEST(Tone, SilenceAndTooLittleHaveNone) {
    EXPECT_EQ(measure_tone(std::vector<float>(kRate), kRate, 1000).share, 0);
    EXPECT_EQ(measure_tone(tone(1000, 0.5, kRate / 20), kRate, 1000).share, 0);
    EXPECT_EQ(measure_tone({}, 0, 1000).share, 0);
}

}  // namespace
}  // namespace recording_check::test
