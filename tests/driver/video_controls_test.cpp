// Control requests of the video engine.
#include "tests/driver/VideoEngineTest.h"

namespace test {
namespace {

class UvcControls : public VideoEngineTest {
  protected:
    UvcControls() { Open(); }

    /// Every IN request is answered with these bytes (hexadecimal).
    static void Answer(const char* bytes) {
        virtcam::bus::clear_faults();
        virtcam::bus::add_fault(
            {{"on", {{"control", {{"request", 0x81}}}}}, {"do", {{"reply", bytes}}}});
    }
    static void FailAll(int error) {
        virtcam::bus::clear_faults();
        virtcam::bus::add_fault(
            {{"on", {{"call", "libusb_control_transfer"}}}, {"do", {{"return", error}}}});
    }
    /// OUT requests reach nobody and move this many bytes.
    static void MoveBytes(int count) {
        virtcam::bus::clear_faults();
        virtcam::bus::add_fault(
            {{"on", {{"call", "libusb_control_transfer"}}}, {"do", {{"return", count}}}});
    }
};

constexpr int kDeviceError = static_cast<int>(0x80000003);

TEST_F(UvcControls, QueryEncodesTheRequest) {
    Bytes data = {1, 2};
    EXPECT_EQ(m_Engine->UVC_query_ctrl(0x01, 3, 0, 2, data.data(), 2, 4321), 2);
    EXPECT_EQ(m_Engine->UVC_query_ctrl(0x81, 3, 0, 2, data.data(), 2, 1), 2);
    EXPECT_EQ(m_Engine->UVC_query_ctrl(0x82, 3, 0, 2, data.data(), 2, 2), 2);
    EXPECT_EQ(m_Engine->UVC_query_ctrl(0x83, 3, 0, 2, data.data(), 2, 3), 2);
    auto requests = Requests();
    ASSERT_EQ(requests.size(), 4u);
    EXPECT_EQ(requests[0], Write(0x21, 0x01, 0x0200, 0x0300, {1, 2}, 4321));
    for (size_t i = 1; i < 4; ++i) {
        EXPECT_EQ(requests[i].type, 0xA1);
        EXPECT_EQ(requests[i].request, 0x80 + static_cast<int>(i));
        EXPECT_EQ(requests[i].value, 0x0200);
        EXPECT_EQ(requests[i].index, 0x0300);
        EXPECT_EQ(requests[i].timeout_ms, i);
    }
}

TEST_F(UvcControls, QueryPutsUnitAndInterfaceIntoTheIndex) {
    MoveBytes(0);
    uint8_t byte = 0;
    virtcam::bus::clear_faults();
    virtcam::bus::add_fault({{"on", {{"control", nlohmann::json::object()}}}, {"do", "stall"}});
    m_Engine->UVC_query_ctrl(0x01, 0xFE, 1, 0xFF, &byte, 1, 5000);
    EXPECT_EQ(Requests(), (Sequence{Write(0x21, 0x01, 0xFF00, 0xFE01, {0})}));
}

TEST_F(UvcControls, QueryWithoutADeviceSendsNothing) {
    VideoEngine engine;
    Forget();
    uint8_t byte = 0;
    EXPECT_EQ(engine.UVC_query_ctrl(0x01, 3, 0, 2, &byte, 1, 5000), -1);
    EXPECT_EQ(engine.AitISPCommand(&byte, nullptr), -1);
    EXPECT_FALSE(engine.SetBitrate(1));
    EXPECT_FALSE(engine.SetPU(2, 1));
    int value = 5;
    EXPECT_FALSE(engine.GetPTZ(0x009A090A, &value));
    EXPECT_FALSE(engine.SetPTZ(0x009A0908, 1));
    EXPECT_TRUE(Calls().empty());
}

TEST_F(UvcControls, ErrorsOfLibusbBecomeOneCode) {
    for (const int error : {LIBUSB_ERROR_IO, LIBUSB_ERROR_PIPE, LIBUSB_ERROR_TIMEOUT,
                            LIBUSB_ERROR_NO_DEVICE, LIBUSB_ERROR_OTHER}) {
        FailAll(error);
        uint8_t byte = 0;
        EXPECT_EQ(m_Engine->UVC_query_ctrl(0x01, 3, 0, 2, &byte, 1, 5000), kDeviceError);
    }
    EXPECT_TRUE(Log().empty());
    MoveBytes(0);
    uint8_t byte = 0;
    EXPECT_EQ(m_Engine->UVC_query_ctrl(0x01, 3, 0, 2, &byte, 1, 5000), 0);
}

// --- extension unit ------------------------------------------------------------------------------

TEST_F(UvcControls, IspCommandIsEightBytesOnSelectorOne) {
    Bytes command = {0x04, 1, 2, 3, 4, 5, 6, 7, 99};
    EXPECT_EQ(m_Engine->AitISPCommand(command.data(), nullptr), 8);
    command.pop_back();
    EXPECT_EQ(Requests(), (Sequence{Write(0x21, 0x01, 0x0100, 0x0600, command)}));
}

TEST_F(UvcControls, CommandSendAndGetUseTheirSelectorAndLength) {
    const auto force = [](int request, int result) {
        virtcam::bus::add_fault(
            {{"on", {{"control", {{"request", request}}}}}, {"do", {{"return", result}}}});
    };
    force(0x01, 4);
    force(0x81, 3);
    Bytes data = {9, 8, 7, 6, 5};
    EXPECT_EQ(m_Engine->AitCommandSend(0x0E, data.data(), 5), 4);
    EXPECT_EQ(m_Engine->AitCommandGet(0x0F, data.data(), 200), 3);
    const auto requests = Requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0], Write(0x21, 0x01, 0x0E00, 0x0600, {9, 8, 7, 6, 5}));
    EXPECT_EQ(requests[1], Read(0xA1, 0x81, 0x0F00, 0x0600, 200));
    EXPECT_EQ(Answers(), (std::vector<Bytes>{{}}));
}

