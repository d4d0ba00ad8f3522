// The whole server on sockets, as a kernel and a tester meet it.
#include "virtcam/usbip/server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <nlohmann/json.hpp>
#include <thread>

#include "tests/support/broken_encoder.h"
#include "tests/usbip/wire.h"
#include "virtcam/usbip/handshake.h"

namespace virtcam::usbip::test {
namespace {

using namespace virtcam::usbip;

/// A blocking connection to the server; gives up after a minute rather than hang.
class Client {
  public:
    explicit Client(uint16_t port) : Client(connect_to({"127.0.0.1", port})) {}
    explicit Client(UniqueFd fd) : fd_(std::move(fd)) {
        const timeval limit{60, 0};
        ::setsockopt(fd_.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    }

    void send(ByteView bytes) {
        ASSERT_EQ(::send(fd_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
    }
    void send(const std::string& text) {
        send(ByteView(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
    }
    /// False when nothing of it can be sent without waiting for the server to read.
    bool send_if_room(ByteView bytes) {
        const ssize_t sent =
            ::send(fd_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        EXPECT_TRUE(sent >= 0 || errno == EAGAIN || errno == EWOULDBLOCK) << errno;
        return sent >= 0;
    }
    /// Exactly so many bytes, fewer when the server closes.
    Bytes receive(size_t size) {
        Bytes bytes(size);
        if (size == 0) {
            return bytes;  // recv() would wait for something to not fetch
        }
        const ssize_t got = ::recv(fd_.get(), bytes.data(), size, MSG_WAITALL);
        EXPECT_TRUE(got >= 0 || errno != EAGAIN) << "the server said nothing for a minute";
        bytes.resize(got > 0 ? static_cast<size_t>(got) : 0);
        return bytes;
    }
    std::string receive_line() {
        std::string line;
        for (Bytes byte = receive(1); !byte.empty() && byte[0] != '\n'; byte = receive(1)) {
            line += static_cast<char>(byte[0]);
        }
        return line;
    }
    bool closed_by_server() { return receive(1).empty(); }
    /// One reply; the data is fetched as its header announces.
    Reply reply(bool data_in = true) {
        Bytes wire = receive(48);
        if (wire.size() == 48 && load_be32(wire, 0) == 3) {
            const Bytes rest =
                receive((data_in ? load_be32(wire, 24) : 0) + load_be32(wire, 32) * 16);
            wire.insert(wire.end(), rest.begin(), rest.end());
        }
        return take_reply(wire, data_in);
    }

  private:
    UniqueFd fd_;
};

class ServerTest : public ::testing::Test {
  protected:
    static virtcam::line::Config config() {
        virtcam::line::Config config;
        config.camera.identity = virtcam::model::CameraConfig::Identity::kRunTime;
        config.camera.max_payload = 4096;
        return config;
    }

    ServerTest()
        : bench_(config()),
          server_(bench_, {SocketAddress{"127.0.0.1", 0}, SocketAddress{"127.0.0.1", 0}, {}}),
          stop_(::eventfd(0, EFD_CLOEXEC)),
          thread_([this] { server_.run(stop_.get()); }) {}
    ~ServerTest() override {
        ::eventfd_write(stop_.get(), 1);
        thread_.join();
    }

    std::unique_ptr<Client> import() {
        auto client = std::make_unique<Client>(server_.port());
        client->send(import_request());
        const Bytes header = client->receive(kOpHeaderBytes);
        EXPECT_EQ(import_reply_status(header), 0u);
        EXPECT_EQ(client->receive(kDeviceRecordBytes).size(), kDeviceRecordBytes);
        return client;
    }
    std::string command(const std::string& line) {
        Client client(server_.command_port());
        client.send(line + "\n");
        return client.receive_line();
    }
    static constexpr uint8_t kMjpeg = 3, kMultiplexed = 4;
    static void start_video(Client& client, uint8_t format = kMjpeg) {
        Bytes probe(26);
        probe[2] = format;
        probe[3] = 1;
        client.send(control_submit(101, kSetConfiguration));
        client.send(control_submit(102, {0x21, 1, 0x0100, 1, 26}, probe));
        client.send(control_submit(103, {0xA1, 0x81, 0x0100, 1, 26}));
        EXPECT_EQ(client.reply(false).status, 0);
        EXPECT_EQ(client.reply(false).status, 0);
        const Reply current = client.reply();
        ASSERT_EQ(current.data.size(), 26u);
        client.send(control_submit(104, {0x21, 1, 0x0200, 1, 26}, current.data));
        EXPECT_EQ(client.reply(false).status, 0);
    }

    Bench bench_;
    Server server_;
    UniqueFd stop_;
    std::thread thread_;
};

TEST_F(ServerTest, NamesAnEncoderThatCannotBeUsed) {
    ::test::encoder_is_broken = true;
    testing::internal::CaptureStderr();
    const auto client = import();
    start_video(*client, kMultiplexed);
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (bench_.status()["failure"] == "" && std::chrono::steady_clock::now() < limit) {
        std::this_thread::yield();
    }
    bench_.camera().advance(virtcam::model::Clock::now());  // returns when the line is printed
    ::test::encoder_is_broken = false;
    EXPECT_THAT(
        testing::internal::GetCapturedStderr(),
        testing::HasSubstr("virtcam: the camera cannot make pictures: H.264 encoder (Open"));
}

TEST_F(ServerTest, ListsTheCameraAndCloses) {
    Client client(server_.port());
    client.send(Bytes{1, 0x11, 0x80, 5, 0, 0, 0, 0});
    EXPECT_EQ(client.receive(12 + kDeviceRecordBytes + 16).size(), 12 + kDeviceRecordBytes + 16);
    EXPECT_TRUE(client.closed_by_server());
}

TEST_F(ServerTest, ServesTheImportedCamera) {
    const auto client = import();
    client->send(control_submit(1, kGetDeviceDescriptor));
    EXPECT_EQ(client->reply().data, bench_.camera().device_descriptor());
}

TEST_F(ServerTest, TakesACommandThatFollowsTheImportInOnePacket) {
    Client client(server_.port());
    Bytes wire = import_request();
    const Bytes submit = control_submit(9, kGetDeviceDescriptor);
    wire.insert(wire.end(), submit.begin(), submit.end());
    client.send(wire);
    client.receive(kOpHeaderBytes + kDeviceRecordBytes);
    EXPECT_EQ(client.reply().seqnum, 9u);
}

TEST_F(ServerTest, SecondImportIsRefusedWhileTheFirstLasts) {
    const auto first = import();
    Client second(server_.port());
    second.send(import_request());
    EXPECT_EQ(import_reply_status(second.receive(kOpHeaderBytes)), 2u);
    EXPECT_TRUE(second.closed_by_server());
}

TEST_F(ServerTest, CameraCanBeImportedAgain) {
    { const auto first = import(); }
    // The server may not have seen yet that the first one has gone.
    for (;;) {
        Client client(server_.port());
        client.send(import_request());
        if (import_reply_status(client.receive(kOpHeaderBytes)) == 0) {
            break;
        }
    }
}

TEST_F(ServerTest, StreamsPayloadsOfTheSizeThatWasNegotiated) {
    const auto client = import();
    start_video(*client);
    for (uint32_t seqnum = 1; seqnum <= 20; ++seqnum) {
        client->send(bulk_in_submit(seqnum, 1, 4096));
        const Reply reply = client->reply();
        EXPECT_EQ(reply.seqnum, seqnum);
        EXPECT_EQ(reply.status, 0);
        ASSERT_GE(reply.actual, 2u);
        EXPECT_LE(reply.actual, 4096u);
        EXPECT_EQ(reply.data[1] & 0x80, 0x80) << "end-of-header bit";
    }
}

TEST_F(ServerTest, UnplugClosesTheConnectionAndReplugOffersTheCameraAgain) {
    const auto client = import();
    client->send(bulk_in_submit(1, 1, 4096));
    EXPECT_EQ(command("unplug"), "ok");
    EXPECT_TRUE(client->closed_by_server());
    Client refused(server_.port());
    refused.send(import_request());
    EXPECT_EQ(import_reply_status(refused.receive(kOpHeaderBytes)), 4u);
    EXPECT_EQ(command("plug"), "ok");
    import();
}

TEST_F(ServerTest, SlowPictureHoldsNoDepartureUp) {
    const ::test::HeldEncoder picture;
    const auto client = import();
    start_video(*client, kMultiplexed);
    ASSERT_TRUE(picture.is_reached());
    client->send(control_submit(1, {0x20, 1, 0x0400, 0x0600, 8}, Bytes{1, 0, 3, 0, 0, 0, 0, 0}));
    client->send(control_submit(2, {0x20, 1, 0x0400, 0x0600, 8}, Bytes{1, 1, 3, 0, 0, 0, 0, 0}));
    EXPECT_EQ(client->reply(false).status, 0);
    EXPECT_EQ(client->reply(false).status, 0) << "burns nothing, and restarts";
    EXPECT_TRUE(client->closed_by_server());
}

TEST_F(ServerTest, ResetReplacesTheCamera) {
    const auto client = import();
    EXPECT_EQ(command(R"(reset {"camera": {"boot_code": "older"}})"), "ok");
    EXPECT_TRUE(client->closed_by_server());
    const auto status = nlohmann::json::parse(command("status"));
    EXPECT_EQ(status.at("attachment"), 1);
    const auto again = import();
    again->send(control_submit(1, kGetDeviceDescriptor));
    EXPECT_EQ(virtcam::model::load_u16(again->reply().data, 10), 0x2065);
}

TEST_F(ServerTest, RulesStrikeOverTheWire) {
    EXPECT_EQ(command(R"(fault {"on": {"control": {"request": 6}}, "nth": 1, "do": "stall"})"),
              "ok");
    EXPECT_EQ(command(R"(fault {"on": {"control": {"request": 7}}, "do": "stall"})"), "ok");
    EXPECT_EQ(command("strikes"), "[0,0]");
    const auto client = import();
    client->send(control_submit(1, kGetDeviceDescriptor));
    EXPECT_EQ(client->reply().status, -EPIPE);
    client->send(control_submit(2, kGetDeviceDescriptor));
    EXPECT_EQ(client->reply().status, 0);
    EXPECT_EQ(command("strikes"), "[1,0]");
    EXPECT_EQ(command("no-faults"), "ok");
    EXPECT_EQ(command("strikes"), "[]");
}

TEST_F(ServerTest, FrozenConnectionSaysNothingAndThenCloses) {
    const auto client = import();
    EXPECT_EQ(command("freeze 200"), "ok");
    const auto begin = std::chrono::steady_clock::now();
    client->send(control_submit(1, kGetDeviceDescriptor));
    EXPECT_TRUE(client->closed_by_server());
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(150));
}

TEST_F(ServerTest, BadCommandsAreAnsweredWithASentence) {
    for (const char* line : {"dance", "freeze", "freeze -1", "freeze 1x", "fault {", "fault {}",
                             "reset {\"camera\": {\"lux\": -1}}", "reset 7"}) {
        EXPECT_EQ(command(line).rfind("error: ", 0), 0u) << line;
    }
    EXPECT_EQ(command("status").front(), '{');
}

TEST_F(ServerTest, HostileCommandEndsTheConnectionAndNothingElse) {
    {
        const auto client = import();
        SubmitHeader header;
        header.length = 0xFFFFFFFF;
        client->send(header.bytes());
        EXPECT_TRUE(client->closed_by_server());
    }
    import();
}

TEST_F(ServerTest, ConnectionThatEndsInTheMiddleOfACommandIsForgotten) {
    {
        const auto client = import();
        client->send(ByteView(bulk_in_submit(1, 1, 4096)).first(20));
    }
    EXPECT_EQ(command("status").front(), '{');
}

TEST_F(ServerTest, AnotherProtocolIsHungUpOn) {
    Client client(server_.port());
    client.send("GET / HTTP/1.1\r\n\r\n");
    EXPECT_TRUE(client.closed_by_server());
}

TEST_F(ServerTest, HostThatDoesNotReadCannotStopTheServer) {
    constexpr uint32_t kFirst = 1001;
    constexpr uint32_t kRequests = 900;  // fewer than may wait at once
    EXPECT_EQ(command(R"(reset {"camera": {"identity": "run-time", "paced": false,)"
                      R"( "max_payload": 65536}})"),
              "ok");
    const auto client = import();
    start_video(*client);
    for (uint32_t i = 0; i < kRequests; ++i) {
        client->send(bulk_in_submit(kFirst + i, 1, 65536));
    }
    // Their answers, and those to commands that need no picture, fill the sockets and then all that
    // the server keeps for its host, until it takes no more commands.
    size_t unlinks = 0;
    while (client->send_if_room(unlink_command(kFirst + kRequests, 1))) {
        ++unlinks;
    }
    EXPECT_GT(unlinks, 0u);
    EXPECT_EQ(command("status").front(), '{');
    // A host that reads again gets what it has missed.
    Reply reply = client->reply();
    while (reply.seqnum != kFirst) {
        ASSERT_EQ(reply.seqnum, kFirst + kRequests);
        reply = client->reply();
    }
    EXPECT_EQ(reply.status, 0);
    EXPECT_FALSE(reply.data.empty());
}

}  // namespace
}  // namespace virtcam::usbip::test
