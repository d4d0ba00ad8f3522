// One stream's road from its records to its queue.
#include "gst/channel.h"

#include <gst/gst.h>
#include <gtest/gtest.h>

#include "tests/host/fake_content.h"

namespace gstcam::test {
namespace {

constexpr int64_t kFrame = GST_SECOND / 30;

TEST(H264Channel, AsksForAKeyFrameOnceASecondUntilOneIsTaken) {
    gst_init(nullptr, nullptr);
    Channel channel(camhost::Stream::kH264Main);
    channel.open(GST_SECOND);
    const auto& units = fake::h264_units();
    int asked = 0;
    int64_t instant = 0;
    for (int i = 0; i < 95; ++i, instant += kFrame) {  // 3.2 s without a key frame
        asked += channel.take(units[1], instant, {}) ? 1 : 0;
    }
    EXPECT_EQ(asked, 4);
    EXPECT_FALSE(channel.take(units[0], instant, {}));
    EXPECT_FALSE(channel.take(units[1], instant + kFrame, {}));
    channel.queue().break_off();
    channel.queue().note_drop();
    EXPECT_TRUE(channel.take(units[1], instant + 2 * kFrame, {})) << "another want";
}

}  // namespace
}  // namespace gstcam::test
