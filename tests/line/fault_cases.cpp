#include "tests/line/fault_cases.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace virtcam::line::test {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;

void unanswered(Seen& seen) {
    seen = Seen{};
    seen.answered = false;
}

/// Refused on its way: the device has seen nothing of it.
std::function<void(Seen&)> kept_back(Status status, size_t count = 0) {
    return [=](Seen& seen) {
        seen.status = status;
        seen.data.assign(seen.data.empty() ? 0 : count, 0);
        seen.count = count;
        seen.reached_device = false;
    };
}

/// What the device did, reported otherwise.
std::function<void(Seen&)> reported(Status status) {
    return [=](Seen& seen) { seen.status = status; };
}

std::function<void(Seen&)> arrives(Bytes data) {
    return [=](Seen& seen) {
        seen.data = data;
        seen.count = data.size();
    };
}

std::function<void(Seen&)> cut_to(size_t length) {
    return [=](Seen& seen) {
        seen.data.resize(std::min(seen.data.size(), length));
        seen.count = length;
    };
}

void unchanged(Seen&) {}

void first_byte_inverted(Seen& seen) {
    seen.data.at(0) ^= 0xFF;
}

void off_the_bus(Seen& seen) {
    seen.on_the_bus = false;
}

std::vector<FaultCase> control_cases() {
    constexpr auto kGet = Question::kGetVolume;
    constexpr auto kSet = Question::kSetVolume;
    return {
        {"stall", kGet, "stall", kept_back(Status::kStall)},
        {"stall_out", kSet, "stall", kept_back(Status::kStall)},
        {"status", kGet, {{"status", "overflow"}}, kept_back(Status::kOverflow)},
        {"status_completed", kGet, {{"status", "completed"}}, unchanged},
        {"stall_wins_over_status",
         kGet,
         {{"stall", true}, {"status", "overflow"}},
         kept_back(Status::kStall)},
        {"return_error", kGet, {{"return", "LIBUSB_ERROR_PIPE"}}, kept_back(Status::kStall)},
        {"return_strange", kGet, {{"return", -1234}}, kept_back(Status::kError)},
        {"return_count", kGet, {{"return", 1}}, kept_back(Status::kCompleted, 1)},
        {"return_count_out", kSet, {{"return", 1}}, kept_back(Status::kCompleted, 1)},
        {"return_wins_over_stall",
         kGet,
         {{"stall", true}, {"return", "LIBUSB_ERROR_TIMEOUT"}},
         kept_back(Status::kTimedOut)},
        {"timeout", kGet, "timeout", unanswered},
        {"timeout_now", kGet, {{"timeout", "now"}}, kept_back(Status::kTimedOut)},
        {"timeout_now_wins_over_return",
         kGet,
         {{"timeout", "now"}, {"return", 0}},
         kept_back(Status::kTimedOut)},
        {"late", kGet, {{"late_ms", 40}}, unchanged, 40ms},
        {"late_stall", kGet, {{"late_ms", 40}, {"stall", true}}, kept_back(Status::kStall), 40ms},
        {"reply", kGet, {{"reply", "aabb"}}, arrives({0xAA, 0xBB})},
        {"reply_too_long", kGet, {{"reply", "aabbcc"}}, arrives({0xAA, 0xBB})},
        {"reply_to_nobody", kGet, {{"stall", true}, {"reply", "aabb"}}, kept_back(Status::kStall)},
        {"corrupt", kGet, {{"corrupt", {{"offset", 0}, {"xor", "0xff"}}}}, first_byte_inverted},
        {"corrupt_beyond", kGet, {{"corrupt", {{"offset", 2}}}}, unchanged},
        {"corrupt_reply",
         kGet,
         {{"reply", "aabb"}, {"corrupt", {{"offset", 1}, {"xor", 1}}}},
         arrives({0xAA, 0xBA})},
        {"short", kGet, {{"short", 1}}, cut_to(1)},
        {"short_out", kSet, {{"short", 1}}, cut_to(1)},
        {"short_cuts_corrupt", kGet, {{"short", 1}, {"corrupt", {{"offset", 1}}}}, cut_to(1)},
        {"actual_length", kGet, {{"reply", "aa"}, {"actual_length", 2}}, arrives({0xAA, 0})},
        {"actual_length_after_short", kSet, {{"short", 0}, {"actual_length", 1}}, cut_to(1)},
        {"unplug", kGet, "unplug",
         [](Seen& seen) {
             unanswered(seen);
             seen.on_the_bus = false;
         }},
        {"power_cycle", kGet, "power_cycle", unanswered},
    };
}

