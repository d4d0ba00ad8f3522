// Scripted failures of calls, requests and transfers, and scripted changes of presence.
#include "tests/virtbus/bus_fixture.h"

namespace virtcam::bus::test {
namespace {

using nlohmann::json;

class Faults : public OpenFixture {
  protected:
    static constexpr uint16_t kDescriptorLength = 18;

    int get_descriptor(unsigned timeout_ms = 1000) {
        data_.fill(0);
        return libusb_control_transfer(handle_, 0x80, 0x06, 0x0100, 0, data_.data(),
                                       kDescriptorLength, timeout_ms);
    }
    static void on_descriptor(const json& action, const json& more = json::object()) {
        json rule{{"on", {{"control", {{"type", "0x80"}, {"request", 6}, {"value", "0x100"}}}}},
                  {"do", action}};
        rule.update(more);
        virtcam::bus::add_fault(rule);
    }
    /// Ends one bulk transfer of the camera's stream under `rule`.
    Transfer receive(const json& action) {
        start_video();
        virtcam::bus::add_fault({{"on", {{"transfer", "bulk"}}}, {"nth", 1}, {"do", action}});
        Transfer transfer = Transfer::bulk(handle_, 16384);
        EXPECT_EQ(transfer.submit(), 0);
        EXPECT_TRUE(handle_events_until(context_, [&] { return transfer.completions() == 1; }));
        return transfer;
    }

