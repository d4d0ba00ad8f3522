// Vendor commands: the bytes at the camera, and what becomes of its answers.
#include "AitXu.h"
#include "AitXu_Bench.h"

#include <array>
#include <cstring>

#include "LibusbWrap.h"
#include "tests/access/UsbCalls.h"
#include "tests/support/BusTest.h"
#include "tests/support/ControlSequence.h"

namespace test {
namespace {

constexpr unsigned kPan = 0x009A0908, kTilt = 0x009A0909, kFocus = 0x009A090A, kZoom = 0x009A090D;

class AitCommands : public BusTest {
  protected:
    AitCommands() {
        device_ = OpenAitDevice(0x114D, 0x2066, kNoInterface);
        virtcam::bus::clear_logs();
        log().reset();
    }
    ~AitCommands() override { CloseAitDevice(device_); }

    static void Fail(const nlohmann::json& selector, const nlohmann::json& action) {
        virtcam::bus::add_fault({{"on", {{"control", selector}}}, {"do", action}});
    }
    /// Every write, or every read, is refused.
    static void FailWrites(const char* error = "LIBUSB_ERROR_IO") {
        Fail({{"type", 0x20}}, {{"return", error}});
    }
    static void FailReads(const char* error = "LIBUSB_ERROR_IO") {
        Fail({{"type", 0xA0}}, {{"return", error}});
    }
    static void Reply(uint16_t value, const char* hex) {
        Fail({{"type", 0xA0}, {"value", value}}, {{"reply", hex}});
    }
    static Request IspSet(std::vector<uint8_t> head, unsigned timeout) {
        return Write(0x20, 0x01, 0x0100, 0x0600, Block(8, std::move(head)), timeout);
    }
    static Request MmpSet(std::vector<uint8_t> head) {
        return Write(0x20, 0x01, 0x0E00, 0x0600, Block(16, std::move(head)), 1000);
    }
    void ExpectOneLine(unsigned level, const std::string& text) {
        ASSERT_EQ(log().lines().size(), 1u) << log_listing();
        EXPECT_LOG(level, text);
    }