std::vector<FaultCase> transfer_cases() {
    constexpr auto kIn = Question::kPicture;
    constexpr auto kOut = Question::kDownload;
    return {
        {"bulk_stall", kIn, "stall", reported(Status::kStall)},
        {"bulk_status", kIn, {{"status", "overflow"}}, reported(Status::kOverflow)},
        {"bulk_stall_wins_over_status",
         kIn,
         {{"stall", true}, {"status", "completed"}},
         reported(Status::kStall)},
        {"bulk_timeout", kIn, "timeout", unanswered},
        {"bulk_timeout_now", kIn, {{"timeout", "now"}}, reported(Status::kTimedOut)},
        {"bulk_late", kIn, {{"late_ms", 40}}, unchanged, 40ms},
        {"bulk_reply", kIn, {{"reply", "010203"}}, arrives({1, 2, 3})},
        {"bulk_header",
         kIn,
         {{"header", {{"length", 13}, {"frame_id", "toggle"}, {"error", true}}}},
         [](Seen& seen) {
             seen.data.at(0) = 13;
             seen.data.at(1) = (seen.data.at(1) ^ 0x01) | 0x40;
         }},
        {"bulk_overwrite",
         kIn,
         {{"overwrite", {{"offset", 1}, {"bytes", "ffee"}}}},
         [](Seen& seen) {
             seen.data.at(1) = 0xFF;
             seen.data.at(2) = 0xEE;
         }},
        {"bulk_append",
         kIn,
         {{"append", 3}},
         [](Seen& seen) {
             seen.data.insert(seen.data.end(), 3, 0x5A);
             seen.count += 3;
         }},
        {"bulk_corrupt", kIn, {{"corrupt", {{"offset", 0}, {"xor", "0xff"}}}}, first_byte_inverted},
        {"bulk_short", kIn, {{"short", 40}}, cut_to(40)},
        {"bulk_actual_length",
         kIn,
         {{"reply", "0102"}, {"actual_length", 4}},
         arrives({1, 2, 0, 0})},
        {"bulk_in_order",
         kIn,
         {{"reply", "010203"}, {"corrupt", {{"offset", 2}, {"xor", 3}}}, {"short", 3}},
         arrives({1, 2, 0})},
        {"bulk_unplug", kIn, "unplug", off_the_bus},
        {"out_status_and_short",
         kOut,
         {{"status", "timed_out"}, {"short", 3}},
         [](Seen& seen) {
             seen.status = Status::kTimedOut;
             seen.count = 3;
         }},
        {"out_actual_length", kOut, {{"actual_length", 5}}, cut_to(5)},
        {"out_timeout", kOut, "timeout", unanswered},
    };
}

std::vector<FaultCase> iso_cases() {
    constexpr auto kSound = Question::kSound;
    return {
        {"iso_status", kSound, {{"status", "error"}}, reported(Status::kError)},
        {"iso_timeout", kSound, "timeout", unanswered},
        {"iso_packet_in_error_has_no_data",
         kSound,
         {{"packets", {{{"index", 1}, {"status", "error"}}}}},
         [](Seen& seen) {
             seen.packets.at(1) = {Status::kError, {}};
         }},
        {"iso_packet_length",
         kSound,
         {{"packets", {{{"index", 2}, {"length", 5}}}}},
         [](Seen& seen) { seen.packets.at(2).data.resize(5); }},
        {"iso_packet_beyond", kSound, {{"packets", {{{"index", 3}, {"length", 5}}}}}, unchanged},
        {"iso_corrupt_counts_through_the_packets",
         kSound,
         {{"corrupt", {{"offset", 65}, {"xor", 1}}}},
         [](Seen& seen) { seen.packets.at(1).data.at(1) ^= 1; }},
        {"iso_short_counts_through_the_packets",
         kSound,
         {{"short", 70}},
         [](Seen& seen) {
             seen.packets.at(1).data.resize(6);
             seen.packets.at(2).data.clear();
         }},
    };
}

