// The order of answers, their time, and requests that are given up.
#include "virtcam/usbip/urb_stream.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <nlohmann/json.hpp>

#include "tests/line/lone_camera.h"
#include "tests/usbip/wire.h"
#include "virtcam/usbip/pdu_reader.h"

namespace virtcam::usbip::test {
namespace {

using std::chrono::milliseconds;
using virtcam::model::Clock;
using virtcam::model::TimePoint;

class UrbStreamTest : public ::testing::Test {
  protected:
    static Submit parse(const Bytes& wire) {
        PduReader reader;
        reader.feed(wire);
        return std::get<Submit>(*reader.next());
    }

    void submit(const Bytes& wire) { stream_.submit(parse(wire)); }
    TimePoint serve(milliseconds after = milliseconds(0)) {
        return stream_.serve(start_ + after, wire_);
    }
    void control(uint32_t seqnum, const virtcam::model::Setup& setup) {
        submit(control_submit(seqnum, setup));
        serve();
        EXPECT_EQ(take_reply(wire_, setup.device_to_host()).status, 0);
    }

    virtcam::line::test::LoneCamera device_{virtcam::line::test::LoneCamera::run_time()};
    Bytes wire_;
    TimePoint start_ = Clock::now();
    UrbStream stream_{device_};
};

TEST_F(UrbStreamTest, AnswersControlRequestsAtOnce) {
    submit(control_submit(5, kGetDeviceDescriptor));
    serve();
    const Reply reply = take_reply(wire_);
    EXPECT_EQ(reply.seqnum, 5u);
    EXPECT_EQ(reply.status, 0);
    EXPECT_EQ(reply.data, device_.camera().device_descriptor());
    EXPECT_EQ(stream_.waiting(), 0u);
}

TEST_F(UrbStreamTest, StallsUnknownRequests) {
    submit(control_submit(5, {0xC0, 0x77, 0, 0, 4}));
    serve();
    const Reply reply = take_reply(wire_);
    EXPECT_EQ(reply.status, -EPIPE);
    EXPECT_EQ(reply.actual, 0u);
}

TEST_F(UrbStreamTest, StallsAControlRequestThatContradictsItself) {
    // Direction of the header against that of the setup packet; length against wLength.
    SubmitHeader header;
    header.direction = 0;
    header.length = 18;
    header.setup = {0x80, 6, 0, 1, 0, 0, 18, 0};
    Bytes wire = header.bytes();
    wire.resize(wire.size() + 18);
    submit(wire);
    serve();
    EXPECT_EQ(take_reply(wire_, false).status, -EPIPE);
    header.seqnum = 2;
    header.setup = {0x21, 1, 0, 1, 1, 0, 26, 0};
    wire = header.bytes();
    wire.resize(wire.size() + 18);
    submit(wire);
    serve();
    EXPECT_EQ(take_reply(wire_, false).status, -EPIPE);
}

TEST_F(UrbStreamTest, HoldsBulkInUntilThereIsSomething) {
    submit(bulk_in_submit(1, 1, 8192));
    EXPECT_EQ(serve(), TimePoint::max());
    EXPECT_TRUE(wire_.empty());
    EXPECT_EQ(stream_.waiting(), 1u);
}

TEST_F(UrbStreamTest, UnlinkOfAWaitingRequestIsItsOnlyAnswer) {
    submit(bulk_in_submit(1, 1, 8192));
    serve();
    stream_.unlink({2, 1}, wire_);
    const Reply reply = take_reply(wire_);
    EXPECT_EQ(reply.command, 4u);
    EXPECT_EQ(reply.seqnum, 2u);
    EXPECT_EQ(reply.status, -ECONNRESET);
    serve(milliseconds(500));
    EXPECT_TRUE(wire_.empty());
    EXPECT_EQ(stream_.waiting(), 0u);
}

TEST_F(UrbStreamTest, UnlinkOfAnAnsweredOrUnknownRequestIsAnswered) {
    submit(control_submit(1, kGetDeviceDescriptor));
    serve();
    take_reply(wire_);
    for (const uint32_t victim : {1u, 77u}) {
        stream_.unlink({2, victim}, wire_);
        const Reply reply = take_reply(wire_);
        EXPECT_EQ(reply.command, 4u);
        EXPECT_EQ(reply.status, 0);
    }
}

TEST_F(UrbStreamTest, LateUnlinksComeAfterTheAnswer) {
    submit(bulk_in_submit(1, 1, 8192));
    stream_.answer_before_unlink();
    stream_.unlink({2, 1}, wire_);
    EXPECT_EQ(take_reply(wire_).command, 3u);
    const Reply unlinked = take_reply(wire_);
    EXPECT_EQ(unlinked.command, 4u);
    EXPECT_EQ(unlinked.status, 0);
    EXPECT_TRUE(wire_.empty());
}

TEST_F(UrbStreamTest, MuteAnswersUnlinksOnly) {
    stream_.mute();
    submit(control_submit(1, kGetDeviceDescriptor));
    serve();
    EXPECT_TRUE(wire_.empty());
    stream_.unlink({2, 1}, wire_);
    EXPECT_EQ(take_reply(wire_).status, -ECONNRESET);
}

TEST_F(UrbStreamTest, PacesIsoByTheClock) {
    control(1, kSetConfiguration);
    control(2, kSoundOn);
    submit(iso_in_submit(3, 2, 10, 100));
    submit(iso_in_submit(4, 2, 10, 100));
    EXPECT_EQ(serve(), start_ + milliseconds(10));
    EXPECT_TRUE(wire_.empty());
    // 3 ms late: the second one stays due at 20 ms, or the rate would sag.
    EXPECT_EQ(serve(milliseconds(13)), start_ + milliseconds(20));
    const Reply reply = take_reply(wire_);
    EXPECT_EQ(reply.seqnum, 3u);
    ASSERT_EQ(reply.iso.size(), 10u);
    EXPECT_EQ(reply.actual, 10u * 64);  // 16 stereo samples of 2 bytes each millisecond
    EXPECT_EQ(serve(milliseconds(20)), TimePoint::max());
    EXPECT_EQ(take_reply(wire_).seqnum, 4u);
}

TEST_F(UrbStreamTest, IsoClockStartsAnewAfterAPause) {
    control(1, kSetConfiguration);
    control(2, kSoundOn);
    submit(iso_in_submit(3, 2, 1, 100));
    serve();
    serve(milliseconds(1));
    EXPECT_EQ(take_reply(wire_).seqnum, 3u);
    submit(iso_in_submit(4, 2, 1, 100));
    // Long after: no burst of what was missed.
    EXPECT_EQ(serve(milliseconds(1000)), start_ + milliseconds(1001));
}

TEST_F(UrbStreamTest, RefusesANumberInUse) {
    submit(bulk_in_submit(1, 1, 512));
    EXPECT_THROW(submit(bulk_in_submit(1, 1, 512)), ProtocolError);
}

TEST_F(UrbStreamTest, RefusesToQueueWithoutEnd) {
    for (uint32_t i = 0; i < UrbStream::kMostRequests; ++i) {
        submit(bulk_in_submit(i + 1, 1, 512));
    }
    EXPECT_THROW(submit(bulk_in_submit(5000, 1, 512)), ProtocolError);
}

TEST_F(UrbStreamTest, IsoOutIsRefused) {
    SubmitHeader header;
    header.direction = 0;
    header.endpoint = 2;
    header.packets = 1;
    Bytes wire = header.bytes();
    wire.resize(wire.size() + 16);
    submit(wire);
    serve();
    serve(milliseconds(1));
    EXPECT_EQ(take_reply(wire_, false).status, -EPIPE);
}

TEST_F(UrbStreamTest, HeldRequestWaitsUntilItIsGivenUp) {
    device_.rules().add(
        nlohmann::json::parse(R"({"on": {"control": {"request": 6}}, "do": "timeout"})"));
    submit(control_submit(1, kGetDeviceDescriptor));
    serve();
    serve(milliseconds(60'000));
    EXPECT_TRUE(wire_.empty());
    stream_.unlink({2, 1}, wire_);
    EXPECT_EQ(take_reply(wire_).status, -ECONNRESET);
}

TEST_F(UrbStreamTest, LateAnswerComesWhenItIsDue) {
    device_.rules().add(
        nlohmann::json::parse(R"({"on": {"control": {"request": 6}}, "do": {"late_ms": 30}})"));
    submit(control_submit(1, kGetDeviceDescriptor));
    EXPECT_EQ(serve(), start_ + milliseconds(30));
    EXPECT_TRUE(wire_.empty());
    serve(milliseconds(30));
    EXPECT_EQ(take_reply(wire_).data, device_.camera().device_descriptor());
}

TEST_F(UrbStreamTest, NoAnswerAfterTheCableWasPulled) {
    device_.rules().add(
        nlohmann::json::parse(R"({"on": {"control": {"request": 6}}, "do": "unplug"})"));
    submit(control_submit(1, kGetDeviceDescriptor));
    serve();
    EXPECT_FALSE(device_.camera().attached());
    EXPECT_TRUE(wire_.empty());
}

TEST_F(UrbStreamTest, CameraThatIsBackIsAnotherOne) {
    device_.rules().add(
        nlohmann::json::parse(R"({"on": {"control": {"request": 6}}, "do": "power_cycle"})"));
    submit(control_submit(1, kGetDeviceDescriptor));
    submit(bulk_in_submit(2, 1, 512));
    serve();
    EXPECT_TRUE(device_.camera().attached());
    serve(milliseconds(10));
    EXPECT_TRUE(wire_.empty()) << "the connection belonged to the first";
}

TEST_F(UrbStreamTest, WaitingAnswersDoNotKeepTheLoopAwakeWhenTheHostDoesNotRead) {
    device_.rules().add(
        nlohmann::json::parse(R"({"on": {"control": {"request": 6}}, "do": {"late_ms": 30}})"));
    submit(control_submit(1, kGetDeviceDescriptor));
    serve();
    wire_.resize(UrbStream::kMostUnsent);
    EXPECT_EQ(serve(milliseconds(40)), TimePoint::max());
}

}  // namespace
}  // namespace virtcam::usbip::test
