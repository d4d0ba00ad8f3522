// Replies on the wire, byte by byte; and that none can say more than the host asked for.
#include "virtcam/usbip/pdu.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "tests/usbip/wire.h"

namespace virtcam::usbip::test {
namespace {

TEST(UsbipReply, BulkInByteByByte) {
    Submit submit;
    submit.seqnum = 0x01020304;
    submit.endpoint = 0x81;
    submit.length = 16;
    Result result;
    result.data = {0xAA, 0xBB, 0xCC};
    Bytes wire;
    append_reply(submit, result, 7, wire);
    const Bytes expected{0, 0, 0, 3, 1, 2, 3, 4, 0, 0, 0, 0, 0, 0, 0,    0,    0,
                         0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 3, 0, 0, 0, 7,    0,    0,
                         0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xAA, 0xBB, 0xCC};
    EXPECT_EQ(wire, expected);
}

TEST(UsbipReply, UnlinkByteByByte) {
    Bytes wire;
    append_reply(Unlink{9, 5}, -ECONNRESET, wire);
    Bytes expected{0, 0, 0, 4, 0, 0, 0, 9};
    expected.resize(20);
    expected.insert(expected.end(), {0xFF, 0xFF, 0xFF, 0x98});
    expected.resize(48);
    EXPECT_EQ(wire, expected);
}

TEST(UsbipReply, NeverMoreThanTheHostHasRoomFor) {
    Submit submit;
    submit.endpoint = 0x81;
    submit.length = 4;
    Result result;
    result.data = Bytes(100, 1);
    Bytes wire;
    append_reply(submit, result, 0, wire);
    EXPECT_EQ(take_reply(wire).actual, 4u);
    EXPECT_TRUE(wire.empty());
}

TEST(UsbipReply, OutRequestsGetACountAndNoData) {
    Submit submit;
    submit.endpoint = 0x01;
    submit.length = 4;
    Result result;
    result.accepted = 1000;
    result.data = Bytes(10, 1);
    Bytes wire;
    append_reply(submit, result, 0, wire);
    EXPECT_EQ(take_reply(wire, false).actual, 4u);
    EXPECT_TRUE(wire.empty());
}

TEST(UsbipReply, IsoDataIsPackedAndTheSumAgrees) {
    Submit submit;
    submit.endpoint = 0x82;
    submit.length = 30;
    submit.packets = {{0, 10}, {10, 10}, {20, 10}};
    Result result;
    result.packets = {{Bytes(4, 1), 0}, {{}, -EILSEQ}, {Bytes(50, 3), 0}};
    Bytes wire;
    append_reply(submit, result, 0, wire);
    EXPECT_EQ(virtcam::usbip::load_be32(wire, 36), 1u) << "error count";
    const Reply reply = take_reply(wire);
    EXPECT_TRUE(wire.empty());
    EXPECT_EQ(reply.actual, 14u);
    Bytes packed(4, 1);
    packed.insert(packed.end(), 10, 3);
    EXPECT_EQ(reply.data, packed);
    ASSERT_EQ(reply.iso.size(), 3u);
    EXPECT_EQ(reply.iso[0].actual + reply.iso[1].actual + reply.iso[2].actual, reply.actual);
    EXPECT_EQ(reply.iso[1].status, -EILSEQ);
    EXPECT_EQ(reply.iso[2].offset, 20u);
    EXPECT_EQ(reply.iso[2].length, 10u);
}

TEST(UsbipReply, IsoResultsThatAreMissingCountAsEmptyPackets) {
    Submit submit;
    submit.endpoint = 0x82;
    submit.length = 20;
    submit.packets = {{0, 10}, {10, 10}};
    Bytes wire;
    append_reply(submit, Result{}, 0, wire);
    const Reply reply = take_reply(wire);
    EXPECT_EQ(reply.packets, 2u);
    EXPECT_EQ(reply.actual, 0u);
}

TEST(UsbipReply, OverlappingPacketsCannotOverflowTheHostsBuffer) {
    Submit submit;
    submit.endpoint = 0x82;
    submit.length = 10;
    submit.packets = {{0, 10}, {0, 10}};
    Result result;
    result.packets = {{Bytes(10, 1), 0}, {Bytes(10, 2), 0}};
    Bytes wire;
    append_reply(submit, result, 0, wire);
    const Reply reply = take_reply(wire);
    EXPECT_LE(reply.actual, submit.length);
    EXPECT_EQ(reply.iso[0].actual + reply.iso[1].actual, reply.actual);
}

}  // namespace
}  // namespace virtcam::usbip::test