json selector(Question question) {
    switch (question) {
        case Question::kGetVolume:
            return {{"control", {{"type", 0xA1}}}};
        case Question::kSetVolume:
            return {{"control", {{"type", 0x21}, {"index", 0x0503}}}};
        case Question::kPicture:
        case Question::kDownload:
            return {{"transfer", "bulk"}};
        case Question::kSound:
            break;
    }
    return {{"transfer", "iso"}};
}

/// The part of a payload's header that tells when it was sent.
void forget_source_clock(Bytes& payload) {
    constexpr size_t kAt = 6;
    constexpr size_t kLength = 6;
    if (payload.size() >= kAt + kLength) {
        std::fill_n(payload.begin() + kAt, kLength, uint8_t{0});
    }
}

class FaultMeaning : public testing::TestWithParam<FaultCase> {
  protected:
    /// The same question to a fresh camera, with these rules.
    Seen ask(const json& rules, bool answered) {
        const Question question = GetParam().question;
        const auto front_end = make_front_end(question == Question::kDownload);
        front_end->add_rule(rules);
        Seen seen = front_end->ask(question, answered ? 60s : 50ms);
        waited_ = front_end->waited();
        if (question == Question::kPicture) {
            forget_source_clock(seen.data);
        }
        return seen;
    }

    std::chrono::milliseconds waited_{0};
};

TEST_P(FaultMeaning, IsTheSameForEveryHost) {
    const FaultCase& fault = GetParam();
    Seen expected = ask(json::array(), true);
    ASSERT_TRUE(expected.answered);
    ASSERT_EQ(expected.status, Status::kCompleted);
    fault.change(expected);
    const json rule{{"on", selector(fault.question)}, {"nth", 1}, {"do", fault.action}};
    EXPECT_EQ(ask(rule, expected.answered), expected);
    EXPECT_GE(waited_, fault.late);
}

std::vector<FaultCase> all_cases() {
    std::vector<FaultCase> cases = control_cases();
    for (const auto& more : {transfer_cases(), iso_cases()}) {
        cases.insert(cases.end(), more.begin(), more.end());
    }
    return cases;
}

INSTANTIATE_TEST_SUITE_P(Members, FaultMeaning, testing::ValuesIn(fault_cases()),
                         [](const auto& fault) { return fault.param.name; });

}  // namespace

bool operator==(const Seen& a, const Seen& b) {
    if (!a.answered || !b.answered) {
        return a.answered == b.answered && a.on_the_bus == b.on_the_bus;
    }
    return a.status == b.status && a.data == b.data && a.count == b.count &&
           a.packets == b.packets && a.reached_device == b.reached_device &&
           a.on_the_bus == b.on_the_bus;
}

std::ostream& operator<<(std::ostream& stream, const Seen& seen) {
    stream << (seen.answered ? "answered" : "unanswered") << ", status "
           << static_cast<int>(seen.status) << ", count " << seen.count << ", " << seen.data.size()
           << " bytes" << (seen.reached_device ? "" : ", kept from the device")
           << (seen.on_the_bus ? "" : ", off the bus");
    for (size_t i = 0; i < seen.data.size() && i < 16; ++i) {
        stream << ' ' << static_cast<int>(seen.data[i]);
    }
    for (const PacketSeen& packet : seen.packets) {
        stream << "; packet status " << static_cast<int>(packet.status) << ", "
               << packet.data.size() << " bytes";
    }
    return stream;
}

const std::vector<FaultCase>& fault_cases() {
    static const std::vector<FaultCase> kCases = all_cases();
    return kCases;
}

}  // namespace virtcam::line::test
