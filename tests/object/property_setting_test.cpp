// SetProperty: each row of the table at the camera, and every number.
#include <algorithm>
#include <cstdio>
#include <numeric>

#include "tests/object/CameraTest.h"

namespace test {
namespace {

const char kNoCapturer[] = "video_capturer is NULL or m_State is CAM_STATE_DISCONNECTED !!! \r\n";
const char kTrue[] = "Return true\r\n";

std::string Failure(int property) {
    char line[64];
    snprintf(line, sizeof line, "Fail set property 0x%x\r\n", static_cast<unsigned>(property));
    return line;
}

class PropertySetting : public CameraTest {
  protected:
    /// Lines of this thread about the call, beginning with its frame line.
    Lines Log() { return CameraTest::Log(OfThisThread); }
    static std::string FrameLine(int property, CAM_PROP_VALUE param) {
        char line[160];
        snprintf(line, sizeof line,
                 "CAitOrixCamera::SetProperty prop=%d, param->value=0x%X, param->res[0]=0x%X, "
                 "param->res[1]=0x%X\r\n",
                 property, static_cast<unsigned>(param.value),
                 static_cast<unsigned>(int{param.res[0]}),
                 static_cast<unsigned>(int{param.res[1]}));
        return line;
    }
    static Request Pu(uint8_t selector, std::vector<uint8_t> bytes) {
        return Write(0x21, 0x01, static_cast<uint16_t>(selector << 8), 0x0300, std::move(bytes),
                     5000);
    }
    static Sequence ReadOptions() { return {Mmp({0x02, 0x01}), MmpResult()}; }
};

// --- every number --------------------------------------------------------------------------------

/// What SetProperty answers.
enum SetAnswer {
    kAccepted,
    kFails,     ///< false, with the line that says so
    kDeclined,  ///< false without that line
};

/// What a row answers to value 1.
struct SetRow {
    CAM_PROPERTY property;
    SetAnswer ready;  ///< on a camera that is ready, but not playing
    bool bare;        ///< without adapters
    bool gone;        ///< on a disconnected camera: some rows do not ask whether there is one
};

/// A property that a ready camera answers.
struct GetRow {
    CAM_PROPERTY property;
    bool bare;  ///< without adapters, too
};

// clang-format off
constexpr SetRow kSetRows[] = {
    // property                           ready      bare    gone
    {CAM_PROPERTY_BITRATE,                kAccepted, false,  false},
    {CAM_PROPERTY_FRAMERATE,              kAccepted, false,  false},
    {CAM_PROPERTY_NEWGOP,                 kAccepted, false,  false},
    {CAM_PROPERTY_DIMENSION,              kFails,    false,  false},
    {CAM_PROPERTY_MICVOLUME,              kAccepted, false,  false},
    {CAM_PROPERTY_SAMPLERATE,             kAccepted, true,   true},
    {CAM_PROPERTY_ZOOM,                   kAccepted, false,  false},
    {CAM_PROPERTY_PAN,                    kAccepted, false,  false},
    {CAM_PROPERTY_TILT,                   kAccepted, false,  false},
    {CAM_PROPERTY_AUTO_HZ,                kAccepted, false,  false},
    {CAM_PROPERTY_AUTO_FOCUS,             kAccepted, true,   true},
    {CAM_PROPERTY_MIRROR,                 kAccepted, false,  false},
    {CAM_PROPERTY_FLIP,                   kAccepted, false,  false},
    {CAM_PROPERTY_FD_CONTROL,             kAccepted, false,  false},
    {CAM_PROPERTY_SIGNAL_TYPE,            kDeclined, false,  false},
    {CAM_PROPERTY_I2C_READ_AUDIO,         kDeclined, false,  false},
    {CAM_PROPERTY_I2C_WRITE_AUDIO,        kAccepted, false,  false},
    {CAM_PROPERTY_CROP_VGA,               kAccepted, false,  false},
    {CAM_PROPERTY_TRIGGER_JPEG,           kAccepted, false,  false},
    {CAM_PROPERTY_VIDEO_MODE,             kDeclined, false,  false},
    {CAM_PROPERTY_NV12_MODE_CONTROL,      kAccepted, false,  false},
    {CAM_PROPERTY_BRIGHTNESS,             kAccepted, false,  false},
    {CAM_PROPERTY_CONTRAST,               kAccepted, false,  false},
    {CAM_PROPERTY_SATURATION,             kAccepted, false,  false},
    {CAM_PROPERTY_SHARPNESS,              kAccepted, false,  false},
    {CAM_PROPERTY_HUE,                    kAccepted, false,  false},
    {CAM_PROPERTY_GAMMA,                  kAccepted, false,  false},
    {CAM_PROPERTY_BACKLIGHT_CONTROL,      kAccepted, false,  false},
    {CAM_PROPERTY_AWB_TEMPERATURE,        kAccepted, false,  false},
    {CAM_PROPERTY_MANUAL_AWB_CONTROL,     kAccepted, false,  false},
    {CAM_PROPERTY_IMAGE_EFFECT,           kAccepted, false,  false},
    {CAM_PROPERTY_3A_CONTROL,             kAccepted, false,  false},
    {CAM_PROPERTY_WDR_CONTROL,            kAccepted, false,  false},
    {CAM_PROPERTY_COLOR_EFFECT,           kAccepted, false,  false},
    {CAM_PROPERTY_LOCAL_MIRROR,           kAccepted, false,  false},
    {CAM_PROPERTY_DEBUG_LEVEL,            kAccepted, true,   true},
    {CAM_PROPERTY_MIRROR_GRAY,            kAccepted, false,  false},
    {CAM_PROPERTY_CROP_GRAY,              kAccepted, false,  false},
    {CAM_PROPERTY_FACE_TRACKING,          kAccepted, false,  false},
    {CAM_PROPERTY_PREVIEW_MODE,           kAccepted, false,  false},
    {CAM_PROPERTY_LOCAL_RESOLUTION,       kAccepted, true,   true},
    {CAM_PROPERTY_CHANGE_NV12_RESOLUTION, kAccepted, false,  true},
};

constexpr GetRow kGetRows[] = {
    // property                           bare
    {CAM_PROPERTY_BITRATE,                true},
    {CAM_PROPERTY_FRAMERATE,              true},
    {CAM_PROPERTY_DIMENSION,              true},
    {CAM_PROPERTY_MICVOLUME,              true},
    {CAM_PROPERTY_SAMPLERATE,             true},
    {CAM_PROPERTY_ZOOM,                   true},
    {CAM_PROPERTY_PAN,                    true},
    {CAM_PROPERTY_TILT,                   true},
    {CAM_PROPERTY_SIGNAL_TYPE,            true},
    {CAM_PROPERTY_LUX,                    false},
    {CAM_PROPERTY_DEBUG_LEVEL,            true},
    {CAM_PROPERTY_FACE_TRACKING,          true},
    {CAM_PROPERTY_VIDEO_TEST,             false},
    {CAM_PROPERTY_AUDIO_TEST,             true},
    {CAM_PROPERTY_CONNECTION_TEST,        true},
};
// clang-format on

/// The row of that number; null when there is none.
template <typename Row, size_t kCount>
const Row* FindRow(const Row (&rows)[kCount], int property) {
    const auto found = std::find_if(std::begin(rows), std::end(rows),
                                    [&](const Row& row) { return row.property == property; });
    return found == std::end(rows) ? nullptr : found;
}

/// Every number that has an enumerator, and one beyond at each end.
std::vector<int> EveryNumber() {
    std::vector<int> numbers(CAM_PROPERTY_RESERVED_9 + 3);
    std::iota(numbers.begin(), numbers.end(), -1);
    return numbers;
}

const char* Word(bool value) {
    return value ? "true" : "false";
}

TEST_F(PropertySetting, EveryNumberSet) {
    Ready();
    std::printf("property   set: expected  outcome\n");
    for (const int property : EveryNumber()) {
        const SetRow* row = FindRow(kSetRows, property);
        const SetAnswer expected = row != nullptr ? row->ready : kFails;
        log().reset();
        const bool set = Set(property, 1);
        EXPECT_EQ(set, expected == kAccepted) << property << log_listing();
        EXPECT_EQ(log().has(4, "Not supported camera property\n"), row == nullptr) << property;
        EXPECT_EQ(log().has(1, Failure(property)), expected == kFails) << property << log_listing();
        std::printf("%8d        %8s %8s\n", property, Word(expected == kAccepted), Word(set));
        object_->SetDebugLevel(5);  // one of them changed it
    }
}

TEST_F(PropertySetting, EveryNumberGet) {
    Ready();
    std::printf("property   get: expected  outcome\n");
    for (const int property : EveryNumber()) {
        const bool expected = FindRow(kGetRows, property) != nullptr;
        log().reset();
        const bool get = Get(property);
        EXPECT_EQ(get, expected) << property;
        char line[64];
        snprintf(line, sizeof line, "Not supported camera property 0x%X\r\n",
                 static_cast<unsigned>(property));
        EXPECT_EQ(log().has(4, line), !expected) << property;
        snprintf(line, sizeof line, "CAitOrixCamera::GetProperty prop=0x%X\r\n",
                 static_cast<unsigned>(property));
        EXPECT_LOG(5, line);
        std::printf("%8d        %8s %8s\n", property, Word(expected), Word(get));
    }
}

TEST_F(PropertySetting, EveryNumberWithoutAdapters) {
    Create();
    for (const int property : EveryNumber()) {
        const SetRow* set = FindRow(kSetRows, property);
        const GetRow* get = FindRow(kGetRows, property);
        EXPECT_EQ(Set(property, 1), set != nullptr && set->bare) << property;
        object_->SetDebugLevel(5);  // one of them changed it
        EXPECT_EQ(Get(property), get != nullptr && get->bare) << property;
    }
}

TEST_F(PropertySetting, EveryNumberOnADisconnectedCamera) {
    Ready();
    camera_->SetState(CAM_STATE_DISCONNECTED);
    for (const int property : EveryNumber()) {
        const SetRow* row = FindRow(kSetRows, property);
        EXPECT_EQ(Set(property, 1), row != nullptr && row->gone) << property;
        object_->SetDebugLevel(5);  // one of them changed it
    }
    camera_->SetState(CAM_STATE_READY);
}

TEST_F(PropertySetting, UnknownNumbersSayTwoLines) {
    Ready();
    for (const int property : {200, int{CAM_PROPERTY_RESERVED_0}, -1, int{CAM_PROPERTY_SAMPLEBITS},
                               int{CAM_PROPERTY_I2C_READ_VIDEO}, int{CAM_PROPERTY_I2C_WRITE_VIDEO},
                               int{CAM_PROPERTY_POWER_LINE_FREQUENCY}}) {
        Forget();
        EXPECT_FALSE(Set(property, 0x00050003));
        EXPECT_EQ(Log(), (Lines{{4, FrameLine(property, last_)},
                                {4, "Not supported camera property\n"},
                                {1, Failure(property)}}));
    }
}

TEST_F(PropertySetting, WithoutARecord) {
    Ready();
    EXPECT_FALSE(camera_->SetProperty(CAM_PROPERTY_BITRATE, nullptr));
    EXPECT_EQ(Log(), (Lines{{1, Failure(CAM_PROPERTY_BITRATE)}}));
    EXPECT_FALSE(camera_->GetProperty(CAM_PROPERTY_BITRATE, nullptr));
    EXPECT_LOG(4, "Not supported camera property 0x0\r\n");
}

// --- rows that send one command ------------------------------------------------------------------

struct CommandCase {
    const char* name;
    int property;
    int value;
    Request sent;
    std::vector<std::string> entry;  // lines between the frame line and the end
    unsigned level = 4;
};

void PrintTo(const CommandCase& c, std::ostream* out) {
    *out << c.name;
}

struct Commands : PropertySetting, ::testing::WithParamInterface<CommandCase> {
    static Request AMmp(std::vector<uint8_t> head) { return Mmp(std::move(head)); }
    static Request AnIsp(std::vector<uint8_t> head) { return Isp(std::move(head)); }
    static Request AnAux(std::vector<uint8_t> head) { return Aux(std::move(head)); }
    static Request APu(uint8_t selector, std::vector<uint8_t> bytes) {
        return Pu(selector, std::move(bytes));
    }
};

TEST_P(Commands, AreSentWithTheirBytes) {
    Ready();
    EXPECT_TRUE(Set(GetParam().property, GetParam().value));
    EXPECT_EQ(Sent(), (Sequence{GetParam().sent}));
    Lines expected = {{4, FrameLine(GetParam().property, [&] {
                           CAM_PROP_VALUE param;
                           param.value = GetParam().value;
                           return param;
                       }())}};
    for (const std::string& text : GetParam().entry) {
        expected.emplace_back(GetParam().level, text);
    }
    expected.emplace_back(4, kTrue);
    EXPECT_EQ(Log(), expected);
}

int Pair(int low, int high) {
    CAM_PROP_VALUE param;
    param.res[0] = static_cast<short>(low);
    param.res[1] = static_cast<short>(high);
    return param.value;
}

typedef Commands C;
INSTANTIATE_TEST_SUITE_P(
    Rows, Commands,
    ::testing::Values(
        CommandCase{"bit rate",
                    CAM_PROPERTY_BITRATE,
                    2048000,
                    C::AnIsp({8, 0xFF, 0xD0, 0x07}),
                    {"BITRATE: 2048000 bps\r\n"}},
        CommandCase{"bit rate above the limit",
                    CAM_PROPERTY_BITRATE,
                    20000000,
                    C::AnIsp({8, 0xFF, 0xD9, 0x40}),
                    {"BITRATE: 17000000 bps\r\n"}},
        CommandCase{"bit rate below zero",
                    CAM_PROPERTY_BITRATE,
                    -2048,
                    C::AnIsp({8, 0xFF, 0xFE, 0xFF}),
                    {"BITRATE: -2048 bps\r\n"}},
        CommandCase{"bit rate towards zero",
                    CAM_PROPERTY_BITRATE,
                    -1023,
                    C::AnIsp({8, 0xFF, 0, 0}),
                    {"BITRATE: -1023 bps\r\n"}},
        CommandCase{"frame rate",
                    CAM_PROPERTY_FRAMERATE,
                    0x1218,
                    C::AnIsp({2, 0x18, 0x12}),
                    {"FRAME RATE: 4632 fps\r\n"}},
        CommandCase{"key frame", CAM_PROPERTY_NEWGOP, 3, C::AnIsp({4}), {"Force I: 3 \r\n"}},
        CommandCase{"zoom",
                    CAM_PROPERTY_ZOOM,
                    5,
                    Write(0x21, 1, 0x0B00, 0x0100, {5, 0}, 5000),
                    {"ZOOM: 5\r\n"}},
        CommandCase{"60 Hz", CAM_PROPERTY_AUTO_HZ, 1, C::APu(5, {2}), {"cam frequency is 60Hz"}},
        CommandCase{"50 Hz", CAM_PROPERTY_AUTO_HZ, 2, C::APu(5, {1}), {"cam frequency is 50Hz"}},
        CommandCase{"still", CAM_PROPERTY_TRIGGER_JPEG, 9, C::AMmp({3}), {"TRIGGER_JPEG:\r\n"}},
        CommandCase{"NV12", CAM_PROPERTY_NV12_MODE_CONTROL, 0x1FF, C::AMmp({4, 0xFF}), {}},
        CommandCase{"brightness", CAM_PROPERTY_BRIGHTNESS, 0x1234, C::APu(2, {0x34, 0x12}), {}},
        CommandCase{"contrast", CAM_PROPERTY_CONTRAST, 7, C::APu(3, {7, 0}), {}},
        CommandCase{"saturation", CAM_PROPERTY_SATURATION, 8, C::APu(7, {8, 0}), {}},
        CommandCase{"sharpness", CAM_PROPERTY_SHARPNESS, 9, C::APu(8, {9, 0}), {}},
        CommandCase{"hue", CAM_PROPERTY_HUE, -2, C::APu(6, {0xFE, 0xFF}), {}},
        CommandCase{"gamma", CAM_PROPERTY_GAMMA, 100, C::APu(9, {100, 0}), {}},
        CommandCase{"backlight", CAM_PROPERTY_BACKLIGHT_CONTROL, 1, C::APu(1, {1, 0}), {}},
        CommandCase{
            "white balance", CAM_PROPERTY_AWB_TEMPERATURE, 5000, C::APu(10, {0x88, 0x13}), {}},
        CommandCase{"white balance auto", CAM_PROPERTY_MANUAL_AWB_CONTROL, 1, C::APu(11, {1}), {}},
        CommandCase{
            "image effect", CAM_PROPERTY_IMAGE_EFFECT, 0x102, C::AnIsp({0xFF, 0x0B, 2}), {}},
        CommandCase{"3A, high byte first",
                    CAM_PROPERTY_3A_CONTROL,
                    0x51234,
                    C::AnIsp({0xFF, 0x0C, 0x12, 0x34}),
                    {}},
        CommandCase{"WDR", CAM_PROPERTY_WDR_CONTROL, 0x103, C::AnIsp({0x0E, 3}), {}},
        CommandCase{
            "colour effect", CAM_PROPERTY_COLOR_EFFECT, 0x104, C::AnIsp({0xFF, 0x0D, 4}), {}},
        CommandCase{"crop",
                    CAM_PROPERTY_CROP_VGA,
                    Pair(0x0102, 0x0304),
                    C::AMmp({1, 6, 9, 0x02, 0x01, 0x04, 0x03, 0x00, 0x05, 0xC0, 0x03}),
                    {"CAM_PROPERTY_CROP_VGA, x=258, y=772, w=1280, h=960\r\n"}},
        CommandCase{"crop reset",
                    CAM_PROPERTY_CROP_VGA,
                    0,
                    C::AMmp({1, 6, 10, 1, 0, 1, 0, 0x00, 0x05, 0xC0, 0x03}),
                    {"CAM_PROPERTY_CROP_VGA, x=0, y=0, w=1280, h=960\r\n"}},
        CommandCase{"gray crop",
                    CAM_PROPERTY_CROP_GRAY,
                    Pair(3, 0x0405),
                    C::AMmp({0x13, 9, 3, 0, 5, 4, 0x00, 0x05, 0xC0, 0x03}),
                    {"CAM_PROPERTY_CROP_GRAY, x=3, y=1029, w=1280, h=960\r\n"}},
        CommandCase{"gray crop reset",
                    CAM_PROPERTY_CROP_GRAY,
                    0,
                    C::AMmp({0x13, 10, 1, 0, 1, 0, 0x00, 0x05, 0xC0, 0x03}),
                    {"CAM_PROPERTY_CROP_GRAY, x=0, y=0, w=1280, h=960\r\n"}},
        CommandCase{"face tracking on", CAM_PROPERTY_FACE_TRACKING, 0x100, C::AMmp({1, 6, 5}), {}},
        CommandCase{"face tracking off", CAM_PROPERTY_FACE_TRACKING, 0, C::AMmp({1, 6, 6}), {}},
        CommandCase{"preview", CAM_PROPERTY_PREVIEW_MODE, 0x105, C::AMmp({0x20, 5}), {}},
        CommandCase{"local 640x360",
                    CAM_PROPERTY_LOCAL_RESOLUTION,
                    Pair(640, 360),
                    C::AnAux({0x28, 5}),
                    {"Local view Resolution Change: 640x360 (enum: 5)"}},
        CommandCase{"local 800x450",
                    CAM_PROPERTY_LOCAL_RESOLUTION,
                    Pair(800, 450),
                    C::AnAux({0x28, 11}),
                    {"Local view Resolution Change: 800x450 (enum: 11)"}},
        CommandCase{"local 640x480",
                    CAM_PROPERTY_LOCAL_RESOLUTION,
                    Pair(640, 480),
                    C::AnAux({0x28, 0}),
                    {"Local view Resolution Change: 640x480 (enum: 0)"}},
        CommandCase{"local 800x360",
                    CAM_PROPERTY_LOCAL_RESOLUTION,
                    Pair(800, 360),
                    C::AnAux({0x28, 0}),
                    {"Local view Resolution Change: 800x360 (enum: 0)"}},
        CommandCase{"local 640x450",
                    CAM_PROPERTY_LOCAL_RESOLUTION,
                    Pair(640, 450),
                    C::AnAux({0x28, 0}),
                    {"Local view Resolution Change: 640x450 (enum: 0)"}},
        CommandCase{"NV12 864x486",
                    CAM_PROPERTY_CHANGE_NV12_RESOLUTION,
                    0x102,
                    C::AMmp({0x2D, 2}),
                    {" Set NV12 Resolution 864x486"},
                    1},
        CommandCase{"NV12 640x480",
                    CAM_PROPERTY_CHANGE_NV12_RESOLUTION,
                    0,
                    C::AMmp({0x2D, 0}),
                    {" Set NV12 Resolution 640x480"},
                    1}));

// --- pan and tilt --------------------------------------------------------------------------------

TEST_F(PropertySetting, PanAndTiltAreDegreesAndTravelTogether) {
    Ready();
    EXPECT_TRUE(Set(CAM_PROPERTY_PAN, -2));
    EXPECT_EQ(
        Sent(),
        (Sequence{Read(0xA1, 0x81, 0x0D00, 0x0100, 8, 5000),
                  Write(0x21, 1, 0x0D00, 0x0100, {0xE0, 0xE3, 0xFF, 0xFF, 0, 0, 0, 0}, 5000)}));
    EXPECT_LOG(4, "PAN: -2\r\n");
    Forget();
    EXPECT_TRUE(Set(CAM_PROPERTY_TILT, 3));
    EXPECT_EQ(Sent().at(1),
              Write(0x21, 1, 0x0D00, 0x0100, {0xE0, 0xE3, 0xFF, 0xFF, 0x30, 0x2A, 0, 0}, 5000));
    EXPECT_LOG(4, "TILT: 3\r\n");
    EXPECT_TRUE(Get(CAM_PROPERTY_PAN));
    EXPECT_EQ(last_.value, -2);
    EXPECT_TRUE(Get(CAM_PROPERTY_TILT));
    EXPECT_EQ(last_.value, 3);
    Set(CAM_PROPERTY_PAN, 0x7FFFFFFF);  // wraps in 32 bits
    EXPECT_EQ(Sent().back().data[0], 0xF0);
}

// --- option bits ---------------------------------------------------------------------------------

TEST_F(PropertySetting, OptionBitsAreReadModifiedAndWritten) {
    Ready();
    for (const auto& [property, bits] : {std::pair<int, unsigned>{CAM_PROPERTY_MIRROR, 0x01},
                                         {CAM_PROPERTY_FLIP, 0x02},
                                         {CAM_PROPERTY_FD_CONTROL, 0x08},
                                         {CAM_PROPERTY_LOCAL_MIRROR, 0x10},
                                         {CAM_PROPERTY_MIRROR_GRAY, 0x20}}) {
        for (const bool on : {true, false}) {
            const unsigned before = on ? 0x89ABCD00 : 0x89ABCD3F;
            const unsigned after = on ? before | bits : before & ~bits;
            object_->SetVideoOption(before);
            Forget();
            EXPECT_TRUE(Set(property, on ? 0x100 : 0));
            Sequence expected = ReadOptions();
            expected.push_back(Mmp({0x02, 0x02, static_cast<uint8_t>(after), 0xCD, 0xAB, 0x89}));
            EXPECT_EQ(Sent(), expected) << property;
            char line[64];
            snprintf(line, sizeof line, "GetVideoOption = 0x%X", before);
            EXPECT_LOG(4, line);
            snprintf(line, sizeof line, "SetVideoOption = 0x%X", after);
            EXPECT_LOG(4, line);
        }
    }
}

TEST_F(PropertySetting, WithTwoH264StreamsTheLocalMirrorIsAlsoTheGrays) {
    Ready();
    Set(CAM_PROPERTY_SIGNAL_TYPE, CAM_SIGNAL_H264_H264_GRAY);
    object_->SetVideoOption(0);
    Forget();
    EXPECT_TRUE(Set(CAM_PROPERTY_LOCAL_MIRROR, 1));
    EXPECT_EQ(Sent().at(2), Mmp({0x02, 0x02, 0x30}));
}

TEST_F(PropertySetting, OptionsThatCannotBeReadFail) {
    Ready();
    FailControl({{"type", 0xA1}, {"value", 0x0F00}}, {{"return", "LIBUSB_ERROR_PIPE"}});
    EXPECT_FALSE(Set(CAM_PROPERTY_MIRROR, 1));
    EXPECT_LOG(1, "GetVideoOption of SetProperty was Failed !!! \r\n");
    EXPECT_LOG(4, "GetVideoOption Failed !! return (-2147483645)");
    EXPECT_LOG(1, Failure(CAM_PROPERTY_MIRROR));
    virtcam::bus::clear_faults();
    virtcam::bus::add_fault({{"on", {{"control", {{"value", 0x0E00}, {"data", "0202"}}}}},
                             {"do", {{"return", "LIBUSB_ERROR_PIPE"}}}});
    EXPECT_TRUE(Set(CAM_PROPERTY_MIRROR, 1));  // the write's result is not looked at
}

// --- what counts as success ----------------------------------------------------------------------

TEST_F(PropertySetting, OnlyATransferOfNothingFailsACommand) {
    Ready();
    for (const int property :
         {CAM_PROPERTY_I2C_WRITE_AUDIO, CAM_PROPERTY_CROP_VGA, CAM_PROPERTY_TRIGGER_JPEG,
          CAM_PROPERTY_NV12_MODE_CONTROL, CAM_PROPERTY_IMAGE_EFFECT, CAM_PROPERTY_3A_CONTROL,
          CAM_PROPERTY_WDR_CONTROL, CAM_PROPERTY_COLOR_EFFECT, CAM_PROPERTY_CROP_GRAY,
          CAM_PROPERTY_FACE_TRACKING, CAM_PROPERTY_PREVIEW_MODE,
          CAM_PROPERTY_CHANGE_NV12_RESOLUTION}) {
        virtcam::bus::clear_faults();
        FailControl({{"type", 0x21}}, {{"return", "LIBUSB_ERROR_PIPE"}});
        EXPECT_TRUE(Set(property, 1)) << property;
        virtcam::bus::clear_faults();
        FailControl({{"type", 0x21}}, {{"return", 0}});
        EXPECT_FALSE(Set(property, 1)) << property;
        EXPECT_LOG(1, Failure(property));
    }
}

TEST_F(PropertySetting, ATruthValueFailsWithItsTransfer) {
    Ready();
    FailControl({{"type", 0x21}}, {{"return", "LIBUSB_ERROR_PIPE"}});
    for (const int property :
         {CAM_PROPERTY_BITRATE, CAM_PROPERTY_FRAMERATE, CAM_PROPERTY_NEWGOP, CAM_PROPERTY_ZOOM,
          CAM_PROPERTY_PAN, CAM_PROPERTY_TILT, CAM_PROPERTY_AUTO_HZ, CAM_PROPERTY_BRIGHTNESS,
          CAM_PROPERTY_MANUAL_AWB_CONTROL}) {
        EXPECT_FALSE(Set(property, 1)) << property;
    }
    virtcam::bus::clear_faults();
    FailControl({{"type", 0x21}}, {{"return", 0}});
    for (const int property : {CAM_PROPERTY_BITRATE, CAM_PROPERTY_FRAMERATE, CAM_PROPERTY_NEWGOP}) {
        EXPECT_FALSE(Set(property, 1)) << property;
    }
    for (const int property :
         {CAM_PROPERTY_ZOOM, CAM_PROPERTY_PAN, CAM_PROPERTY_TILT, CAM_PROPERTY_AUTO_HZ,
          CAM_PROPERTY_BRIGHTNESS, CAM_PROPERTY_MANUAL_AWB_CONTROL}) {
        EXPECT_TRUE(Set(property, 1)) << property;
    }
    EXPECT_TRUE(Set(CAM_PROPERTY_LOCAL_RESOLUTION, 1));
}

// --- remembered state ----------------------------------------------------------------------------

TEST_F(PropertySetting, RatesAreKeptEvenWhenTheCheckFails) {
    Create();
    EXPECT_FALSE(Set(CAM_PROPERTY_BITRATE, 17000001));
    EXPECT_EQ(last_.value, 17000001);  // not written back
    Get(CAM_PROPERTY_BITRATE);
    EXPECT_EQ(last_.value, 17000000);
    EXPECT_FALSE(Set(CAM_PROPERTY_FRAMERATE, 11));
    Get(CAM_PROPERTY_FRAMERATE);
    EXPECT_EQ(last_.value, 11);
    EXPECT_LOG_COUNT(1, kNoCapturer, 2);
}

TEST_F(PropertySetting, SizeIsKeptForTheNextStart) {
    Ready();
    EXPECT_FALSE(SetPair(CAM_PROPERTY_DIMENSION, 640, 480));
    EXPECT_LOG(1, "(640 x 480) is ignored!, Same setting!");
    EXPECT_NO_LOG(1, kNoCapturer);
    EXPECT_FALSE(SetPair(CAM_PROPERTY_DIMENSION, 640, 481));
    EXPECT_LOG_COUNT(1, kNoCapturer, 1);
    EXPECT_FALSE(SetPair(CAM_PROPERTY_DIMENSION, 641, 481));
    EXPECT_LOG(4, "RESOLUTION: w=641, h=481\r\n");
    EXPECT_LOG_COUNT(1, Failure(CAM_PROPERTY_DIMENSION), 3);
    Get(CAM_PROPERTY_DIMENSION);
    EXPECT_EQ(last_.res[0], 641);
    EXPECT_EQ(last_.res[1], 481);
    EXPECT_TRUE(Sent().empty());
}

TEST_F(PropertySetting, CropOriginAndFaceTrackingAreKept) {
    Create();
    EXPECT_FALSE(SetPair(CAM_PROPERTY_CROP_VGA, 5, 6));
    EXPECT_LOG(4, "CAM_PROPERTY_CROP_VGA, x=5, y=6, w=1280, h=960\r\n");
    EXPECT_FALSE(SetPair(CAM_PROPERTY_CROP_VGA, 0, 0));
    EXPECT_EQ(last_.res[0], 1);
    EXPECT_EQ(last_.res[1], 1);
    EXPECT_LOG(4, "CAM_PROPERTY_CROP_VGA, x=0, y=0, w=1280, h=960\r\n");
    EXPECT_FALSE(SetPair(CAM_PROPERTY_CROP_GRAY, 0, 0));
    EXPECT_EQ(last_.res[0], 1);
    EXPECT_EQ(log().count_containing("CAM_PROPERTY_CROP_GRAY"), 0u);
    EXPECT_FALSE(Set(CAM_PROPERTY_FACE_TRACKING, 0x1FE));
    Get(CAM_PROPERTY_FACE_TRACKING);
    EXPECT_EQ(last_.value, 0xFE);
}

TEST_F(PropertySetting, TheCropModeOfOnePropertyIsThatOfTheNext) {
    Ready();
    Set(CAM_PROPERTY_FACE_TRACKING, 1);
    SetPair(CAM_PROPERTY_CROP_GRAY, 2, 3);
    SetPair(CAM_PROPERTY_CROP_VGA, 2, 0);  // only both zero is a reset
    EXPECT_EQ(Sent().back().data[2], 9);
    EXPECT_EQ(last_.res[1], 0);
}

TEST_F(PropertySetting, Volume) {
    Ready();
    ASSERT_TRUE(camera_->StartRecording());  // the range is known from here on
    Forget();
    EXPECT_TRUE(Set(CAM_PROPERTY_MICVOLUME, 100));
    EXPECT_LOG(4, "MICVOLUME: 100\r\n");
    EXPECT_EQ(Sent(), (Sequence{Write(0x21, 1, 0x0200, 0x0503, {0, 0}, 5000)}));
    Get(CAM_PROPERTY_MICVOLUME);
    EXPECT_EQ(last_.value, 100);
    Forget();
    for (const int value : {101, -1}) {
        EXPECT_TRUE(Set(CAM_PROPERTY_MICVOLUME, value));
        EXPECT_LOG(4, "Exceed Mic Volume Range.[" + std::to_string(value) + "]");
        EXPECT_LOG(4, kTrue);
    }
    EXPECT_TRUE(Sent().empty());
    Get(CAM_PROPERTY_MICVOLUME);
    EXPECT_EQ(last_.value, 100);
    EXPECT_TRUE(Set(CAM_PROPERTY_MICVOLUME, 0));
    EXPECT_EQ(Sent(), (Sequence{Write(0x21, 1, 0x0200, 0x0503, {0x00, 0xF0}, 5000)}));
    camera_->StopRecording();
}

TEST_F(PropertySetting, FlickerSelectorsOutsideTheTwoAreAccepted) {
    Ready();
    for (const int value : {0, 3, -1}) {
        EXPECT_TRUE(Set(CAM_PROPERTY_AUTO_HZ, value));
    }
    EXPECT_TRUE(Sent().empty());
    EXPECT_LOG_COUNT(4, kTrue, 3);
}

TEST_F(PropertySetting, InVideoModesATriggerSendsNothing) {
    SetPlatform(kTenchP);
    Ready();
    EXPECT_TRUE(Set(CAM_PROPERTY_TRIGGER_JPEG, 1));
    EXPECT_TRUE(Sent().empty());
    EXPECT_LOG(4, kTrue);
}

// --- audio registers -----------------------------------------------------------------------------

TEST_F(PropertySetting, AudioRegisterReadAlwaysAnswersFalse) {
    Ready();
    FailControl({{"type", 0xA1}, {"value", 0x0500}}, {{"reply", "0102F30405060708"}});
    EXPECT_FALSE(SetPair(CAM_PROPERTY_I2C_READ_AUDIO, 0x1234, 0x7777));
    EXPECT_EQ(last_.res[0], 0x1234);
    EXPECT_EQ(last_.res[1], 0xF3);
    EXPECT_EQ(Sent(), (Sequence{Aux({0xFF, 0x00, 0x14}), Aux({0xFF, 0x02, 0x12, 0x34}),
                                Read(0xA1, 0x81, 0x0500, 0x0600, 8, 5000)}));
    EXPECT_NO_LOG(1, Failure(CAM_PROPERTY_I2C_READ_AUDIO));
}

TEST_F(PropertySetting, AudioRegisterReadGoesOnWithoutACapturer) {
    Create();
    EXPECT_FALSE(SetPair(CAM_PROPERTY_I2C_READ_AUDIO, 1, 0x7777));
    EXPECT_EQ(last_.res[1], 0);
    EXPECT_LOG_COUNT(1, kNoCapturer, 3);
    EXPECT_NO_LOG(1, Failure(CAM_PROPERTY_I2C_READ_AUDIO));
    EXPECT_FALSE(SetPair(CAM_PROPERTY_I2C_WRITE_AUDIO, 1, 2));
    EXPECT_LOG_COUNT(1, kNoCapturer, 5);
    EXPECT_LOG(1, Failure(CAM_PROPERTY_I2C_WRITE_AUDIO));
}

TEST_F(PropertySetting, AudioRegisterWrite) {
    Ready();
    EXPECT_TRUE(SetPair(CAM_PROPERTY_I2C_WRITE_AUDIO, 0x1234, 0x5678));
    EXPECT_EQ(Sent(), (Sequence{Aux({0xFF, 0x00, 0x14}), Aux({0xFF, 0x01, 0x12, 0x34, 0x78})}));
    virtcam::bus::add_fault(
        {{"on", {{"control", {{"value", 0x0400}}}}}, {"nth", 2}, {"do", {{"return", 0}}}});
    EXPECT_FALSE(SetPair(CAM_PROPERTY_I2C_WRITE_AUDIO, 0x1234, 0x5678));
}

// --- restart of recording ------------------------------------------------------------------------

class Restart : public PropertySetting {
  protected:
    /// A restart has happened since Forget: one stop and one start, a pause of 30 ms between.
    void ExpectRestart(size_t count) {
        EXPECT_LOG_COUNT(1, "CAitOrixCamera::StopRecording\r\n", count);
        EXPECT_EQ(log().count_containing("CAitOrixCamera::StartRecording open device"), count);
        EXPECT_EQ(camera_->GetState(), CAM_STATE_PLAYING);
    }
};

TEST_F(Restart, ByASize) {
    Playing();
    clock().reset();
    EXPECT_TRUE(SetPair(CAM_PROPERTY_DIMENSION, 320, 240));
    ExpectRestart(1);
    // One of the pauses is the event thread's start; both last 30 ms.
    EXPECT_EQ(clock().count(30ms), 2u);
    EXPECT_LOG(4, kTrue);
    EXPECT_LOG(4, "UVC_EnableVideoStream start video FormatID:4 FrameID:3\r\n");
    camera_->StopRecording();
}

TEST_F(Restart, BySignalType) {
    Playing();
    EXPECT_TRUE(Set(CAM_PROPERTY_SIGNAL_TYPE, CAM_SIGNAL_H264_YUYV));
    ExpectRestart(1);
    EXPECT_NO_LOG(4, kTrue);
    EXPECT_LOG(4, "Set SIGNAL TYPE: 0\r\n");
    Forget();
    EXPECT_TRUE(Set(CAM_PROPERTY_SIGNAL_TYPE, CAM_SIGNAL_H264_YUYV));
    EXPECT_LOG(4, "same signal type 0, 0\n");
    ExpectRestart(0);
    camera_->StopRecording();
}

TEST_F(Restart, ASignalTypeWithTriggeredStillsIsTheOneWithSnapshots) {
    Playing();  // with type 6
    EXPECT_TRUE(Set(CAM_PROPERTY_SIGNAL_TYPE, CAM_SIGNAL_H264_GRAY_JPEG));
    EXPECT_EQ(last_.value, 6);
    EXPECT_LOG(4, "Set SIGNAL TYPE: 5\r\n");
    EXPECT_LOG(4, "same signal type 6, 6\n");
    EXPECT_NO_LOG(4, kTrue);
    ExpectRestart(0);
    camera_->StopRecording();
}

TEST_F(Restart, UnknownSignalTypesAreAcceptedWithoutEffect) {
    Playing();
    for (const int type : {9, 13, -1}) {
        EXPECT_TRUE(Set(CAM_PROPERTY_SIGNAL_TYPE, type));
    }
    EXPECT_LOG_COUNT(4, "Not support this format.\r\n", 3);
    EXPECT_NO_LOG(4, kTrue);
    ExpectRestart(0);
    Get(CAM_PROPERTY_SIGNAL_TYPE);
    EXPECT_EQ(last_.value, 6);
    camera_->StopRecording();
}

TEST_F(Restart, SignalTypeSetWhileStoppedIsKeptAndRefused) {
    Ready();
    EXPECT_FALSE(Set(CAM_PROPERTY_SIGNAL_TYPE, 8));
    EXPECT_LOG_COUNT(1, kNoCapturer, 1);
    EXPECT_NO_LOG(1, Failure(CAM_PROPERTY_SIGNAL_TYPE));
    Get(CAM_PROPERTY_SIGNAL_TYPE);
    EXPECT_EQ(last_.value, 8);
}

TEST_F(Restart, ByVideoMode) {
    SetPlatform(kTenchP);
    Playing();
    EXPECT_TRUE(Set(CAM_PROPERTY_VIDEO_MODE, 2));
    ExpectRestart(1);
    EXPECT_LOG(4, "VIDEOMODE: 2\r\n");
    EXPECT_NO_LOG(4, kTrue);
    Forget();
    EXPECT_TRUE(Set(CAM_PROPERTY_VIDEO_MODE, 2));  // the same one restarts too
    ExpectRestart(1);
    Forget();
    for (const int mode : {3, -1}) {
        EXPECT_FALSE(Set(CAM_PROPERTY_VIDEO_MODE, mode));
    }
    EXPECT_LOG_COUNT(4, "Not support this format.\r\n", 2);
    EXPECT_LOG_COUNT(1, Failure(CAM_PROPERTY_VIDEO_MODE), 2);
    ExpectRestart(0);
    camera_->StopRecording();
    EXPECT_FALSE(Set(CAM_PROPERTY_VIDEO_MODE, 0));
    EXPECT_LOG_COUNT(1, Failure(CAM_PROPERTY_VIDEO_MODE), 2);
}

TEST_F(Restart, BySampleRate) {
    Playing();
    EXPECT_TRUE(Set(CAM_PROPERTY_SAMPLERATE, 24000));
    ExpectRestart(1);
    EXPECT_LOG(4, "Set SAMPLERATE to (24000).");
    EXPECT_LOG(4, "CLibUSB_UacCtrl::UAC_EnableAudioStream  24000 Hz\r\n");
    EXPECT_LOG(4, kTrue);
    Forget();
    EXPECT_TRUE(Set(CAM_PROPERTY_SAMPLERATE, 24000));
    EXPECT_TRUE(Set(CAM_PROPERTY_SAMPLERATE, 44100));
    EXPECT_LOG(1, "Not supported SAMPLERATE.");
    EXPECT_LOG_COUNT(4, kTrue, 2);
    ExpectRestart(0);
    Get(CAM_PROPERTY_SAMPLERATE);
    EXPECT_EQ(last_.value, 24000);
    Forget();
    EXPECT_TRUE(Set(CAM_PROPERTY_SAMPLERATE, 16000));
    ExpectRestart(1);
    camera_->StopRecording();
}

TEST_F(Restart, SampleRateSetWhileStoppedIsKept) {
    Ready();
    EXPECT_TRUE(Set(CAM_PROPERTY_SAMPLERATE, 24000));
    EXPECT_EQ(log().count_containing("StartRecording"), 0u);
    Get(CAM_PROPERTY_SAMPLERATE);
    EXPECT_EQ(last_.value, 24000);
}

TEST_F(PropertySetting, DebugLevelFollowsItsRange) {
    Ready();
    EXPECT_FALSE(Set(CAM_PROPERTY_DEBUG_LEVEL, 6));
    EXPECT_LOG(1, Failure(CAM_PROPERTY_DEBUG_LEVEL));
    EXPECT_TRUE(Set(CAM_PROPERTY_DEBUG_LEVEL, 4));
    Get(CAM_PROPERTY_DEBUG_LEVEL);
    EXPECT_EQ(last_.value, 4);
}

}  // namespace
}  // namespace test
