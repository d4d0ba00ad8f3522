// MediaSample: owned and borrowed buffers.
#include "MediaSample.h"

#include <stdint.h>

#include "tests/driver/Allocations.h"
#include "tests/support/PluginTest.h"

namespace test {
namespace {

class MediaSamples : public PluginTest {};

TEST_F(MediaSamples, StartsWithoutABuffer) {
    MediaSample sample;
    EXPECT_EQ(sample.GetBuffer(), nullptr);
    EXPECT_EQ(sample.GetBufferSize(), 0u);
    EXPECT_EQ(sample.GetSampleSize(), 0u);
}

TEST_F(MediaSamples, SetSampleSizeNeedsABuffer) {
    MediaSample sample;
    EXPECT_FALSE(sample.SetSampleSize(5));
    EXPECT_EQ(sample.GetSampleSize(), 0u);
}

TEST_F(MediaSamples, SetSampleSizeIsNotCheckedAgainstTheCapacity) {
    MediaSample sample;
    sample.AllocBuffer(4, nullptr);
    EXPECT_TRUE(sample.SetSampleSize(5));
    EXPECT_EQ(sample.GetSampleSize(), 5u);
    EXPECT_EQ(sample.GetBufferSize(), 4u);
    EXPECT_TRUE(sample.SetSampleSize(0));
    EXPECT_EQ(sample.GetSampleSize(), 0u);
}

TEST_F(MediaSamples, AllocatesItsOwnBufferAndFreesItWhenAskedAgain) {
    MediaSample sample;
    EXPECT_TRUE(sample.AllocBuffer(10, nullptr));
    ASSERT_NE(sample.GetBuffer(), nullptr);
    sample.GetBuffer()[9] = 1;
    sample.SetSampleSize(10);
    EXPECT_TRUE(sample.AllocBuffer(20, nullptr));
    EXPECT_EQ(sample.GetBufferSize(), 20u);
    EXPECT_EQ(sample.GetSampleSize(), 0u);
    sample.GetBuffer()[19] = 1;
}

TEST_F(MediaSamples, BorrowedBufferIsNeverFreed) {
    uint8_t storage[8] = {1, 2, 3};
    {
        MediaSample sample;
        EXPECT_TRUE(sample.AllocBuffer(8, storage));
        EXPECT_EQ(sample.GetBuffer(), storage);
        EXPECT_EQ(sample.GetBufferSize(), 8u);
        EXPECT_EQ(sample.GetSampleSize(), 0u);
        sample.SetSampleSize(3);
        uint8_t other[4] = {9};
        EXPECT_TRUE(sample.AllocBuffer(4, other));
        EXPECT_EQ(sample.GetBuffer(), other);
        EXPECT_EQ(sample.GetSampleSize(), 0u);
        EXPECT_EQ(other[0], 9);
    }
    EXPECT_EQ(storage[0], 1);
    EXPECT_EQ(storage[2], 3);
}

TEST_F(MediaSamples, ShortMemoryLeavesItAsItWas) {
    uint8_t storage[8] = {1, 2, 3};
    for (uint8_t* borrowed : {static_cast<uint8_t*>(nullptr), storage}) {
        MediaSample sample;
        ASSERT_TRUE(sample.AllocBuffer(8, borrowed));
        sample.SetSampleSize(3);
        uint8_t* const before = sample.GetBuffer();
        fail_allocation(1);
        EXPECT_FALSE(sample.AllocBuffer(16, nullptr));
        EXPECT_FALSE(allocation_failure_pending());
        fail_allocation(0);
        EXPECT_EQ(sample.GetBuffer(), before);
        EXPECT_EQ(sample.GetBufferSize(), 8u);
        EXPECT_EQ(sample.GetSampleSize(), 3u);
        before[7] = 9;  // still there, and freed by the destructor only if it is the sample's own
    }
    EXPECT_EQ(storage[7], 9);
}

TEST_F(MediaSamples, ChangesBetweenOwnedAndBorrowed) {
    uint8_t storage[8] = {};
    MediaSample sample;
    sample.AllocBuffer(16, nullptr);
    sample.AllocBuffer(8, storage);  // the owned one is freed here
    EXPECT_EQ(sample.GetBuffer(), storage);
    sample.AllocBuffer(16, nullptr);
    EXPECT_NE(sample.GetBuffer(), storage);
    sample.GetBuffer()[15] = 7;  // and this one by the destructor
}

}  // namespace
}  // namespace test
