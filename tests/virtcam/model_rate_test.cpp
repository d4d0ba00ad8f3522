// Bit rate, frame rate and key-frame requests at the model.
#include <gtest/gtest.h>

#include <cmath>

#include "model_fixture.h"

namespace virtcam::model::test {
namespace {

bool set_bit_rate(Host& host, uint16_t kbps) {
    return host.isp({0x08, 0xFF, static_cast<uint8_t>(kbps), static_cast<uint8_t>(kbps >> 8)});
}

struct Second {
    double kbits = 0;
    int pictures = 0;
};

/// What the main stream sends in each of the first `count` seconds.
std::vector<Second> measure(Host& host, int count) {
    std::vector<Second> seconds(static_cast<size_t>(count));
    for (;;) {
        for (const SubStream& stream : host.next_sub_streams()) {
            if (stream.id != static_cast<uint16_t>(StreamId::kMainH264)) {
                continue;
            }
            const size_t second = stream.timestamp / 90000;
            if (second >= seconds.size()) {
                return seconds;
            }
            seconds[second].kbits += static_cast<double>(stream.size) * 8 / 1000;
            ++seconds[second].pictures;
        }
    }
}

class BitRate : public testing::TestWithParam<uint16_t> {};

TEST_P(BitRate, SecondsTwoToSevenKeepWithinFifteenPercent) {
    Host host(running_camera());
    ASSERT_TRUE(host.select(1));
    ASSERT_TRUE(host.start());
    ASSERT_TRUE(set_bit_rate(host, GetParam()));
    const auto seconds = measure(host, 7);
    double sum = 0;
    for (size_t i = 1; i < seconds.size(); ++i) {
        sum += seconds[i].kbits;
        RecordProperty("second_" + std::to_string(i + 1),
                       std::to_string(std::lround(seconds[i].kbits)));
        EXPECT_NEAR(seconds[i].kbits, GetParam(), GetParam() * 0.15) << "second " << i + 1;
    }
    EXPECT_NEAR(sum / 6, GetParam(), GetParam() * 0.15);
}

INSTANTIATE_TEST_SUITE_P(Vga, BitRate, testing::Values(500, 1000, 2000, 4000));

}  // namespace
}  // namespace virtcam::model::test
