// The order of answers and their time.
#include "virtcam/line/endpoint.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <tuple>
#include <utility>

#include "tests/line/lone_camera.h"
#include "virtcam/line/fault_effect.h"
#include "virtcam/line/sub_streams.h"

namespace virtcam::line::test {
namespace {

using std::chrono::milliseconds;
using virtcam::faults::Status;
using virtcam::faults::TransferKind;
using virtcam::model::Bytes;
using virtcam::model::TimePoint;

/// Says what the test has put into its mouth.
class Puppet : public LoneCamera {
  public:
    Puppet() : LoneCamera(run_time()) {}

    std::optional<Ending> answer(const Request& request, TimePoint now) override {
        ++asked;
        return request.is_control() ? LoneCamera::answer(request, now) : std::exchange(next, {});
    }

    void say(Bytes bytes) {
        next = Ending{};
        next->count = bytes.size();
        next->room = 512;
        next->data = std::move(bytes);
    }

    std::optional<Ending> next;
    int asked = 0;
};

class EndpointTest : public testing::Test {
  protected:
    static Request get_descriptor() {
        Request request;
        request.setup = {0x80, 6, 0x0100, 0, 18};
        return request;
    }
    static Request bulk_in() {
        Request request;
        request.kind = TransferKind::kBulk;
        request.endpoint = 0x81;
        request.room = 512;
        return request;
    }
    static Request iso_in(size_t packets) {
        Request request;
        request.kind = TransferKind::kIsochronous;
        request.endpoint = 0x82;
        request.packets.assign(packets, 100);
        return request;
    }

    void add_rule(const char* rule) { puppet_.rules().add(nlohmann::json::parse(rule)); }
    TimePoint at(int ms) const { return start_ + milliseconds(ms); }

    Puppet puppet_;
    Endpoint endpoint_{puppet_};
    TimePoint start_ = virtcam::model::Clock::now();
};

TEST_F(EndpointTest, AnswersInOrderWhenThereIsSomething) {
    Request first = bulk_in();
    Request second = bulk_in();
    endpoint_.submit(first);
    endpoint_.submit(second);
    EXPECT_FALSE(endpoint_.serve(at(0)));
    EXPECT_FALSE(endpoint_.due()) << "it is news of the device that counts";
    puppet_.say({1});
    const auto answer = endpoint_.serve(at(0));
    ASSERT_TRUE(answer);
    EXPECT_EQ(&answer->request, &first);
    EXPECT_EQ(answer->ending.data, Bytes{1});
    EXPECT_FALSE(endpoint_.serve(at(0)));
    EXPECT_EQ(endpoint_.waiting().front(), &second);
}

TEST_F(EndpointTest, LateAnswerIsKnownButNotDue) {
    add_rule(R"({"on": {"transfer": "bulk"}, "nth": 1, "do": {"late_ms": 30}})");
    Request request = bulk_in();
    endpoint_.submit(request);
    puppet_.say({1});
    EXPECT_FALSE(endpoint_.serve(at(0)));
    EXPECT_EQ(endpoint_.due(), at(30));
    EXPECT_FALSE(endpoint_.serve(at(29)));
    EXPECT_EQ(puppet_.asked, 1);
    const auto answer = endpoint_.serve(at(35));
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->due, at(30));
    EXPECT_FALSE(endpoint_.due());
}

TEST_F(EndpointTest, StallHaltsWhatIsNotIsochronous) {
    add_rule(R"({"on": {"transfer": "any"}, "do": "stall"})");
    Request sound = iso_in(1);
    puppet_.set_paced(false);
    puppet_.say({1});
    endpoint_.submit(sound);
    ASSERT_TRUE(endpoint_.serve(at(0)));
    EXPECT_FALSE(puppet_.camera().halted(0x82));
    Request control = get_descriptor();
    add_rule(R"({"on": {"control": {}}, "do": "stall"})");
    endpoint_.submit(control);
    ASSERT_TRUE(endpoint_.serve(at(0)));
    EXPECT_FALSE(puppet_.camera().halted(0));
    Request bulk = bulk_in();
    puppet_.say({1});
    endpoint_.submit(bulk);
    ASSERT_TRUE(endpoint_.serve(at(0)));
    EXPECT_TRUE(puppet_.camera().halted(0x81));
}

TEST_F(EndpointTest, HaltedEndpointAnswersNothingElse) {
    LoneCamera camera(LoneCamera::run_time());
    Endpoint endpoint(camera);
    camera.camera().halt(0x81);
    for (int i = 0; i < 3; ++i) {
        Request request = bulk_in();
        endpoint.submit(request);
        const auto answer = endpoint.serve(at(0));
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->ending.status, Status::kStall);
    }
    camera.camera().control({0x02, 1, 0, 0x81, 0}, {});
    Request request = bulk_in();
    endpoint.submit(request);
    EXPECT_FALSE(endpoint.serve(at(0))) << "nothing streams, so nothing is answered";
    endpoint.withdraw(request, at(0));
}