    std::array<uint8_t, kDescriptorLength> data_{};
};

TEST_F(Faults, CallsReturnWhatIsAsked) {
    virtcam::bus::add_fault(json::array({
        {{"on", {{"call", "libusb_init"}}}, {"nth", 1}, {"do", {{"return", -99}}}},
        {{"on", {{"call", "libusb_get_device_list"}}},
         {"nth", 1},
         {"do", {{"return", "LIBUSB_ERROR_NO_MEM"}}}},
        {{"on", {{"call", "libusb_get_device_list"}}}, {"nth", 2}, {"do", "null"}},
        {{"on", {{"call", "libusb_alloc_transfer"}}}, {"nth", 2}, {"do", "null"}},
        {{"on", {{"call", "libusb_claim_interface"}, {"argument", 2}}},
         {"do", {{"return", "LIBUSB_ERROR_BUSY"}}}},
    }));
    libusb_context* context = nullptr;
    EXPECT_EQ(libusb_init(&context), LIBUSB_ERROR_OTHER);
    libusb_device** list = nullptr;
    EXPECT_EQ(libusb_get_device_list(context_, &list), LIBUSB_ERROR_NO_MEM);
    EXPECT_EQ(libusb_get_device_list(context_, &list), 0);
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(libusb_get_device_list(context_, &list), 2);
    libusb_free_device_list(list, 1);
    libusb_transfer* first = libusb_alloc_transfer(0);
    EXPECT_NE(first, nullptr);
    EXPECT_EQ(libusb_alloc_transfer(0), nullptr);
    libusb_free_transfer(first);
    EXPECT_EQ(libusb_claim_interface(handle_, 1), 0);
    EXPECT_EQ(libusb_claim_interface(handle_, 2), LIBUSB_ERROR_BUSY);
    virtcam::bus::clear_faults();
    EXPECT_EQ(libusb_claim_interface(handle_, 2), 0);
}

TEST_F(Faults, FromAndCountBoundTheRule) {
    on_descriptor("stall", {{"from", 2}, {"count", 2}});
    EXPECT_EQ(get_descriptor(), 18);
    EXPECT_EQ(get_descriptor(), LIBUSB_ERROR_PIPE);
    EXPECT_EQ(get_descriptor(), LIBUSB_ERROR_PIPE);
    EXPECT_EQ(get_descriptor(), 18);
}

TEST_F(Faults, RequestAnswersACode) {
    on_descriptor({{"return", -1234}});
    EXPECT_EQ(get_descriptor(), -1234);
}

TEST_F(Faults, RequestIsShort) {
    on_descriptor({{"short", 4}});
    EXPECT_EQ(get_descriptor(), 4);
    EXPECT_EQ(data_[1], LIBUSB_DT_DEVICE);
    EXPECT_EQ(data_[4], 0);
}

TEST_F(Faults, RequestIsLate) {
    on_descriptor({{"late_ms", 40}});
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(get_descriptor(), 18);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 40ms);
}

TEST_F(Faults, RequestTooLateTimesOut) {
    on_descriptor({{"late_ms", 10'000}}, {{"nth", 1}});
    EXPECT_EQ(get_descriptor(20), LIBUSB_ERROR_TIMEOUT);
    EXPECT_EQ(get_descriptor(), 18) << "the pipe is free again";
}

TEST_F(Faults, RequestTimesOutInItsOwnTime) {
    on_descriptor("timeout");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(get_descriptor(30), LIBUSB_ERROR_TIMEOUT);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 30ms);
}

TEST_F(Faults, RequestTimesOutAtOnce) {
    on_descriptor({{"timeout", "now"}});
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(get_descriptor(60'000), LIBUSB_ERROR_TIMEOUT);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);
    EXPECT_EQ(virtcam::bus::control_log().back().timeout_ms, 60'000U);
}

TEST_F(Faults, ReplyIsReplaced) {
    on_descriptor({{"reply", "01 02 03"}});
    EXPECT_EQ(get_descriptor(), 3);
    EXPECT_EQ(data_[2], 3);
}

TEST_F(Faults, RequestEndsWithAStatus) {
    on_descriptor({{"status", "overflow"}});
    EXPECT_EQ(get_descriptor(), LIBUSB_ERROR_OVERFLOW);
}

TEST_F(Faults, RequestIsChosenByItsData) {
    virtcam::bus::add_fault(
        {{"on", {{"control", {{"value", "0x0100"}, {"data", "0b"}}}}}, {"do", "stall"}});
    std::array<uint8_t, 8> reply{};
    EXPECT_EQ(read_version(handle_, reply), LIBUSB_ERROR_PIPE);
    std::array<uint8_t, 8> other{0x04};
    EXPECT_EQ(libusb_control_transfer(handle_, 0x20, 1, 0x0100, 0x0600, other.data(), 8, 100), 8);
}

TEST_F(Faults, AlternateSettingFails) {
    virtcam::bus::add_fault(
        {{"on", {{"control", {{"type", 1}, {"request", 11}, {"index", 3}}}}}, {"do", "stall"}});
    EXPECT_EQ(libusb_set_interface_alt_setting(handle_, 3, 0), LIBUSB_ERROR_OTHER);
    virtcam::bus::clear_faults();
}

TEST_F(Faults, BulkOutEndsWithAnError) {
    reopen({{"camera", {{"identity", "run-time"}}}});
    shut_down();
    restart({{"camera", {{"identity", "boot-code"}}}});
    context_ = make_context();
    handle_ = open_camera(context_, kBootProduct);
    ASSERT_EQ(libusb_claim_interface(handle_, 2), 0);
    virtcam::bus::add_fault({{"on", {{"transfer", "bulk"}, {"endpoint", 1}}},
                             {"nth", 2},
                             {"do", {{"status", "timed_out"}, {"short", 3}}}});
    std::array<uint8_t, 16> piece{};
    int moved = 0;
    EXPECT_EQ(libusb_control_transfer(handle_, 0x40, 130, 32, 0, nullptr, 0, 100), 0);
    EXPECT_EQ(libusb_bulk_transfer(handle_, 1, piece.data(), 16, &moved, 100), 0);
    EXPECT_EQ(moved, 16);
    EXPECT_EQ(libusb_bulk_transfer(handle_, 1, piece.data(), 16, &moved, 100),
              LIBUSB_ERROR_TIMEOUT);
    EXPECT_EQ(moved, 3);
    EXPECT_EQ(libusb_release_interface(handle_, 2), 0);
    libusb_close(std::exchange(handle_, nullptr));
}

TEST_F(Faults, BulkEndsWithAStatus) {
    EXPECT_EQ(receive({{"status", "timed_out"}}).status(), LIBUSB_TRANSFER_TIMED_OUT);
}

TEST_F(Faults, BulkIsShortAndCorrupt) {
    Transfer transfer = receive({{"short", 40}, {"corrupt", {{"offset", 0}, {"xor", "0xff"}}}});
    EXPECT_EQ(transfer->actual_length, 40);
    EXPECT_EQ(transfer.buffer()[0], 12 ^ 0xFF) << "a UVC header of 12 bytes";
}

TEST_F(Faults, BulkCountLies) {
    EXPECT_EQ(receive({{"actual_length", 99999}})->actual_length, 99999);
}

TEST_F(Faults, BulkIsReplacedAndLate) {
    const auto start = std::chrono::steady_clock::now();
    Transfer transfer = receive({{"reply", "aabb"}, {"late_ms", 30}});
    EXPECT_GE(std::chrono::steady_clock::now() - start, 30ms);
    EXPECT_EQ(transfer->actual_length, 2);
    EXPECT_EQ(transfer.buffer()[1], 0xBB);
}

TEST_F(Faults, IsoPacketsFail) {
    virtcam::bus::add_fault({{"on", {{"transfer", "iso"}}},
                             {"do",
                              {{"packets",
                                {{{"index", 1}, {"status", "error"}, {"length", 0}},
                                 {{"index", 2}, {"length", 9}}}}}}});
    Transfer transfer = Transfer::iso(handle_, 4);
    ASSERT_EQ(transfer.submit(), 0);
    ASSERT_TRUE(handle_events_until(context_, [&] { return transfer.completions() == 1; }));
    EXPECT_EQ(transfer->iso_packet_desc[1].status, LIBUSB_TRANSFER_ERROR);
    EXPECT_EQ(transfer->iso_packet_desc[1].actual_length, 0U);
    EXPECT_EQ(transfer->iso_packet_desc[2].actual_length, 9U);
    EXPECT_EQ(transfer->iso_packet_desc[3].status, LIBUSB_TRANSFER_COMPLETED);
}

TEST_F(Faults, UnplugAtACall) {
    virtcam::bus::add_fault({{"on", {{"call", "libusb_get_configuration"}}}, {"do", "unplug"}});
    int value = 0;
    EXPECT_EQ(libusb_get_configuration(handle_, &value), LIBUSB_ERROR_NO_DEVICE);
}

TEST_F(Faults, UnplugAtARequest) {
    on_descriptor("unplug");
    EXPECT_EQ(get_descriptor(), LIBUSB_ERROR_NO_DEVICE);
}

TEST_F(Faults, UnplugAtAFrame) {
    start_video();
    virtcam::bus::add_fault({{"on", {{"frame", true}}}, {"nth", 2}, {"do", "unplug"}});
    Transfer transfer = Transfer::bulk(handle_, 65536);
    int frames = 0;
    transfer.on_completion([&](libusb_transfer* done) {
        if (done->status == LIBUSB_TRANSFER_COMPLETED) {
            frames += (done->buffer[1] & 2) != 0 ? 1 : 0;
            libusb_submit_transfer(done);
        }
    });
    ASSERT_EQ(transfer.submit(), 0);
    ASSERT_TRUE(handle_events_until(context_, [&] { return !virtcam::bus::camera().attached(); }));
    handle_events(context_);
    EXPECT_EQ(frames, 2) << "the frame that triggers it still arrives";
}

TEST_F(Faults, PresenceByTheClock) {
    shut_down();
    restart({{"events",
              {{{"on", {{"time_ms", 10}}}, {"do", "unplug"}},
               {{"on", {{"time_ms", 30}}}, {"do", "plug"}}}}});
    EXPECT_TRUE(
        virtcam::bus::wait_until([] { return virtcam::bus::camera().attachment() == 2; }, 2s));
    EXPECT_TRUE(virtcam::bus::wait_until([] { return virtcam::bus::camera().attached(); }, 2s));
}

TEST_F(Faults, StallHaltsTheEndpointUntilItIsCleared) {
    const auto halted = [&] {
        std::array<uint8_t, 2> status{0xFF, 0xFF};
        EXPECT_EQ(libusb_control_transfer(handle_, 0x82, 0, 0, kVideo, status.data(), 2, 1000), 2);
        return status[0] == 1;
    };
    const auto read = [&] {
        std::vector<uint8_t> payload(8192);
        int count = 0;
        return libusb_bulk_transfer(handle_, kVideo, payload.data(), 8192, &count, 2000);
    };
    virtcam::bus::add_fault({{"on", {{"transfer", "bulk"}}}, {"nth", 2}, {"do", "stall"}});
    start_video();
    EXPECT_EQ(read(), 0);
    EXPECT_FALSE(halted());
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(read(), LIBUSB_ERROR_PIPE);
        EXPECT_TRUE(halted());
    }
    EXPECT_EQ(libusb_clear_halt(handle_, kVideo), 0);
    EXPECT_FALSE(halted());
    start_video();
    EXPECT_EQ(read(), 0);
}

TEST_F(Faults, PowerCycleKillsTheHandle) {
    virtcam::bus::add_fault({{"on", {{"call", "libusb_clear_halt"}}}, {"do", "power_cycle"}});
    EXPECT_EQ(libusb_clear_halt(handle_, kVideo), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_TRUE(virtcam::bus::camera().attached());
}

TEST_F(Faults, MalformedRulesNameTheirFault) {
    const std::vector<std::pair<json, std::string>> cases{
        {{{"on", {{"call", "libusb_init"}}}}, "\"on\" and \"do\" are needed"},
        {{{"on", {{"call", "init"}}}, {"do", "stall"}}, "must be the name of a libusb function"},
        {{{"on", {{"cell", "x"}}}, {"do", "stall"}}, "unknown member \"cell\""},
        {{{"on", {{"time_ms", 1}, {"frame", true}}}, {"do", "stall"}}, "exactly one of"},
        {{{"on", {{"time_ms", -1}}}, {"do", "plug"}}, "\"time_ms\" must lie in 0"},
        {{{"on", {{"frame", true}}}, {"do", "explode"}}, "unknown action \"explode\""},
        {{{"on", {{"frame", true}}}, {"do", {{"status", "bad"}}}}, "unknown status \"bad\""},
        {{{"on", {{"frame", true}}}, {"do", {{"reply", "0g"}}}}, "hexadecimal"},
        {{{"on", {{"frame", true}}}, {"do", json::object()}}, "\"do\" is empty"},
        {{{"on", {{"frame", true}}}, {"nth", 0}, {"do", "stall"}}, "\"nth\" must lie in 1"},
        {{{"on", {{"control", {{"type", 256}}}}}, {"do", "stall"}}, "\"type\" must lie in 0"},
        {{{"on", {{"control", {{"type", "x"}}}}}, {"do", "stall"}}, "not a number"},
        {{{"on", {{"frame", true}}}, {"do", {{"stall", 7}}}}, "type must be boolean"},
    };
    for (const auto& [rule, text] : cases) {
        try {
            virtcam::bus::add_fault(rule);
            ADD_FAILURE() << rule << " was accepted";
        } catch (const std::invalid_argument& error) {
            EXPECT_NE(std::string(error.what()).find(text), std::string::npos) << error.what();
        }
    }
}

}  // namespace
}  // namespace virtcam::bus::test
