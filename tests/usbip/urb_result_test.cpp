// Endings in the kernel's terms.
#include "virtcam/usbip/urb_result.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace virtcam::usbip::test {
namespace {

using virtcam::faults::Status;
using virtcam::line::Ending;
using namespace virtcam::usbip;

TEST(UrbResult, StatusesBecomeTheKernelsErrors) {
    EXPECT_EQ(to_errno(Status::kCompleted), 0);
    EXPECT_EQ(to_errno(Status::kError), -EPROTO);
    EXPECT_EQ(to_errno(Status::kTimedOut), -ETIMEDOUT);
    EXPECT_EQ(to_errno(Status::kCancelled), -ECONNRESET);
    EXPECT_EQ(to_errno(Status::kStall), -EPIPE);
    EXPECT_EQ(to_errno(Status::kNoDevice), -ESHUTDOWN);
    EXPECT_EQ(to_errno(Status::kOverflow), -EOVERFLOW);
}

Submit bulk(uint8_t endpoint, uint32_t length) {
    Submit submit;
    submit.endpoint = endpoint;
    submit.length = length;
    return submit;
}

TEST(UrbResult, AsManyBytesArriveAsAreCounted) {
    Ending ending;
    ending.data = Bytes(4, 9);
    ending.count = 6;
    EXPECT_EQ(to_result(bulk(0x81, 16), ending).data, (Bytes{9, 9, 9, 9, 0, 0}));
    ending.count = 3;
    EXPECT_EQ(to_result(bulk(0x81, 16), ending).data, Bytes(3, 9));
}

TEST(UrbResult, CountsStayWithinTheRoom) {
    Ending ending;
    ending.count = 1000;
    EXPECT_EQ(to_result(bulk(0x81, 16), ending).data.size(), 16u);
    const Result out = to_result(bulk(0x01, 16), ending);
    EXPECT_EQ(out.accepted, 16u);
    EXPECT_TRUE(out.data.empty());
}

TEST(UrbResult, PacketsHaveRoomAndStatusOfTheirOwn) {
    Submit submit;
    submit.packets = {{0, 10}, {10, 10}};
    Ending ending;
    ending.packets = {{Status::kError, {}, 0}, {Status::kCompleted, Bytes(5, 7), 50}};
    const Result result = to_result(submit, ending);
    EXPECT_EQ(result.status, 0);
    ASSERT_EQ(result.packets.size(), 2u);
    EXPECT_EQ(result.packets[0].status, -EILSEQ);
    EXPECT_TRUE(result.packets[0].data.empty());
    EXPECT_EQ(result.packets[1].status, 0);
    EXPECT_EQ(result.packets[1].data.size(), 10u);
}

}  // namespace
}  // namespace virtcam::usbip::test