    AitDevHandle* device_ = nullptr;
};

TEST_F(AitCommands, ErrorCode) {
    EXPECT_EQ(static_cast<unsigned>(AIT_ERR_DEVICE), 0x80000003u);
    EXPECT_LT(AIT_ERR_DEVICE, 0);
}

TEST_F(AitCommands, IspSet) {
    unsigned char block[8] = {0x12, 1, 2, 3, 4, 5, 6, 7};
    EXPECT_EQ(AitIspCmdSet(device_, block), 0);
    EXPECT_EQ(Requests(), (Sequence{IspSet({0x12, 1, 2, 3, 4, 5, 6, 7}, 500)}));
    EXPECT_EQ(AitIspCmdSet(nullptr, block), -1);
    FailWrites();
    EXPECT_EQ(AitIspCmdSet(device_, block), LIBUSB_ERROR_IO);
    ExpectOneLine(1, "AitIspCmdSet failed : 0xFFFFFFFF");
}

TEST_F(AitCommands, IspGetResult) {
    unsigned char block[8] = {};
    Reply(0x0200, "0102030405060708");
    EXPECT_EQ(AitIspCmdGetResult(device_, block, 1234), 0);
    EXPECT_EQ(block[0], 1);
    EXPECT_EQ(block[7], 8);
    EXPECT_EQ(Requests(), (Sequence{Read(0xA0, 0x81, 0x0200, 0x0600, 8, 1234)}));
    EXPECT_EQ(AitIspCmdGetResult(nullptr, block, 500), -1);
    virtcam::bus::clear_faults();
    FailReads("LIBUSB_ERROR_TIMEOUT");
    EXPECT_EQ(AitIspCmdGetResult(device_, block, 500), LIBUSB_ERROR_TIMEOUT);
    ExpectOneLine(1, "AitIspCmdGet failed : 0xFFFFFFF9");
}

TEST_F(AitCommands, MmpSetIgnoresTheTransfersResult) {
    unsigned char block[16] = {0x20, 1};
    EXPECT_EQ(AitMMPCmdSet16(device_, block), 0);
    EXPECT_EQ(Requests(), (Sequence{MmpSet({0x20, 1})}));
    FailWrites("LIBUSB_ERROR_NO_DEVICE");
    EXPECT_EQ(AitMMPCmdSet16(device_, block), 0);
    EXPECT_TRUE(log().lines().empty());
    EXPECT_EQ(AitMMPCmdSet16(nullptr, block), -1);
}

TEST_F(AitCommands, MmpGetResult) {
    unsigned char block[16] = {};
    EXPECT_EQ(AitMMPCmdGetResult16(device_, block), 0);
    EXPECT_EQ(Requests(), (Sequence{Read(0xA0, 0x81, 0x0F00, 0x0600, 16, 500)}));
    EXPECT_EQ(AitMMPCmdGetResult16(nullptr, block), -1);
    FailReads();
    EXPECT_EQ(AitMMPCmdGetResult16(device_, block), LIBUSB_ERROR_IO);
    ExpectOneLine(1, "AitIspCmdGet failed : 0xFFFFFFFF");
}

TEST_F(AitCommands, GeneralTransferTakesTheLowByteOfTheSelector) {
    unsigned char block[8] = {0x28, 5};
    EXPECT_EQ(AitXU_XuCmd(device_, block, 0x0304, 8, 1), 0);
    unsigned char reply[8] = {};
    EXPECT_EQ(AitXU_XuCmd(device_, reply, 5, 8, 0), 0);
    EXPECT_EQ(AitXU_XuCmd(device_, block, 4, 8, -1), 0);
    const Sequence requests = Requests();
    ASSERT_EQ(requests.size(), 3u);
    EXPECT_EQ(requests[0], Write(0x20, 0x01, 0x0400, 0x0600, Block(8, {0x28, 5}), 1000));
    EXPECT_EQ(requests[1], Read(0xA0, 0x81, 0x0500, 0x0600, 8, 1000));
    EXPECT_EQ(requests[2].type, 0x20);
    EXPECT_TRUE(log().lines().empty());
    EXPECT_EQ(AitXU_XuCmd(nullptr, block, 4, 8, 1), AIT_ERR_DEVICE);
    FailReads();
    EXPECT_EQ(AitXU_XuCmd(device_, block, 5, 8, 0), LIBUSB_ERROR_IO);
    ExpectOneLine(1, "AitXUCmd failed : 0xFFFFFFFF");
}

TEST_F(AitCommands, VideoOptionIsCombinedInItsOddWay) {
    Reply(0x0F00, "00010101010000000000000000000000");
    unsigned options = 77;
    EXPECT_EQ(AitXU_GetVideoOption(device_, &options), 0);
    EXPECT_EQ(options, 0x01001002u);
    EXPECT_EQ(Requests(),
              (Sequence{MmpSet({0x02, 0x01}), Read(0xA0, 0x81, 0x0F00, 0x0600, 16, 1000)}));
    virtcam::bus::clear_faults();
    Reply(0x0F00, "FF8040F0120000000000000000000000");
    EXPECT_EQ(AitXU_GetVideoOption(device_, &options), 0);
    EXPECT_EQ(options, 0x80u + 0x40u + (0xF0u << 12) + (0x12u << 24));
}

TEST_F(AitCommands, VideoOptionIsWrittenOnSuccessOnly) {
    unsigned options = 77;
    FailReads("LIBUSB_ERROR_PIPE");
    EXPECT_EQ(AitXU_GetVideoOption(device_, &options), LIBUSB_ERROR_PIPE);
    FailWrites("LIBUSB_ERROR_BUSY");
    virtcam::bus::clear_logs();
    EXPECT_EQ(AitXU_GetVideoOption(device_, &options), LIBUSB_ERROR_BUSY);
    EXPECT_EQ(Requests().size(), 1u);
    EXPECT_EQ(AitXU_GetVideoOption(nullptr, &options), -1);
    EXPECT_EQ(options, 77u);
}

TEST_F(AitCommands, SetVideoOption) {
    EXPECT_EQ(AitXU_SetVideoOption(device_, 0x12345678), 0);
    EXPECT_EQ(Requests(), (Sequence{MmpSet({0x02, 0x02, 0x78, 0x56, 0x34, 0x12})}));
    EXPECT_EQ(AitXU_SetVideoOption(nullptr, 1), -1);
    FailWrites();
    EXPECT_EQ(AitXU_SetVideoOption(device_, 1), LIBUSB_ERROR_IO);
}

TEST_F(AitCommands, FirmwareVersion) {
    unsigned char version[6] = {};
    EXPECT_EQ(AitXU_GetFWVersion(device_, version), 0);
    EXPECT_THAT(version, ::testing::ElementsAre(0x00, 0x01, 0x00, 0x45, 0x02, 0x03));
    EXPECT_EQ(Requests(),
              (Sequence{IspSet({0x0B}, 1000), Read(0xA0, 0x81, 0x0200, 0x0600, 8, 1000)}));
}

TEST_F(AitCommands, FirmwareVersionWithAnErrorStatusStaysUntouched) {
    Reply(0x0200, "05000A0B0C0D0E0F");
    unsigned char version[6] = {1, 2, 3, 4, 5, 6};
    EXPECT_EQ(AitXU_GetFWVersion(device_, version), 0);
    EXPECT_THAT(version, ::testing::ElementsAre(1, 2, 3, 4, 5, 6));
    virtcam::bus::clear_faults();
    FailReads("LIBUSB_ERROR_PIPE");
    EXPECT_EQ(AitXU_GetFWVersion(device_, version), LIBUSB_ERROR_PIPE);
    FailWrites("LIBUSB_ERROR_BUSY");
    EXPECT_EQ(AitXU_GetFWVersion(device_, version), LIBUSB_ERROR_BUSY);
    EXPECT_EQ(AitXU_GetFWVersion(nullptr, version), -1);
    EXPECT_THAT(version, ::testing::ElementsAre(1, 2, 3, 4, 5, 6));
}

TEST_F(AitCommands, SensorRegisters) {
    EXPECT_EQ(WriteSensorReg(device_, 0x1234, 0xABCD), 0);
    Reply(0x0200, "00000102FFFF0000");
    unsigned short value = 0;
    EXPECT_EQ(ReadSensorReg(device_, 0x5678, &value), 0);
    EXPECT_EQ(value, 0x0201);
    EXPECT_EQ(Requests(), (Sequence{IspSet({0x0A, 0x03, 0x34, 0x12, 0xCD, 0xAB}, 500),
                                    IspSet({0x0A, 0x02, 0x78, 0x56}, 500),
                                    Read(0xA0, 0x81, 0x0200, 0x0600, 8, 500)}));
}

TEST_F(AitCommands, SensorReadIgnoresItsSecondTransfer) {
    FailReads();
    unsigned short value = 0;
    EXPECT_EQ(ReadSensorReg(device_, 0x5678, &value), 0);
    EXPECT_EQ(value, 0x5678);  // what the block held
    FailWrites("LIBUSB_ERROR_PIPE");
    value = 9;
    EXPECT_EQ(ReadSensorReg(device_, 0x5678, &value), LIBUSB_ERROR_PIPE);
    EXPECT_EQ(value, 9);
    EXPECT_EQ(WriteSensorReg(device_, 1, 1), LIBUSB_ERROR_PIPE);
    EXPECT_EQ(ReadSensorReg(nullptr, 1, &value), -1);
}

TEST_F(AitCommands, PreviewParameters) {
    EXPECT_EQ(
        Set_TMK_TV_PreviewParam(device_, 6, 9, 0x0102, 0x0304, 0x0506, 0x0708, 0x090A, 0x0B0C), 0);
    EXPECT_EQ(Requests(), (Sequence{MmpSet({0x01, 6, 9, 0x02, 0x01, 0x04, 0x03, 0x06, 0x05, 0x08,
                                            0x07, 0x0A, 0x09, 0x0C, 0x0B, 0})}));
    EXPECT_EQ(Set_TMK_TV_PreviewParam(nullptr, 6, 9, 1, 2, 3, 4, 5, 6), -1);
}

TEST_F(AitCommands, Bitrate) {
    EXPECT_EQ(SetH264Bitrate(device_, 0x07D0), 0);
    EXPECT_EQ(Requests(), (Sequence{IspSet({0x08, 0xFF, 0xD0, 0x07}, 500)}));
    EXPECT_EQ(SetH264Bitrate(nullptr, 1), -1);
}

TEST_F(AitCommands, FacePositions) {
    std::string reply =
        "02"
        "0100020003000400"
        "0500060007000801";
    reply.resize(162, '0');
    Fail({{"type", 0xC0}}, {{"reply", reply}});
    FacePositionList faces;
    std::memset(&faces, 0xFF, sizeof faces);
    EXPECT_EQ(GetFD_Position(device_, &faces), 0);
    EXPECT_EQ(faces.num_face, 2);
    EXPECT_EQ(faces.face_rect[0].left, 1);
    EXPECT_EQ(faces.face_rect[0].top, 2);
    EXPECT_EQ(faces.face_rect[0].right, 3);
    EXPECT_EQ(faces.face_rect[0].bottom, 4);
    EXPECT_EQ(faces.face_rect[1].left, 5);
    EXPECT_EQ(faces.face_rect[1].top, 6);
    EXPECT_EQ(faces.face_rect[1].right, 7);
    EXPECT_EQ(faces.face_rect[1].bottom, 0x0108);
    EXPECT_EQ(faces.face_rect[2].left, 0xFFFF);
    EXPECT_EQ(Requests(), (Sequence{Read(0xC0, 1, 0, 0, 81, 500)}));
}

TEST_F(AitCommands, NoFaceTouchesNoRectangle) {
    Fail({{"type", 0xC0}}, {{"reply", std::string(162, '0')}});
    FacePositionList faces;
    std::memset(&faces, 0xFF, sizeof faces);
    EXPECT_EQ(GetFD_Position(device_, &faces), 0);
    EXPECT_EQ(faces.num_face, 0);
    EXPECT_EQ(faces.face_rect[0].left, 0xFFFF);
}

TEST_F(AitCommands, AtMostTenFacesAreCopied) {
    Fail({{"type", 0xC0}}, {{"reply", "FF" + std::string(160, '1')}});
    FacePositionList faces;
    std::memset(&faces, 0xEE, sizeof faces);
    EXPECT_EQ(GetFD_Position(device_, &faces), 0);
    EXPECT_EQ(faces.num_face, 255);
    EXPECT_EQ(faces.face_rect[9].bottom, 0x1111);
    EXPECT_EQ(faces.face_rect[10].left, 0xEEEE);
}

TEST_F(AitCommands, FacePositionsFailWithADeviceError) {
    Fail({{"type", 0xC0}}, {{"return", "LIBUSB_ERROR_PIPE"}});
    FacePositionList faces;
    EXPECT_EQ(GetFD_Position(device_, &faces), AIT_ERR_DEVICE);
    EXPECT_EQ(faces.num_face, 0);
    ExpectOneLine(1, "Failed to get fd pos array: 0xFFFFFFF7");
    EXPECT_EQ(GetFD_Position(nullptr, &faces), -1);
}

TEST_F(AitCommands, FaceParameters) {
    FACE_CMD command;
    auto* bytes = reinterpret_cast<uint8_t*>(&command);
    std::vector<uint8_t> expected;
    for (uint8_t i = 0; i < 32; ++i) {
        bytes[i] = static_cast<uint8_t>(i + 1);
        expected.push_back(bytes[i]);
    }
    EXPECT_EQ(SetFD_Param(device_, &command), 0);
    EXPECT_TRUE(log().lines().empty());
    EXPECT_EQ(Requests(), (Sequence{Write(0x40, 2, 0, 0, expected, 500)}));
    virtcam::bus::clear_faults();
    log().reset();
    Fail({{"type", 0x40}}, {{"return", "LIBUSB_ERROR_IO"}});
    EXPECT_EQ(SetFD_Param(device_, &command), AIT_ERR_DEVICE);
    ExpectOneLine(1, "Failed to set FD parameter 0xFFFFFFFF");
    EXPECT_EQ(SetFD_Param(nullptr, &command), -1);
}

TEST_F(AitCommands, PositionsAreReadAndTheResultIsOnlyAdvice) {
    Reply(0x0D00, "F0F1FFFF10270000");
    Reply(0x0600, "FFFF");
    Reply(0x0B00, "0900");
    int value = 0;
    EXPECT_EQ(GetPTZ_Pos(device_, kPan, &value), -1);
    EXPECT_EQ(value, -3600);
    EXPECT_EQ(GetPTZ_Pos(device_, kTilt, &value), -1);
    EXPECT_EQ(value, 10000);
    EXPECT_EQ(GetPTZ_Pos(device_, kFocus, &value), -1);
    EXPECT_EQ(value, 0xFFFF);
    EXPECT_EQ(GetPTZ_Pos(device_, kZoom, &value), -1);
    EXPECT_EQ(value, 9);
    EXPECT_LOG_COUNT(1, "GetPTZ_Pos is failed\r\n", 4);
    EXPECT_EQ(Requests(), (Sequence{Read(0xA0, 0x81, 0x0D00, 0x0100, 8, 500),
                                    Read(0xA0, 0x81, 0x0D00, 0x0100, 8, 500),
                                    Read(0xA0, 0x81, 0x0600, 0x0100, 2, 500),
                                    Read(0xA0, 0x81, 0x0B00, 0x0100, 2, 500)}));
}

TEST_F(AitCommands, PositionOfATransferThatAnswersZeroIsASuccess) {
    Fail({{"type", 0xA0}}, {{"reply", "0700"}, {"actual_length", 0}});
    int value = 0;
    EXPECT_EQ(GetPTZ_Pos(device_, kZoom, &value), 0);
    EXPECT_TRUE(log().lines().empty());
}

TEST_F(AitCommands, AFailedPositionTransferIsAdvisedOfToo) {
    FailReads();
    int value = 5;
    EXPECT_EQ(GetPTZ_Pos(device_, kPan, &value), -1);
    EXPECT_EQ(value, 0);
    EXPECT_LOG_COUNT(1, "GetPTZ_Pos is failed\r\n", 1);
    FailWrites();
    EXPECT_EQ(SetPTZ_Pos(device_, kZoom, 1), -1);
    EXPECT_LOG_COUNT(1, "SetPTZ_Pos is failed\r\n", 1);
}

TEST_F(AitCommands, ATransferOfNothingIsNoError) {
    for (const int type : {0x20, 0xA0, 0xC0, 0x40}) {
        Fail({{"type", type}}, {{"return", 0}});
    }
    unsigned char block[16] = {};
    FacePositionList faces;
    FACE_CMD command = {};
    EXPECT_EQ(AitIspCmdSet(device_, block), 0);
    EXPECT_EQ(AitIspCmdGetResult(device_, block, 500), 0);
    EXPECT_EQ(AitMMPCmdGetResult16(device_, block), 0);
    EXPECT_EQ(AitXU_XuCmd(device_, block, 5, 8, 0), 0);
    EXPECT_EQ(GetFD_Position(device_, &faces), 0);
    EXPECT_EQ(SetFD_Param(device_, &command), 0);
    EXPECT_TRUE(log().lines().empty()) << log_listing();
}

TEST_F(AitCommands, NoAxisNoTransfer) {
    int value = 5;
    for (const unsigned axis : {0x009A0907u, 0x009A090Bu, 0x009A090Cu, 0x009A090Eu}) {
        EXPECT_EQ(GetPTZ_Pos(device_, axis, &value), -1);
        EXPECT_EQ(SetPTZ_Pos(device_, axis, 1), AIT_ERR_DEVICE);
        EXPECT_EQ(SetPTZ_Pos(nullptr, axis, 1), -1);
    }
    EXPECT_EQ(GetPTZ_Pos(nullptr, kPan, &value), -1);
    EXPECT_EQ(value, 5);
    EXPECT_TRUE(Requests().empty());
    EXPECT_TRUE(log().lines().empty());
}

TEST_F(AitCommands, PanSendsTheTiltsUpperHalfAsFlags) {
    struct Case {
        const char* tilt;  // as the camera answers
        std::vector<uint8_t> sent;
    };
    const Case cases[] = {
        {"00000000F0F1FFFF", {0x64, 0, 0, 0, 0xF0, 0xF1, 1, 1}},
        {"00000000100E0000", {0x64, 0, 0, 0, 0x10, 0x0E, 0, 0}},
        {"0000000034120500", {0x64, 0, 0, 0, 0x34, 0x12, 1, 0}},
        {"0000000034120001", {0x64, 0, 0, 0, 0x34, 0x12, 1, 1}},
        // Either side of the flags' lowest bits.
        {"00000000FFFF0000", {0x64, 0, 0, 0, 0xFF, 0xFF, 0, 0}},
        {"0000000000000100", {0x64, 0, 0, 0, 0, 0, 1, 0}},
        {"00000000FFFFFF00", {0x64, 0, 0, 0, 0xFF, 0xFF, 1, 0}},
        {"0000000000000001", {0x64, 0, 0, 0, 0, 0, 1, 1}},
    };
    for (const Case& c : cases) {
        virtcam::bus::clear_faults();
        virtcam::bus::clear_logs();
        Reply(0x0D00, c.tilt);
        EXPECT_EQ(SetPTZ_Pos(device_, kPan, 100), -1);
        EXPECT_EQ(Requests(), (Sequence{Read(0xA0, 0x81, 0x0D00, 0x0100, 8, 500),
                                        Write(0x20, 0x01, 0x0D00, 0x0100, c.sent, 500)}));
    }
    EXPECT_LOG_COUNT(1, "SetPTZ_Pos is failed\r\n", std::size(cases));
}

TEST_F(AitCommands, PanWithoutAnAnswerSendsTiltZero) {
    FailReads();
    SetPTZ_Pos(device_, kPan, -2);
    EXPECT_EQ(Requests()[1].data, (std::vector<uint8_t>{0xFE, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0}));
}

TEST_F(AitCommands, TiltSendsThePanWhole) {
    Reply(0x0D00, "0102FF8011111111");
    SetPTZ_Pos(device_, kTilt, -3600);
    EXPECT_EQ(Requests()[1], Write(0x20, 0x01, 0x0D00, 0x0100,
                                   {0x01, 0x02, 0xFF, 0x80, 0xF0, 0xF1, 0xFF, 0xFF}, 500));
}

TEST_F(AitCommands, FocusAndZoomSendTheLowHalf) {
    SetPTZ_Pos(device_, kFocus, 0x00010203);
    SetPTZ_Pos(device_, kZoom, 7);
    EXPECT_EQ(Requests(), (Sequence{Write(0x20, 0x01, 0x0600, 0x0100, {0x03, 0x02}, 500),
                                    Write(0x20, 0x01, 0x0B00, 0x0100, {7, 0}, 500)}));
}

TEST_F(AitCommands, SetOfATransferThatAnswersZeroIsASuccess) {
    Fail({{"type", 0x20}}, {{"actual_length", 0}});
    EXPECT_EQ(SetPTZ_Pos(device_, kZoom, 7), 0);
    EXPECT_TRUE(log().lines().empty());
    EXPECT_EQ(SetPTZ_Pos(nullptr, kZoom, 7), -1);
}

TEST_F(AitCommands, EveryTransferIsSerialised) {
    watch_usb_calls();
    unsigned char block[16] = {0x20};
    unsigned short value = 0;
    unsigned word = 0;
    unsigned char version[6];
    int position = 0;
    FacePositionList faces;
    FACE_CMD command = {};
    AitIspCmdSet(device_, block);
    AitIspCmdGetResult(device_, block, 500);
    AitMMPCmdSet16(device_, block);
    AitMMPCmdGetResult16(device_, block);
    AitXU_XuCmd(device_, block, 5, 8, 0);
    AitXU_GetVideoOption(device_, &word);
    AitXU_GetFWVersion(device_, version);
    ReadSensorReg(device_, 1, &value);
    GetFD_Position(device_, &faces);
    SetFD_Param(device_, &command);
    GetPTZ_Pos(device_, kZoom, &position);
    SetPTZ_Pos(device_, kZoom, 1);
    const auto calls = take_usb_calls();
    EXPECT_EQ(calls.size(), 15u);
    for (const UsbCall& call : calls) {
        EXPECT_EQ(call.name, "control_transfer");
        EXPECT_TRUE(call.control_lock_held);
    }
}

/// A camera that sees a face, asked for its place.
class FaceTracking : public AitCommands {
  protected:
    static constexpr std::chrono::seconds kLimit{10};
    /// Some periods in which a camera that tracks moves the face.
    static constexpr std::chrono::milliseconds kQuiet{500};

