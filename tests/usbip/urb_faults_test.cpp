// Scripted failures in the kernel's terms.
#include "virtcam/usbip/urb_faults.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace usbip_test {
namespace {

using virtcam::faults::Action;
using virtcam::faults::Status;
using namespace virtcam::usbip;

TEST(UrbFaults, StatusesBecomeTheKernelsErrors) {
    EXPECT_EQ(to_errno(Status::kCompleted), 0);
    EXPECT_EQ(to_errno(Status::kError), -EPROTO);
    EXPECT_EQ(to_errno(Status::kTimedOut), -ETIMEDOUT);
    EXPECT_EQ(to_errno(Status::kCancelled), -ECONNRESET);
    EXPECT_EQ(to_errno(Status::kStall), -EPIPE);
    EXPECT_EQ(to_errno(Status::kNoDevice), -ESHUTDOWN);
    EXPECT_EQ(to_errno(Status::kOverflow), -EOVERFLOW);
    EXPECT_EQ(to_errno(-9), -EPIPE);
    EXPECT_EQ(to_errno(-4), -ESHUTDOWN);
    EXPECT_EQ(to_errno(-1), -EPROTO);
    EXPECT_EQ(to_errno(0), 0);
}

Submit bulk_in(uint32_t room) {
    Submit submit;
    submit.endpoint = 0x81;
    submit.length = room;
    return submit;
}

TEST(UrbFaults, CountsStayWithinTheRoom) {
    Action action;
    action.actual_length = 1000;
    Result result;
    result.data = Bytes(4, 9);
    apply(action, bulk_in(16), result);
    EXPECT_EQ(result.data.size(), 16u);
    action = {};
    action.short_to = 3;
    apply(action, bulk_in(16), result);
    EXPECT_EQ(result.data, Bytes(3, 9));
}

TEST(UrbFaults, ReplyAndCorruption) {
    Action action;
    action.reply = Bytes{1, 2, 3};
    action.corruptions = {{1, 0xFF}, {99, 0xFF}};
    Result result;
    apply(action, bulk_in(16), result);
    EXPECT_EQ(result.data, (Bytes{1, 0xFD, 3}));
}

TEST(UrbFaults, PacketsAloneGoWrong) {
    Submit submit;
    submit.packets = {{0, 10}, {10, 10}, {20, 10}};
    Result result;
    result.packets = {{Bytes(10), 0}, {Bytes(10), 0}, {Bytes(10), 0}};
    Action action;
    action.packets = {{0, Status::kError, {}}, {2, {}, 50}, {7, Status::kError, {}}};
    apply(action, submit, result);
    EXPECT_EQ(result.packets[0].status, -EILSEQ);
    EXPECT_TRUE(result.packets[0].data.empty());
    EXPECT_EQ(result.packets[1].data.size(), 10u);
    EXPECT_EQ(result.packets[2].data.size(), 10u);
    EXPECT_EQ(result.status, 0);
}

}  // namespace
}  // namespace usbip_test