/// What the host gets of payloads 1, 2, 3, ..., one for each request, under a rule.
class FateTest : public EndpointTest {
  protected:
    Bytes ask(int requests) {
        Bytes got;
        for (int i = 0; i < requests; ++i) {
            Request request = bulk_in();
            endpoint_.submit(request);
            if (const auto answer = endpoint_.serve(at(0))) {
                got.insert(got.end(), answer->ending.data.begin(), answer->ending.data.end());
            } else {
                endpoint_.withdraw(request, at(0));
            }
        }
        return got;
    }
    /// Says 1, 2, 3 and so on, then nothing.
    class Counter : public LoneCamera {
      public:
        Counter() : LoneCamera(run_time()) {}
        std::optional<Ending> answer(const Request&, TimePoint) override {
            if (last == 6) {
                return std::nullopt;
            }
            Ending ending;
            ending.room = 512;
            ending.data = {++last};
            ending.count = 1;
            return ending;
        }
        uint8_t last = 0;
    };
    void rule(const char* text) { counter_.rules().add(nlohmann::json::parse(text)); }

    Counter counter_;
    Endpoint endpoint_{counter_};
};

TEST_F(FateTest, LostAnswerGivesWayToTheNext) {
    rule(R"({"on": {"transfer": "bulk"}, "from": 2, "count": 2, "do": "lose"})");
    EXPECT_EQ(ask(5), (Bytes{1, 4, 5, 6})) << "the fifth has nothing to get";
}

TEST_F(FateTest, DoubledAnswerComesTwice) {
    rule(R"({"on": {"transfer": "bulk"}, "nth": 2, "do": "double"})");
    EXPECT_EQ(ask(5), (Bytes{1, 2, 2, 3, 4}));
}

TEST_F(FateTest, SwappedAnswerComesAfterTheNext) {
    rule(R"({"on": {"transfer": "bulk"}, "nth": 2, "do": "swap"})");
    EXPECT_EQ(ask(5), (Bytes{1, 3, 2, 4, 5}));
}

TEST_F(FateTest, EndOfTheStreamForgetsWhatWasKept) {
    rule(R"({"on": {"transfer": "bulk"}, "nth": 2, "do": "double"})");
    EXPECT_EQ(ask(2), (Bytes{1, 2}));
    endpoint_.end_stream();
    EXPECT_EQ(ask(1), Bytes{3});
}

TEST_F(FateTest, EveryAndChanceChooseAmongTheOccurrences) {
    rule(R"({"on": {"transfer": "bulk"}, "from": 2, "every": 2, "do": "lose"})");
    EXPECT_EQ(ask(6), (Bytes{1, 3, 5}));
    const auto lost = [](uint64_t seed) {
        virtcam::faults::RuleSet rules;
        rules.add(
            {{"on", {{"transfer", "bulk"}}}, {"chance", 0.25}, {"seed", seed}, {"do", "lose"}});
        std::vector<int> struck;
        for (int i = 0; i < 1000; ++i) {
            if (rules.on_transfer(TransferKind::kBulk, 0x81, {}).fate ==
                virtcam::faults::Fate::kLost) {
                struck.push_back(i);
            }
        }
        return struck;
    };
    EXPECT_EQ(lost(7), lost(7));
    EXPECT_NE(lost(7), lost(8));
    EXPECT_NEAR(static_cast<double>(lost(7).size()), 250, 50);
}

Bytes header_of(uint16_t id, uint32_t room) {
    Bytes header;
    for (const auto& [width, value] :
         std::initializer_list<std::pair<size_t, uint32_t>>{{2, 1},
                                                            {2, 28},
                                                            {2, id},
                                                            {2, 320},
                                                            {2, 240},
                                                            {2, 10},
                                                            {4, 7},
                                                            {4, 900},
                                                            {4, 0},
                                                            {4, room},
                                                            {4, room}}) {
        virtcam::model::append_le(header, width, value);
    }
    return header;
}

using Found = std::vector<std::tuple<size_t, int, size_t, bool>>;  // as SubStreams::Part

