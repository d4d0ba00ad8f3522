// Commands from a host that may be anything: cut anywhere, or hostile.
#include "virtcam/usbip/pdu_reader.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/usbip/wire.h"

namespace virtcam::usbip::test {
namespace {

TEST(PduReader, ReadsAControlRequestCutIntoSingleBytes) {
    const Bytes wire = control_submit(7, {0x21, 1, 0x0100, 1, 3}, Bytes{1, 2, 3});
    PduReader reader;
    for (size_t i = 0; i + 1 < wire.size(); ++i) {
        reader.feed(ByteView(wire).subspan(i, 1));
        ASSERT_FALSE(reader.next()) << "after byte " << i;
    }
    reader.feed(ByteView(wire).last(1));
    const auto command = reader.next();
    ASSERT_TRUE(command);
    const auto& submit = std::get<Submit>(*command);
    EXPECT_EQ(submit.seqnum, 7u);
    EXPECT_EQ(submit.endpoint, 0);
    EXPECT_EQ(submit.out, (Bytes{1, 2, 3}));
    EXPECT_EQ(submit.setup, (std::array<uint8_t, 8>{0x21, 1, 0, 1, 1, 0, 3, 0}));
    EXPECT_EQ(reader.pending(), 0u);
}

TEST(PduReader, ReadsCommandsThatArriveTogether) {
    Bytes wire = bulk_in_submit(1, 1, 8192);
    const Bytes iso = iso_in_submit(2, 2, 10, 68);
    const Bytes unlink = unlink_command(3, 1);
    wire.insert(wire.end(), iso.begin(), iso.end());
    wire.insert(wire.end(), unlink.begin(), unlink.end());
    PduReader reader;
    reader.feed(wire);
    EXPECT_EQ(std::get<Submit>(*reader.next()).endpoint, 0x81);
    const auto second = reader.next();
    ASSERT_EQ(std::get<Submit>(*second).packets.size(), 10u);
    EXPECT_EQ(std::get<Submit>(*second).packets[9].offset, 9u * 68);
    const auto third = reader.next();
    EXPECT_EQ(std::get<Unlink>(*third).seqnum, 3u);
    EXPECT_EQ(std::get<Unlink>(*third).victim, 1u);
    EXPECT_FALSE(reader.next());
}

TEST(PduReader, TakesBothWaysToSayNoPackets) {
    for (const uint32_t none : {0u, 0xFFFFFFFFu}) {
        SubmitHeader header;
        header.packets = none;
        PduReader reader;
        reader.feed(header.bytes());
        EXPECT_FALSE(std::get<Submit>(*reader.next()).is_iso());
    }
}

struct Hostile {
    const char* name;
    void (*spoil)(SubmitHeader& header);
};

class HostileHeader : public ::testing::TestWithParam<Hostile> {};

TEST_P(HostileHeader, EndsTheConnection) {
    SubmitHeader header;
    GetParam().spoil(header);
    PduReader reader;
    reader.feed(header.bytes());
    EXPECT_THROW(reader.next(), ProtocolError);
}

INSTANTIATE_TEST_SUITE_P(
    PduReader, HostileHeader,
    ::testing::Values(
        Hostile{"CommandZero", [](auto& h) { h.command = 0; }},
        Hostile{"CommandOfTheOtherSide", [](auto& h) { h.command = 3; }},
        Hostile{"EndpointSixteen", [](auto& h) { h.endpoint = 16; }},
        Hostile{"EndpointWithDirectionBit", [](auto& h) { h.endpoint = 0x81; }},
        Hostile{"DirectionTwo", [](auto& h) { h.direction = 2; }},
        Hostile{"LengthMinusOne", [](auto& h) { h.length = 0xFFFFFFFF; }},
        Hostile{"LengthAboveTheLimit", [](auto& h) { h.length = PduReader::kMostBytes + 1; }},
        Hostile{"PacketsMinusTwo", [](auto& h) { h.packets = 0xFFFFFFFE; }},
        Hostile{"Packets65536", [](auto& h) { h.packets = 65536; }},
        Hostile{"PacketsAboveTheLimit", [](auto& h) { h.packets = PduReader::kMostPackets + 1; }}),
    [](const auto& each) { return std::string(each.param.name); });

TEST(PduReader, RefusesPacketsOutsideTheBuffer) {
    for (const auto& [offset, length] : {std::pair<uint32_t, uint32_t>{11, 0},
                                         {0, 11},
                                         {5, 6},
                                         {0xFFFFFFFF, 2},
                                         {2, 0xFFFFFFFF}}) {
        SubmitHeader header;
        header.endpoint = 2;
        header.length = 10;
        header.packets = 1;
        Bytes wire = header.bytes();
        for (const uint32_t word : {offset, length, 0u, 0u}) {
            virtcam::usbip::append_be32(wire, word);
        }
        PduReader reader;
        reader.feed(wire);
        EXPECT_THROW(reader.next(), ProtocolError) << offset << "+" << length;
    }
}

}  // namespace
}  // namespace virtcam::usbip::test
