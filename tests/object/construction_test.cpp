// Entry points, construction, platform table, debug level, destruction.
#include "aitdbg.h"
#include "tests/object/CameraTest.h"

namespace test {
namespace {

class Construction : public CameraTest {};

TEST_F(Construction, VersionNeedsNoCamera) {
    EXPECT_EQ(cam_version(), 169);
    EXPECT_EQ(Log(), (Lines{{1, "TARLO version 169\n"}}));
}

TEST_F(Construction, CreateSaysWhatItFinds) {
    Create();
    EXPECT_EQ(Log(), (Lines{{1, "Vespin Driver ver: 3.141229\r\n"},
                            {1, "AitLib:: cam_create() \r\n"},
                            {1, "CAitOrixCamera::CAitOrixCamera() construction.\r\n"},
                            {1, "TV platform is BREAM \r\n"},
                            {1, "Use sinal type property\r\n"},
                            {4, "Anti Flicker path /dtv/cm_frequency ...\r\n"},
                            {1, "exit CAitOrixCamera construction.\r\n"}}));
    EXPECT_EQ(clock().count(1s), 1u);
    EXPECT_EQ(camera_->GetVendorName(), "TELMARK");
    EXPECT_EQ(camera_->GetModelName(), "TARLO");
    EXPECT_EQ(camera_->GetCamDownloadedRootPath(), "");
    EXPECT_EQ(camera_->GetCamDataType(), "");
    EXPECT_EQ(g_pCamera, object_);
    EXPECT_NE(g_pData, nullptr);
    const auto* data = reinterpret_cast<const char*>(g_pData);
    const auto* object = reinterpret_cast<const char*>(object_);
    EXPECT_TRUE(data >= object && data < object + sizeof *object_);
    for (const auto& list : camera_->m_pObserverList) {
        EXPECT_TRUE(list.empty());
    }
}

TEST_F(Construction, DestroySaysWhatItDoes) {
    Create();
    WriteFile("/dtv/cm_cam_version", "1.45.203");
    log().reset();
    Destroy();
    EXPECT_EQ(Log(), (Lines{{1, "AitLib:: [Start] cam_destroy() \r\n"},
                            {4, "CAitOrixCamera::~CAitOrixCamera() destruction+.\r\n"},
                            {1, "CAitOrixCamera::~CAitOrixCamera() destruction-.\r\n"},
                            {1, "AitLib:: [End] cam_destroy() \r\n"}}));
    EXPECT_EQ(g_pCamera, nullptr);
    EXPECT_FALSE(std::filesystem::exists("/dtv/cm_cam_version"));
}

TEST_F(Construction, DestroyOfNothing) {
    cam_destroy(nullptr);
    EXPECT_EQ(Log(), (Lines{{1, "AitLib:: [Start] cam_destroy() \r\n"},
                            {1, "AitLib:: [End] cam_destroy() \r\n"}}));
}

TEST_F(Construction, CreateClosesALogFile) {
    ASSERT_NE(PrintDebuggingInit("/dtv/log"), nullptr);
    Create();
    EXPECT_EQ(PrintDebuggingInit(nullptr), nullptr);
}

TEST_F(Construction, DestroyClosesTheLogFile) {
    ASSERT_NE(PrintDebuggingInit("/dtv/log"), nullptr);
    cam_destroy(nullptr);
    EXPECT_EQ(PrintDebuggingInit(nullptr), nullptr);
}

TEST_F(Construction, TheNewestObjectCountsUntilOneGoes) {
    Create();
    ICameraSubject* second = cam_create();
    EXPECT_NE(second, camera_);
    EXPECT_EQ(g_pCamera, second);
    Destroy();
    EXPECT_EQ(g_pCamera, nullptr);
    cam_destroy(second);
}

TEST_F(Construction, DefaultsOfTheRemainingOperations) {
    Create();
    log().reset();
    EXPECT_EQ(camera_->GetState(), CAM_STATE_CONNECTING);
    EXPECT_EQ(camera_->Execute(0, nullptr), nullptr);
    EXPECT_TRUE(camera_->StartTest());
    EXPECT_TRUE(camera_->StopTest());
    EXPECT_TRUE(camera_->PrintStatus());
    EXPECT_EQ(Log(), (Lines{{4, "Get status=1\r\n"},
                            {4, "CAitOrixCamera::StartTest() Not support now.\r\n"},
                            {4, "CAitOrixCamera::StopTest() Not support now.\r\n"},
                            {4, "CAitOrixCamera::PrintStatus() Not support now.\r\n"}}));
    EXPECT_FALSE(camera_->OnSleep());
    EXPECT_FALSE(camera_->OnWakeUp());
    EXPECT_FALSE(camera_->CameraUpdate(1, nullptr));
    EXPECT_EQ(camera_->GetCamInstalledVersion(), 65535u);
    EXPECT_FALSE(camera_->MustBeSecured());
    EXPECT_FALSE(camera_->StopCamUpgrade());
    EXPECT_EQ(camera_->CompareCamVersion(1, 2), 0);
    log().reset();
    camera_->SetState(CAM_STATE_WAKEUP);
    EXPECT_TRUE(log().lines().empty());
    EXPECT_EQ(camera_->GetState(), CAM_STATE_WAKEUP);
    EXPECT_LOG(4, "Get status=5\r\n");
}

TEST_F(Construction, RememberedSettings) {
    Create();
    EXPECT_TRUE(Get(CAM_PROPERTY_BITRATE));
    EXPECT_EQ(last_.value, 2000000);
    EXPECT_TRUE(Get(CAM_PROPERTY_FRAMERATE));
    EXPECT_EQ(last_.value, 30);
    EXPECT_TRUE(Get(CAM_PROPERTY_DIMENSION));
    EXPECT_EQ(last_.res[0], 640);
    EXPECT_EQ(last_.res[1], 480);
    EXPECT_TRUE(Get(CAM_PROPERTY_MICVOLUME));
    EXPECT_EQ(last_.value, 30);
    EXPECT_TRUE(Get(CAM_PROPERTY_SAMPLERATE));
    EXPECT_EQ(last_.value, 16000);
    EXPECT_TRUE(Get(CAM_PROPERTY_SIGNAL_TYPE));
    EXPECT_EQ(last_.value, 6);
    EXPECT_TRUE(Get(CAM_PROPERTY_FACE_TRACKING));
    EXPECT_EQ(last_.value, 0);
    EXPECT_TRUE(Get(CAM_PROPERTY_DEBUG_LEVEL));
    EXPECT_EQ(last_.value, 5);
}

// --- platform ------------------------------------------------------------------------------------

struct PlatformCase {
    const char* info;
    unsigned level;
    const char* text;
    bool signalType;     // selector that the host must use
    bool answersSignal;  // GetCapability(SIGNAL_TYPE)
};

class Platforms : public CameraTest, public ::testing::WithParamInterface<PlatformCase> {};

TEST_P(Platforms, AreToldFromTheInfoFile) {
    SetPlatform(GetParam().info);
    Create();
    EXPECT_LOG_COUNT(GetParam().level, GetParam().text, 1);
    EXPECT_EQ(log().count_containing("TV platform is") + log().count_containing("not support TV"),
              1u);
    EXPECT_EQ(log().has(1, "Use sinal type property\r\n"), GetParam().signalType);
    EXPECT_EQ(log().has(1, "Use video mode property\r\n"), !GetParam().signalType);
    EXPECT_EQ(camera_->GetCapability(CAM_CAPABILITY_SIGNAL_TYPE), GetParam().answersSignal);
}

INSTANTIATE_TEST_SUITE_P(
    Info, Platforms,
    ::testing::Values(PlatformCase{"T-XXX12", 1, "TV platform is BREAM \r\n", true, true},
                      PlatformCase{"T-XX112", 1, "TV platform is BREAM \r\n", true, true},
                      PlatformCase{"T-GFS12", 1, "TV platform is BREAM \r\n", true, true},
                      PlatformCase{"T-XXX10", 1, "TV platform is Ruff Plus \r\n", false, false},
                      PlatformCase{"T-XXX14", 1, "TV platform is PERCH \r\n", true, true},
                      PlatformCase{"T-XX14X", 1, "TV platform is ROACH \r\n", true, true},
                      PlatformCase{"T-XX144", 1, "TV platform is ROACH \r\n", true, true},
                      PlatformCase{"T-XX15X", 4, "We can not support TV \r\n", false, false},
                      PlatformCase{"T-XXX11", 4, "We can not support TV \r\n", false, false},
                      PlatformCase{"T-XXP13", 1, "TV platform is TENCH_P \r\n", false, false},
                      PlatformCase{"T-GFSXX", 1, "TV platform is SHADS \r\n", true, true},
                      PlatformCase{"T-GF14X", 1, "TV platform is ROACH \r\n", true, true},
                      PlatformCase{"T-GFS1X", 1, "TV platform is SHADS \r\n", true, true},
                      PlatformCase{"T-GFPXX", 1, "TV platform is SHADP \r\n", true, true},
                      PlatformCase{"T-GFXXX", 4, "We can not support TV \r\n", false, false},
                      PlatformCase{"T-GF1XX", 4, "We can not support TV \r\n", false, false},
                      PlatformCase{"T-GXPXX", 1, "TV platform is TENCH_P \r\n", false, false},
                      PlatformCase{"T-GXSXX", 1, "TV platform is TENCH_S \r\n", false, false},
                      PlatformCase{"T-EXPXX", 4, "TV platform is DaceP \r\n", false, false},
                      PlatformCase{"T-EXSXX", 1, "TV platform is TENCH_S \r\n", false, false},
                      PlatformCase{"T-EXXXX", 4, "We can not support TV \r\n", false, false},
                      PlatformCase{"T-XXPXX", 1, "TV platform is TENCH_P \r\n", false, false},
                      PlatformCase{"T-XXSXX", 1, "TV platform is TENCH_S \r\n", false, false},
                      PlatformCase{"", 4, "We can not support TV \r\n", false, false},
                      PlatformCase{"T-", 4, "We can not support TV \r\n", false, false}));

TEST_F(Construction, WithoutInfoFile) {
    std::filesystem::remove("/mtd_exe/.info");
    Create();
    EXPECT_LOG_COUNT(1, "fail to open info file\n", 1);
    EXPECT_LOG(4, "We can not support TV \r\n");
    EXPECT_LOG(1, "Use video mode property\r\n");
    EXPECT_STREQ(info_file_path_name, "/mtd_exe/.info");
}

TEST_F(Construction, OnlyTheStartOfTheInfoFileIsRead) {
    WriteFile("/mtd_exe/.info", std::string(100000, 'S'));
    Create();
    EXPECT_LOG(1, "TV platform is TENCH_S \r\n");
}

// --- mains frequency -----------------------------------------------------------------------------

struct FrequencyCase {
    const char* line;
    int sent;  // power line frequency control at the start of recording; 0: none
};

class Frequency : public CameraTest, public ::testing::WithParamInterface<FrequencyCase> {};

TEST_P(Frequency, IsReadFromItsFileAndSentOnce) {
    if (GetParam().line == nullptr) {
        std::filesystem::remove("/dtv/cm_frequency");
    } else {
        WriteFile("/dtv/cm_frequency", GetParam().line);
    }
    Create();
    EXPECT_EQ(log().has(1, "Can't open file. /dtv/cm_frequency!!!\r\n"),
              GetParam().line == nullptr);
    ASSERT_TRUE(Init());
    ExpectUnusualRelease();
    for (int round = 0; round < 2; ++round) {
        Forget();
        ASSERT_TRUE(camera_->StartRecording());
        Sequence flicker;
        for (const Request& request : Sent()) {
            if (request.index == 0x0300) {
                flicker.push_back(request);
            }
        }
        Sequence expected;
        if (GetParam().sent != 0 && round == 0) {
            expected.push_back(
                Write(0x21, 0x01, 0x0500, 0x0300, {static_cast<uint8_t>(GetParam().sent)}, 5000));
        }
        EXPECT_EQ(flicker, expected);
        EXPECT_EQ(log().has(4, "Succeed in setting flicker !!!\r\n"), !expected.empty());
        camera_->StopRecording();
    }
}

INSTANTIATE_TEST_SUITE_P(Lines, Frequency,
                         ::testing::Values(FrequencyCase{nullptr, 0}, FrequencyCase{"", 0},
                                           FrequencyCase{"1\n", 2}, FrequencyCase{"2\n", 1},
                                           FrequencyCase{"0\n", 2}, FrequencyCase{"3\n", 2},
                                           FrequencyCase{"abc\n", 2}, FrequencyCase{"\n", 2},
                                           FrequencyCase{"      21", 1}));

// --- debug level ---------------------------------------------------------------------------------

class DebugLevel : public CameraTest {
  protected:
    DebugLevel() { std::filesystem::remove("/mtd_rwarea/camera_l5"); }
    static std::vector<std::string> Markers() {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator("/mtd_rwarea")) {
            names.push_back(entry.path().filename());
        }
        std::sort(names.begin(), names.end());
        return names;
    }
};

TEST_F(DebugLevel, TheHighestMarkerWins) {
    const std::pair<std::vector<int>, unsigned> cases[] = {
        {{}, 1},  {{1}, 1}, {{2}, 2},    {{3}, 3},
        {{4}, 4}, {{5}, 5}, {{2, 4}, 4}, {{1, 2, 3, 4, 5}, 5}};
    for (const auto& [levels, expected] : cases) {
        for (const std::string& name : Markers()) {
            std::filesystem::remove("/mtd_rwarea/" + name);
        }
        for (const int level : levels) {
            WriteFile("/mtd_rwarea/camera_l" + std::to_string(level), "");
        }
        CAitOrixCamera camera;
        EXPECT_EQ(g_embedded_cam_dbg_level, expected);
    }
}

TEST_F(DebugLevel, IsSetAndKept) {
    CAitOrixCamera camera;
    for (int level = 1; level <= 5; ++level) {
        EXPECT_TRUE(camera.SetDebugLevel(level));
        EXPECT_EQ(g_embedded_cam_dbg_level, static_cast<unsigned>(level));
        EXPECT_EQ(Markers(), (std::vector<std::string>{"camera_l" + std::to_string(level)}));
    }
}

TEST_F(DebugLevel, OutsideTheRangeIsRefused) {
    CAitOrixCamera camera;
    ASSERT_TRUE(camera.SetDebugLevel(3));
    for (const int level : {0, 6, -1}) {
        log().reset();
        g_embedded_cam_dbg_level = 3;
        EXPECT_FALSE(camera.SetDebugLevel(level));
        EXPECT_LOG(1, "input 1~5(" + std::to_string(level) + ") level");
        EXPECT_EQ(g_embedded_cam_dbg_level, 3u);
        EXPECT_EQ(Markers(), (std::vector<std::string>{"camera_l3"}));
    }
}

}  // namespace
}  // namespace test