TEST_F(UvcControls, CommandGetFillsTheBuffer) {
    Answer("0102030405060708");
    Bytes data(8);
    EXPECT_EQ(m_Engine->AitCommandGet(2, data.data(), 8), 8);
    EXPECT_EQ(data, (Bytes{1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST_F(UvcControls, EncoderCommandsCarryLittleEndianNumbers) {
    EXPECT_TRUE(m_Engine->SetBitrate(0x1234));
    EXPECT_TRUE(m_Engine->SetFramerate(0x5678));
    EXPECT_TRUE(m_Engine->RequestKeyFrame());
    EXPECT_EQ(Requests(),
              (Sequence{Write(0x21, 0x01, 0x0100, 0x0600, {0x08, 0xFF, 0x34, 0x12, 0, 0, 0, 0}),
                        Write(0x21, 0x01, 0x0100, 0x0600, {0x02, 0x78, 0x56, 0, 0, 0, 0, 0}),
                        Write(0x21, 0x01, 0x0100, 0x0600, {0x04, 0, 0, 0, 0, 0, 0, 0})}));
}

TEST_F(UvcControls, EncoderCommandsNeedMoreThanNothingMoved) {
    for (const int result : {0, int{LIBUSB_ERROR_PIPE}}) {
        MoveBytes(result);
        EXPECT_FALSE(m_Engine->SetBitrate(1));
        EXPECT_FALSE(m_Engine->SetFramerate(1));
        EXPECT_FALSE(m_Engine->RequestKeyFrame());
    }
    MoveBytes(1);
    EXPECT_TRUE(m_Engine->SetBitrate(1));
    EXPECT_TRUE(m_Engine->SetFramerate(1));
    EXPECT_TRUE(m_Engine->RequestKeyFrame());
}

// --- camera terminal -----------------------------------------------------------------------------

constexpr unsigned int kPan = 0x009A0908;
constexpr unsigned int kTilt = 0x009A0909;
constexpr unsigned int kFocus = 0x009A090A;
constexpr unsigned int kZoom = 0x009A090D;

TEST_F(UvcControls, GetReadsEachAxisFromItsBytes) {
    struct Case {
        unsigned int id;
        uint16_t value;
        const char* answer;
        int expected;
        uint16_t length;
    };
    const Case cases[] = {
        {kPan, 0x0D00, "70f1ffff04030201", -3728, 8},
        {kTilt, 0x0D00, "04030201 90e3ffff", -7280, 8},
        {kPan, 0x0D00, "0403020100000000", 0x01020304, 8},
        {kFocus, 0x0600, "34f2", 0xF234, 2},
        {kZoom, 0x0B00, "0a00", 10, 2},
    };
    for (const Case& test : cases) {
        Answer(test.answer);
        virtcam::bus::clear_logs();
        int value = 0x55555555;
        EXPECT_TRUE(m_Engine->GetPTZ(test.id, &value));
        EXPECT_EQ(value, test.expected);
        EXPECT_EQ(Requests(), (Sequence{Read(0xA1, 0x81, test.value, 0x0100, test.length)}));
        ASSERT_EQ(Answers().size(), 1u);
        EXPECT_EQ(Answers()[0].size(), test.length);
    }
}

TEST_F(UvcControls, OtherIdentifiersAreRefusedWithoutTraffic) {
    for (const unsigned int id : {0u, 0x009A0907u, 0x009A090Bu, 0x009A090Cu, 0x009A090Eu}) {
        int value = 77;
        EXPECT_FALSE(m_Engine->GetPTZ(id, &value));
        EXPECT_EQ(value, 77);
        EXPECT_FALSE(m_Engine->SetPTZ(id, 1));
    }
    EXPECT_TRUE(Requests().empty());
}

TEST_F(UvcControls, GetThatBringsNothingGivesZero) {
    virtcam::bus::add_fault({{"on", {{"control", {{"request", 0x81}}}}}, {"do", {{"short", 0}}}});
    for (const unsigned int id : {kPan, kTilt, kFocus, kZoom}) {
        int value = 77;
        EXPECT_TRUE(m_Engine->GetPTZ(id, &value));
        EXPECT_EQ(value, 0);
    }
}

TEST_F(UvcControls, FailedGetIsFalse) {
    FailAll(LIBUSB_ERROR_PIPE);
    int value = 77;
    EXPECT_FALSE(m_Engine->GetPTZ(kPan, &value));
    EXPECT_FALSE(m_Engine->GetPTZ(kZoom, &value));
}

TEST_F(UvcControls, PanGoesOutWithTheTiltThatTheCameraReports) {
    Answer("0100000004030201");
    EXPECT_TRUE(m_Engine->SetPTZ(kPan, -3600));
    const auto requests = Requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].request, 0x81);
    EXPECT_EQ(requests[0].value, 0x0D00);
    EXPECT_EQ(requests[1],
              Write(0x21, 0x01, 0x0D00, 0x0100, {0xF0, 0xF1, 0xFF, 0xFF, 0x04, 0x03, 0x02, 0x01}));
}

TEST_F(UvcControls, TiltGoesOutWithThePanThatTheCameraReports) {
    Answer("0403020100000000");
    EXPECT_TRUE(m_Engine->SetPTZ(kTilt, 7200));
    const auto requests = Requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[1],
              Write(0x21, 0x01, 0x0D00, 0x0100, {0x04, 0x03, 0x02, 0x01, 0x20, 0x1C, 0, 0}));
}

TEST_F(UvcControls, PartnerThatCannotBeReadCountsAsZero) {
    virtcam::bus::add_fault({{"on", {{"control", {{"request", 0x81}}}}}, {"do", "stall"}});
    EXPECT_TRUE(m_Engine->SetPTZ(kPan, 3600));
    EXPECT_EQ(Requests().back(), Write(0x21, 0x01, 0x0D00, 0x0100, {0x10, 0x0E, 0, 0, 0, 0, 0, 0}));
    EXPECT_TRUE(m_Engine->SetPTZ(kTilt, 3600));
    EXPECT_EQ(Requests().back(), Write(0x21, 0x01, 0x0D00, 0x0100, {0, 0, 0, 0, 0x10, 0x0E, 0, 0}));
}

TEST_F(UvcControls, FocusAndZoomSendTheLowSixteenBits) {
    EXPECT_TRUE(m_Engine->SetPTZ(kFocus, 0x12345678));
    EXPECT_TRUE(m_Engine->SetPTZ(kZoom, -2));
    EXPECT_EQ(Requests(), (Sequence{Write(0x21, 0x01, 0x0600, 0x0100, {0x78, 0x56}),
                                    Write(0x21, 0x01, 0x0B00, 0x0100, {0xFE, 0xFF})}));
}

TEST_F(UvcControls, SetsFailOnNegativeResultsOnly) {
    MoveBytes(0);
    for (const unsigned int id : {kPan, kTilt, kFocus, kZoom}) {
        EXPECT_TRUE(m_Engine->SetPTZ(id, 1));
    }
    EXPECT_TRUE(m_Engine->SetPU(2, 1));
    FailAll(LIBUSB_ERROR_PIPE);
    for (const unsigned int id : {kPan, kTilt, kFocus, kZoom}) {
        EXPECT_FALSE(m_Engine->SetPTZ(id, 1));
    }
    EXPECT_FALSE(m_Engine->SetPU(2, 1));
    EXPECT_TRUE(Log().empty());
}

// --- processing unit -----------------------------------------------------------------------------

TEST_F(UvcControls, ProcessingUnitSendsOneOrTwoBytesPerSelector) {
    const size_t lengths[] = {0, 2, 2, 2, 0, 1, 2, 2, 2, 2, 2, 1, 0, 0};
    for (unsigned int selector = 0; selector < std::size(lengths); ++selector) {
        virtcam::bus::clear_logs();
        const bool sent = m_Engine->SetPU(selector, 0x00A1B2C3);
        const auto requests = Requests();
        if (lengths[selector] == 0) {
            EXPECT_FALSE(sent) << selector;
            EXPECT_TRUE(requests.empty()) << selector;
            continue;
        }
        const Bytes data = lengths[selector] == 1 ? Bytes{0xC3} : Bytes{0xC3, 0xB2};
        EXPECT_EQ(requests,
                  (Sequence{Write(0x21, 0x01, static_cast<uint16_t>(selector << 8), 0x0300, data)}))
            << selector;
    }
    EXPECT_FALSE(m_Engine->SetPU(0x102, 1));
    EXPECT_FALSE(m_Engine->SetPU(0xFFFFFFFF, 1));
}

}  // namespace
}  // namespace test