TEST(SubStreams, AreFoundWhereverTheyBegin) {
    virtcam::line::SubStreams streams;
    const auto payload = [](uint8_t flags, const Bytes& data) {
        Bytes bytes{12, flags, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
        bytes.insert(bytes.end(), data.begin(), data.end());
        return bytes;
    };
    const auto parts = [&](const Bytes& bytes) {
        Found found;
        for (const auto& part : streams.find(bytes)) {
            found.emplace_back(part.offset, part.id, part.before, part.goes_on);
        }
        return found;
    };
    Bytes frame = header_of(0x2B, 64);
    frame.resize(96);
    const Bytes second = header_of(0x2D, 32);
    frame.insert(frame.end(), second.begin(), second.end());
    frame.resize(160);
    EXPECT_EQ(parts(payload(0x82, frame)), (Found{{12, 0x2B, 0, false}, {108, 0x2D, 0, false}}));
    // In two payloads, cut in the data, then in the second header: before and behind its ID.
    struct Case {
        size_t cut;
        Found first;
        Found second;
    };
    for (const Case& c :
         {Case{50, {{12, 0x2B, 0, false}}, {{58, 0x2D, 0, false}}},
          Case{101, {{12, 0x2B, 0, false}}, {{12, 0x2D, 5, false}}},
          Case{102, {{12, 0x2B, 0, false}, {108, 0x2D, 0, false}}, {{12, 0x2D, 6, true}}}}) {
        const auto middle = frame.begin() + static_cast<std::ptrdiff_t>(c.cut);
        EXPECT_EQ(parts(payload(0x81, Bytes(frame.begin(), middle))), c.first) << c.cut;
        EXPECT_EQ(parts(payload(0x83, Bytes(middle, frame.end()))), c.second) << c.cut;
    }
    // A frame that was never ended: the frame ID tells.
    EXPECT_EQ(parts(payload(0x80, frame)).size(), 2U);
    EXPECT_EQ(parts(payload(0x81, frame)).size(), 2U);
    EXPECT_EQ(parts(payload(0x82, Bytes(100, 0xFF))), Found{}) << "no multiplexed stream";
}

TEST(SubStreams, FieldsOfASharedHeaderAreSetWhereTheyLie) {
    virtcam::faults::RuleSet rules;
    rules.add(nlohmann::json::parse(
        R"({"on": {"sub_stream": "h264"}, "do": {"fields": {"type": 99, "room": 5}}})"));
    const auto fields = rules.on_sub_stream(0x2B).fields;
    for (const size_t cut : {4U, 5U, 6U, 26U, 31U}) {
        Bytes header = header_of(0x2B, 64);
        virtcam::line::apply(fields, std::span(header).first(cut));
        virtcam::line::apply(fields, std::span(header).subspan(cut), cut);
        EXPECT_EQ(virtcam::model::load_u16(header, 4), cut == 5 ? 0x2B : 99) << cut;
        EXPECT_EQ(virtcam::model::load_u32(header, 28), cut == 31 ? 64U : 5U) << cut;
    }
}

TEST(SubStreams, FieldsAreSetAndAddedTo) {
    Bytes header = header_of(0x2B, 64);
    virtcam::faults::RuleSet rules;
    rules.add(nlohmann::json::parse(
        R"({"on": {"sub_stream": "h264"}, "nth": 2,
            "do": {"fields": {"type": 99, "sequence": {"add": -3}, "room": 4294967295}}})"));
    EXPECT_TRUE(rules.on_sub_stream(0x2D).fields.empty());
    EXPECT_TRUE(rules.on_sub_stream(0x2B).fields.empty()) << "the first one";
    virtcam::line::apply(rules.on_sub_stream(0x2B).fields, header);
    EXPECT_EQ(virtcam::model::load_u16(header, 4), 99);
    EXPECT_EQ(virtcam::model::load_u32(header, 12), 4U);
    EXPECT_EQ(virtcam::model::load_u32(header, 24), 64U);
    EXPECT_EQ(virtcam::model::load_u32(header, 28), 0xFFFFFFFFU);
}

TEST_F(EndpointTest, WithdrawnRequestTakesItsAnswerAlong) {
    add_rule(R"({"on": {"transfer": "bulk"}, "nth": 1, "do": {"late_ms": 30, "unplug": true}})");
    Request first = bulk_in();
    Request second = bulk_in();
    endpoint_.submit(first);
    endpoint_.submit(second);
    puppet_.say({1});
    EXPECT_FALSE(endpoint_.serve(at(0)));
    endpoint_.withdraw(first, at(0));
    EXPECT_FALSE(endpoint_.serve(at(30)));
    puppet_.say({2});
    const auto answer = endpoint_.serve(at(30));
    ASSERT_TRUE(answer);
    EXPECT_EQ(&answer->request, &second);
    EXPECT_EQ(answer->ending.data, Bytes{2});
    EXPECT_TRUE(answer->afterwards.empty());
    endpoint_.withdraw(first, at(30));  // passed over
}

TEST_F(EndpointTest, HeldRequestHoldsThoseBehindIt) {
    add_rule(R"({"on": {"control": {}}, "nth": 1, "do": "timeout"})");
    Request first = get_descriptor();
    Request second = get_descriptor();
    endpoint_.submit(first);
    endpoint_.submit(second);
    EXPECT_FALSE(endpoint_.serve(at(0)));
    EXPECT_FALSE(endpoint_.serve(at(60'000)));
    EXPECT_FALSE(endpoint_.due());
    EXPECT_EQ(puppet_.asked, 0);
    endpoint_.withdraw(first, at(60'000));
    EXPECT_TRUE(endpoint_.serve(at(60'000)));
}

TEST_F(EndpointTest, MalformedRequestMeetsNeitherRuleNorDevice) {
    add_rule(R"({"on": {"control": {}}, "do": {"status": "overflow"}})");
    Request request = get_descriptor();
    request.malformed = true;
    endpoint_.submit(request);
    const auto answer = endpoint_.serve(at(0));
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->ending.status, Status::kStall);
    EXPECT_EQ(puppet_.rules().strike_counts(), std::vector<uint64_t>{0});
}

TEST_F(EndpointTest, PresenceChangesBeforeAControlRequestAndAfterATransfer) {
    add_rule(R"({"on": {"transfer": "bulk"}, "do": "power_cycle"})");
    add_rule(R"({"on": {"control": {}}, "do": "power_cycle"})");
    Request bulk = bulk_in();
    endpoint_.submit(bulk);
    puppet_.say({1});
    const auto answer = endpoint_.serve(at(0));
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->afterwards.size(), 1u);
    EXPECT_EQ(puppet_.camera().attachment(), 1u);

    Request control = get_descriptor();
    endpoint_.submit(control);
    EXPECT_FALSE(endpoint_.serve(at(0))) << "the device that it was for is gone";
    EXPECT_EQ(puppet_.camera().attachment(), 2u);
    EXPECT_EQ(endpoint_.waiting().size(), 1u) << "the front end ends it";
}

TEST_F(EndpointTest, IsochronousRequestsKeepToTheClock) {
    Request first = iso_in(10);
    Request second = iso_in(10);
    endpoint_.submit(first);
    endpoint_.submit(second);
    EXPECT_FALSE(endpoint_.serve(at(0)));
    EXPECT_EQ(endpoint_.due(), at(10));
    puppet_.say({});
    EXPECT_TRUE(endpoint_.serve(at(13)));
    EXPECT_EQ(endpoint_.due(), at(20)) << "or the rate would sag";
}

TEST_F(EndpointTest, LateHostLosesNothingAndAPausedOneBeginsAnew) {
    Request request = iso_in(1);
    const auto submit_and_look = [&](int ms) {
        endpoint_.submit(request);
        EXPECT_FALSE(endpoint_.serve(at(ms)));
        return endpoint_.due();
    };
    EXPECT_EQ(submit_and_look(0), at(1));
    puppet_.say({});
    EXPECT_TRUE(endpoint_.serve(at(1)));
    puppet_.say({});
    endpoint_.submit(request);
    EXPECT_TRUE(endpoint_.serve(at(200))) << "overdue: the packet of 2 ms";
    EXPECT_EQ(submit_and_look(400), at(401)) << "nothing has waited for 200 ms";
    // Something that waits has not paused, however late it is served.
    puppet_.say({});
    EXPECT_TRUE(endpoint_.serve(at(900)));
    puppet_.say({});
    endpoint_.submit(request);
    EXPECT_TRUE(endpoint_.serve(at(900))) << "the packet of 402 ms";
    endpoint_.end_stream();
    EXPECT_EQ(submit_and_look(901), at(902));
}

TEST_F(EndpointTest, UnpacedRequestsComeAtOnce) {
    puppet_.set_paced(false);
    Request request = iso_in(10);
    endpoint_.submit(request);
    puppet_.say({});
    EXPECT_TRUE(endpoint_.serve(at(0)));
}

TEST(FaultEffect, WhatTheDeviceRefusedStaysRefused) {
    virtcam::faults::Action action;
    action.status = Status::kCompleted;
    action.reply = Bytes{1, 2};
    action.late = milliseconds(5);
    Ending ending = virtcam::line::ended(Status::kStall);
    ending.room = 8;
    virtcam::line::apply(action, ending);
    EXPECT_EQ(ending.status, Status::kStall);
    EXPECT_TRUE(ending.data.empty());
    EXPECT_EQ(ending.late, milliseconds(5));
}

TEST(FaultEffect, NothingIsRepliedToTheSender) {
    virtcam::faults::Action action;
    action.reply = Bytes{1, 2};
    Ending ending;
    ending.count = 16;
    virtcam::line::apply(action, ending);
    EXPECT_EQ(ending.count, 16u);
    EXPECT_TRUE(ending.data.empty());
}

}  // namespace
}  // namespace virtcam::line::test