    void SwitchDetectionOn() {
        constexpr unsigned kFaceDetection = 0x08;
        ASSERT_EQ(AitXU_SetVideoOption(device_, kFaceDetection), 0);
    }
    void SwitchTracking(bool on) {
        const uint8_t mode = on ? 5 : 6;
        ASSERT_EQ(Set_TMK_TV_PreviewParam(device_, 0, mode, 0, 0, 0, 0, 0, 0), 0);
    }
    std::array<int, 4> Face() {
        FacePositionList faces;
        EXPECT_EQ(GetFD_Position(device_, &faces), 0);
        EXPECT_EQ(faces.num_face, 1);
        const FaceRect& face = faces.face_rect[0];
        EXPECT_LT(face.left, face.right);
        EXPECT_LT(face.top, face.bottom);
        return {face.left, face.top, face.right, face.bottom};
    }
    /// True when the face leaves its place within the time.
    bool Moves(std::chrono::milliseconds limit) {
        const auto before = Face();
        return virtcam::bus::wait_until([&] { return Face() != before; }, limit);
    }
};

TEST_F(FaceTracking, MovesAFace) {
    SwitchTracking(true);
    EXPECT_TRUE(Moves(kLimit));
    EXPECT_TRUE(Moves(kLimit)) << "and goes on";
}

TEST_F(FaceTracking, LeavesTheFaceInItsPlaceOnceItIsOff) {
    SwitchDetectionOn();
    EXPECT_FALSE(Moves(kQuiet)) << "detection alone follows nothing";
    SwitchTracking(true);
    EXPECT_TRUE(Moves(kLimit));
    SwitchTracking(false);
    EXPECT_FALSE(Moves(kQuiet));
}

TEST_F(FaceTracking, SeesNoFaceOnceItIsOffWithoutDetection) {
    SwitchTracking(true);
    EXPECT_TRUE(Moves(kLimit));
    SwitchTracking(false);
    FacePositionList faces;
    EXPECT_EQ(GetFD_Position(device_, &faces), 0);
    EXPECT_EQ(faces.num_face, 0);
}

}  // namespace
}  // namespace test
