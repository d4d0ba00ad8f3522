// What the bus records, and whole programs on it: configuration, status and trace by environment.
#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <thread>

#include "tests/virtbus/bus_fixture.h"

namespace virtcam::bus::test {
namespace {

using nlohmann::json;

TEST_F(OpenFixture, ControlTransfersAreLogged) {
    virtcam::bus::clear_logs();
    std::array<uint8_t, 8> reply{};
    EXPECT_EQ(read_version(handle_, reply), 8);
    const auto log = virtcam::bus::control_log();
    ASSERT_EQ(log.size(), 2U);
    EXPECT_EQ(log[0].setup.request_type, 0x20);
    EXPECT_EQ(log[0].setup.index, 0x0600);
    EXPECT_EQ(log[0].data, (std::vector<uint8_t>{0x0B, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(log[0].timeout_ms, 1000U);
    EXPECT_EQ(log[0].result, 8);
    EXPECT_EQ(log[0].thread, std::this_thread::get_id());
    EXPECT_EQ(log[1].data, (std::vector<uint8_t>(reply.begin(), reply.end())));
}

TEST_F(OpenFixture, CallsAreLoggedInOrder) {
    virtcam::bus::clear_logs();
    libusb_release_interface(handle_, 2);
    libusb_claim_interface(handle_, 2);
    libusb_set_interface_alt_setting(handle_, 3, 9);
    std::string text;
    for (const auto& call : virtcam::bus::call_log()) {
        text += call.name + "(" + std::to_string(call.argument.value_or(-1)) +
                ")=" + std::to_string(call.result) + " ";
    }
    EXPECT_EQ(text,
              "libusb_release_interface(2)=0 libusb_claim_interface(2)=0 "
              "libusb_set_interface_alt_setting(3)=-5 ");
    EXPECT_EQ(virtcam::bus::call_counts().at("libusb_claim_interface"), 5U);
}

TEST_F(OpenFixture, StatusCountsTransfersByEnding) {
    virtcam::bus::script_stream(true);
    virtcam::bus::push_bulk(virtcam::bus::TransferStatus::kOverflow, {});
    virtcam::bus::push_bulk(virtcam::bus::TransferStatus::kCompleted, {1});
    for (int i = 1; i <= 2; ++i) {
        Transfer transfer = Transfer::bulk(handle_);
        ASSERT_EQ(transfer.submit(), 0);
        handle_events(context_);
        ASSERT_EQ(transfer.completions(), 1);
    }
    const json status = virtcam::bus::status_json();
    EXPECT_EQ(status["bus"]["transfers"]["bulk"], json({{"completed", 1}, {"overflow", 1}}));
    EXPECT_EQ(status["bus"]["attached"], true);
    EXPECT_TRUE(status["camera"].is_object());
}

class Program : public BusFixture {
  protected:
    /// Runs a program of this folder on a bus of its own; its exit code.
    int run(const std::string& path, const json& configuration) {
        std::ofstream(folder() / "config.json") << configuration;
        const std::string in = folder().string();
        const std::string command = "VIRTBUS_CONFIG=" + in + "/config.json VIRTBUS_STATUS=" + in +
                                    "/status.json VIRTBUS_TRACE=" + in + "/trace.txt " + path +
                                    " >" + in + "/out.txt 2>" + in + "/err.txt";
        const int status = std::system(command.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    std::string text(const char* name) const {
        std::ifstream file(folder() / name);
        std::ostringstream content;
        content << file.rdbuf();
        return content.str();
    }
};

TEST_F(Program, LoadsFirmwareAndStreams) {
    EXPECT_EQ(run(std::string(SMOKE_PROGRAM) + " 0.5", {{"camera", {{"reenumerate_ms", 100}}}}), 0)
        << text("out.txt") << text("err.txt");
    EXPECT_EQ(text("err.txt"), "");
    const json status = json::parse(text("status.json"));
    EXPECT_EQ(status["bus"]["complaints"], json::array());
    EXPECT_EQ(status["bus"]["leaks"], json::array());
    EXPECT_EQ(status["bus"]["attachment"], 2);
    EXPECT_EQ(status["camera"]["flash"]["size"], 1025);
    EXPECT_NE(text("trace.txt").find("40 82 0401 0000 0000 | | 1000 ms | 0 |"), std::string::npos);
}

TEST_F(Program, ManyThreadsLeaveAWholeStatus) {
    EXPECT_EQ(run(BUSY_PROGRAM, {{"camera", {{"identity", "run-time"}}}}), 0);
    EXPECT_EQ(text("err.txt"), "");
    EXPECT_EQ(json::parse(text("status.json"))["bus"]["calls"]["libusb_exit"], 8 * 32);
}

TEST_F(Program, LeaksAreToldAtTheEnd) {
    EXPECT_EQ(run(LEAKY_PROGRAM, {{"camera", {{"identity", "run-time"}}}}), 0);
    EXPECT_EQ(text("err.txt"),
              "virtbus: complaint: a context was never exited\n"
              "virtbus: complaint: a handle of 114d:2066 was never closed, interface 1 is "
              "claimed\n"
              "virtbus: complaint: a device list was never freed\n");
    const json status = json::parse(text("status.json"));
    EXPECT_EQ(status["bus"]["leaks"].size(), 3U);
    EXPECT_EQ(status["bus"]["complaints"].size(), 3U);
}

TEST_F(Program, ExpectedComplaintsAreRecordedOnly) {
    EXPECT_EQ(
        run(LEAKY_PROGRAM, {{"camera", {{"identity", "run-time"}}},
                            {"bus",
                             {{"expected_complaints",
                               {"a context was never exited", "a device list was never freed"}}}}}),
        0);
    EXPECT_EQ(text("err.txt"),
              "virtbus: complaint: a handle of 114d:2066 was never closed, interface 1 is "
              "claimed\n");
    const json complaints = json::parse(text("status.json"))["bus"]["complaints"];
    ASSERT_EQ(complaints.size(), 3U);
    EXPECT_EQ(complaints[0]["expected"], true);
    EXPECT_EQ(complaints[1]["expected"], false);
}

TEST_F(Program, MalformedConfigurationStopsItAtInit) {
    EXPECT_EQ(run(LEAKY_PROGRAM, {{"cemera", 1}}), 1);
    EXPECT_EQ(text("err.txt"),
              "virtbus: configuration: unknown member \"cemera\" in the configuration\n"
              "virtbus: libusb_init fails, configuration: unknown member \"cemera\" in the "
              "configuration\n");
}

}  // namespace
}  // namespace virtcam::bus::test
