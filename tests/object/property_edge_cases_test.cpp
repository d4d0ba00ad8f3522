// Single cases of properties and queries that hosts and cameras are known to depend on, one a test.
#include <atomic>
#include <thread>

#include "tests/object/CameraTest.h"
#include "tests/object/ObjectFields.h"

namespace test {
namespace {

const char kNoCapturer[] = "video_capturer is NULL or m_State is CAM_STATE_DISCONNECTED !!! \r\n";

class PropertyEdge : public CameraTest {
  protected:
    int Answer(int property) {
        EXPECT_TRUE(Get(property));
        return last_.value;
    }
};

TEST_F(PropertyEdge, ABitrateAboveTheLargestIsCut) {
    Ready();
    EXPECT_TRUE(Set(CAM_PROPERTY_BITRATE, 20000000));
    EXPECT_EQ(Answer(CAM_PROPERTY_BITRATE), 17000000);
    EXPECT_EQ(Sent(), (Sequence{Isp({0x08, 0xFF, 0xD9, 0x40})}));  // 16601
}

TEST_F(PropertyEdge, TheLargestBitrateIsItself) {
    Ready();
    EXPECT_TRUE(Set(CAM_PROPERTY_BITRATE, 17000000));
    EXPECT_EQ(Answer(CAM_PROPERTY_BITRATE), 17000000);
}

TEST_F(PropertyEdge, AVolumeOfMinusOneIsOutOfRangeAndTrue) {
    Ready();
    EXPECT_TRUE(Set(CAM_PROPERTY_MICVOLUME, -1));
    EXPECT_LOG_COUNT(4, "Exceed Mic Volume Range.[-1]", 1);
    EXPECT_EQ(Answer(CAM_PROPERTY_MICVOLUME), 30);
}

TEST_F(PropertyEdge, AVolumeOfAHundredIsAccepted) {
    Ready();
    EXPECT_TRUE(Set(CAM_PROPERTY_MICVOLUME, 100));
    EXPECT_EQ(log().count_containing("Exceed Mic Volume Range"), 0u);
    EXPECT_EQ(Answer(CAM_PROPERTY_MICVOLUME), 100);
}

TEST_F(PropertyEdge, AVolumeWithoutAnAdapterFails) {
    Create();
    log().reset();
    EXPECT_FALSE(Set(CAM_PROPERTY_MICVOLUME, 50));
    EXPECT_LOG_COUNT(1, kNoCapturer, 1);
    EXPECT_LOG(1, "Fail set property 0x4\r\n");
    EXPECT_EQ(Answer(CAM_PROPERTY_MICVOLUME), 30);
}

TEST_F(PropertyEdge, AVolumeThatTheAdapterRefusesIsNotKept) {
    struct Deaf : CAudioCapture {
        using CAudioCapture::CAudioCapture;
        bool SetVolume(int) override { return false; }
    };
    virtcam::bus::unplug();
    Create();
    camera_->SetState(CAM_STATE_READY);
    object_->*MemberOf(AudioCapturerTag()) = new Deaf(0x114D, 1);  // the object owns it
    log().reset();
    EXPECT_FALSE(Set(CAM_PROPERTY_MICVOLUME, 77));
    EXPECT_LOG_COUNT(4, "Fail set MIC volume!!!\r\n", 1);
    EXPECT_LOG(1, "Fail set property 0x4\r\n");
    EXPECT_EQ(Answer(CAM_PROPERTY_MICVOLUME), 30);
}

TEST_F(PropertyEdge, AnUnsupportedSampleRateIsTrueAndNotKept) {
    Ready();
    EXPECT_TRUE(Set(CAM_PROPERTY_SAMPLERATE, 44100));
    EXPECT_LOG_COUNT(1, "Not supported SAMPLERATE.", 1);
    EXPECT_EQ(Answer(CAM_PROPERTY_SAMPLERATE), 16000);
}

TEST_F(PropertyEdge, BothSampleRatesAreSupported) {
    Ready();
    for (const int rate : {24000, 16000}) {
        EXPECT_TRUE(Set(CAM_PROPERTY_SAMPLERATE, rate));
        EXPECT_EQ(Answer(CAM_PROPERTY_SAMPLERATE), rate);
    }
    EXPECT_NO_LOG(1, "Not supported SAMPLERATE.");
}

TEST_F(PropertyEdge, TheSizeOfNowIsRefused) {
    Ready();
    EXPECT_FALSE(SetPair(CAM_PROPERTY_DIMENSION, 640, 480));
    EXPECT_LOG_COUNT(1, "(640 x 480) is ignored!, Same setting!", 1);
}

TEST_F(PropertyEdge, SignalTypeFiveIsWrittenBackAsSix) {
    Playing();
    EXPECT_TRUE(Set(CAM_PROPERTY_SIGNAL_TYPE, 5));
    EXPECT_EQ(last_.value, 6);
    EXPECT_LOG_COUNT(4, "same signal type 6, 6\n", 1);
    EXPECT_NO_LOG(4, "Return true\r\n");
    EXPECT_NO_LOG(1, "CAitOrixCamera::StopRecording\r\n");
    EXPECT_TRUE(camera_->StopRecording());
}

TEST_F(PropertyEdge, SignalTypeNineIsTrue) {
    Ready();
    EXPECT_TRUE(Set(CAM_PROPERTY_SIGNAL_TYPE, 9));
    EXPECT_EQ(Answer(CAM_PROPERTY_SIGNAL_TYPE), 6);
}

TEST_F(PropertyEdge, VideoModeThreeIsFalse) {
    Playing();
    EXPECT_FALSE(Set(CAM_PROPERTY_VIDEO_MODE, 3));
    EXPECT_LOG(1, "Fail set property 0x18\r\n");
    EXPECT_NO_LOG(1, "CAitOrixCamera::StopRecording\r\n");
    EXPECT_TRUE(camera_->StopRecording());
}

TEST_F(PropertyEdge, AResetOfTheCropSendsOneAndKeepsZero) {
    Ready();
    CAM_PROP_VALUE origin = {};
    EXPECT_TRUE(camera_->SetProperty(CAM_PROPERTY_CROP_VGA, &origin));
    EXPECT_EQ(Sent(), (Sequence{Mmp({0x01, 6, 10, 1, 0, 1, 0, 0x00, 0x05, 0xC0, 0x03})}));
    EXPECT_EQ(origin.res[0], 1);
    EXPECT_EQ(origin.res[1], 1);
    EXPECT_EQ((object_->*MemberOf(CropPosTag())).load().x, 0);
    EXPECT_EQ((object_->*MemberOf(CropPosTag())).load().y, 0);
}

TEST_F(PropertyEdge, AFrameNeverSeesHalfOfANewCropOrigin) {
    constexpr int kFrames = 200000;
    Create();
    RecordingObserver gray(CAM_STREAM_GRAY);
    camera_->RegisterObserver(&gray);
    std::atomic<bool> over{false};
    std::thread host([&] {
        for (int at = 0; !over; at = (at + 1) % 1000) {
            CAM_PROP_VALUE origin;
            origin.res[0] = origin.res[1] = static_cast<short>(at);
            camera_->SetProperty(CAM_PROPERTY_CROP_GRAY, &origin);
        }
    });
    g_embedded_cam_dbg_level = 0;
    int halves = 0;
    for (int frame = 0; frame < kFrames; ++frame) {
        unsigned char pixel = 0;
        CCamZoomParameters zoom = {};
        CCameraExtData record = {};
        record.m_type = CAM_STREAM_GRAY;
        record.m_pData = &pixel;
        record.m_size = 1;
        record.m_cts = static_cast<unsigned long>(frame % 2);
        record.m_pExtData = &zoom;
        record.m_nExtDataSize = sizeof zoom;
        camera_->OnFrameArrival(&record);
        halves += zoom.m_ZoomAreaTop != zoom.m_ZoomAreaLeft ? 1 : 0;
    }
    over = true;
    host.join();
    EXPECT_EQ(halves, 0);
    camera_->RemoveObserver(&gray);
}

TEST_F(PropertyEdge, AReadAudioRegisterIsFalseWithItsValue) {
    Ready();
    FailControl({{"type", 0xA1}, {"value", 0x0500}}, {{"reply", "0102F30405060708"}});
    EXPECT_FALSE(SetPair(CAM_PROPERTY_I2C_READ_AUDIO, 1, 0));
    EXPECT_EQ(last_.res[1], 0xF3);
    EXPECT_EQ(Sent().size(), 3u);
}

TEST_F(PropertyEdge, AReadAudioRegisterGoesOnAfterFailures) {
    Ready();
    FailControl({{"value", 0x0400}}, {{"return", "LIBUSB_ERROR_IO"}});
    FailControl({{"type", 0xA1}, {"value", 0x0500}}, {{"reply", "0102F30405060708"}});
    EXPECT_FALSE(SetPair(CAM_PROPERTY_I2C_READ_AUDIO, 1, 0));
    EXPECT_EQ(last_.res[1], 0xF3);
    EXPECT_EQ(Sent().size(), 3u);
}

TEST_F(PropertyEdge, AWrittenAudioRegisterFailsOnlyWithoutATransfer) {
    Ready();
    FailControl({{"value", 0x0400}}, {{"return", "LIBUSB_ERROR_IO"}});
    EXPECT_TRUE(SetPair(CAM_PROPERTY_I2C_WRITE_AUDIO, 1, 2));
}

TEST_F(PropertyEdge, AnUnknownFlickerSelectorIsTrueOnlyWithAnAdapter) {
    Create();
    log().reset();
    EXPECT_FALSE(Set(CAM_PROPERTY_AUTO_HZ, 0));
    EXPECT_LOG_COUNT(1, kNoCapturer, 1);
    EXPECT_LOG(1, "Fail set property 0xa\r\n");
    Destroy();
    Ready();
    EXPECT_TRUE(Set(CAM_PROPERTY_AUTO_HZ, 0));
    EXPECT_TRUE(Sent().empty());
}

TEST_F(PropertyEdge, PropertyTwoHundredSaysBothLines) {
    Ready();
    EXPECT_FALSE(Set(200, 0));
    EXPECT_LOG_COUNT(4, "Not supported camera property\n", 1);
    EXPECT_LOG_COUNT(1, "Fail set property 0xc8\r\n", 1);
}

TEST_F(PropertyEdge, APreviewModeThatIsRefusedIsTrue) {
    Ready();
    FailControl({{"value", 0x0E00}}, {{"return", "LIBUSB_ERROR_PIPE"}});
    EXPECT_TRUE(Set(CAM_PROPERTY_PREVIEW_MODE, 1));
}

TEST_F(PropertyEdge, APreviewModeThatMovesNothingIsFalse) {
    Ready();
    FailControl({{"value", 0x0E00}}, {{"return", 0}});
    EXPECT_FALSE(Set(CAM_PROPERTY_PREVIEW_MODE, 1));
}

TEST_F(PropertyEdge, ALocalViewIsSentToACameraThatIsDisconnected) {
    Ready();
    camera_->SetState(CAM_STATE_DISCONNECTED);
    Forget();
    EXPECT_TRUE(SetPair(CAM_PROPERTY_LOCAL_RESOLUTION, 640, 360));
    EXPECT_EQ(Sent(), (Sequence{Aux({0x28, 5})}));
    EXPECT_NO_LOG(1, kNoCapturer);
    camera_->SetState(CAM_STATE_READY);
}

// --- queries -------------------------------------------------------------------------------------

TEST_F(PropertyEdge, PanIsCutTowardsZero) {
    Ready();
    for (const auto& [reply, degrees] :
         {std::pair<const char*, int>{"E1E3FFFF00000000", -1}, {"1F1C000000000000", 1}}) {
        virtcam::bus::clear_faults();
        FailControl({{"type", 0xA1}, {"value", 0x0D00}}, {{"reply", reply}});
        EXPECT_EQ(Answer(CAM_PROPERTY_PAN), degrees);
    }
}

TEST_F(PropertyEdge, PositionsWithoutAnAdapterAreZeroAndTrue) {
    Create();
    log().reset();
    EXPECT_EQ(Answer(CAM_PROPERTY_ZOOM), 0);
    EXPECT_LOG(4, "Get ZOOM Step (0)");
    EXPECT_EQ(Answer(CAM_PROPERTY_PAN), 0);
    EXPECT_LOG(4, "Get PAN Step (0)");
    EXPECT_EQ(Answer(CAM_PROPERTY_TILT), 0);
    EXPECT_LOG(4, "Get TILT Step (0)");
}

TEST_F(PropertyEdge, AZoomThatCannotBeReadIsZeroAndTrue) {
    Ready();
    Set(CAM_PROPERTY_ZOOM, 7);
    FailControl({{"type", 0xA1}, {"value", 0x0B00}}, {{"return", "LIBUSB_ERROR_IO"}});
    EXPECT_EQ(Answer(CAM_PROPERTY_ZOOM), 0);
}

TEST_F(PropertyEdge, TheSignalTypeQuestionOnAPlatformWithoutThem) {
    SetPlatform(kTenchS);
    Create();
    EXPECT_FALSE(camera_->GetCapability(CAM_CAPABILITY_SIGNAL_TYPE));
    EXPECT_EQ((object_->*MemberOf(TvModeTag())).load(), USE_CAM_VIDEO_MODE);
}

TEST_F(PropertyEdge, TheSignalTypeQuestionOnAPlatformWithThem) {
    SetPlatform(kPerch);
    Create();
    object_->*MemberOf(TvModeTag()) = USE_CAM_VIDEO_MODE;
    EXPECT_TRUE(camera_->GetCapability(CAM_CAPABILITY_SIGNAL_TYPE));
    EXPECT_EQ((object_->*MemberOf(TvModeTag())).load(), USE_CAM_SIGNAL_TYPE);
}

TEST_F(PropertyEdge, CapabilityNineIsFalseInSilence) {
    Create();
    log().reset();
    EXPECT_FALSE(camera_->GetCapability(static_cast<CAM_CAPABILITY>(9)));
    EXPECT_TRUE(log().texts(1).empty());
}

TEST_F(PropertyEdge, UnknownCapabilitiesSaySo) {
    Create();
    EXPECT_FALSE(camera_->GetCapability(static_cast<CAM_CAPABILITY>(4)));
    EXPECT_LOG_COUNT(1, "Not supported camera capability 4\n", 1);
    EXPECT_FALSE(camera_->GetCapability(static_cast<CAM_CAPABILITY>(14)));
    EXPECT_LOG_COUNT(1, "Not supported camera capability 14\n", 1);
}

TEST_F(PropertyEdge, ARefusedStreamFormatIsKept) {
    Create();
    EXPECT_TRUE(camera_->SetStreamFormat(CAM_STR_FORMAT_TS));
    EXPECT_EQ((object_->*MemberOf(StreamFormatTag())).load(), 1);
    EXPECT_TRUE(camera_->SetStreamFormat(static_cast<CAM_STR_FORMAT>(0x1F)));
    EXPECT_EQ((object_->*MemberOf(StreamFormatTag())).load(), 0x1F);
}

TEST_F(PropertyEdge, AVideoTestThatAnswersThreeIsZeroAndTrue) {
    Ready();
    FailControl({{"type", 0xA1}, {"value", 0x0F00}},
                {{"reply", "03000000000000000000000000000000"}});
    EXPECT_EQ(Answer(CAM_PROPERTY_VIDEO_TEST), 0);
}

TEST_F(PropertyEdge, AVideoTestOfOneByteIsASend) {
    Ready();
    FailControl({{"type", 0x21}, {"value", 0x0E00}}, {{"return", 1}});
    FailControl({{"type", 0xA1}, {"value", 0x0F00}}, {{"reply", std::string(32, '0')}});
    EXPECT_EQ(Answer(CAM_PROPERTY_VIDEO_TEST), 1);
}

TEST_F(PropertyEdge, AVideoTestWithoutAnAnswerReadsItsOwnRequest) {
    Ready();
    FailControl({{"type", 0xA1}, {"value", 0x0F00}}, {{"return", "LIBUSB_ERROR_IO"}});
    EXPECT_EQ(Answer(CAM_PROPERTY_VIDEO_TEST), 0);
}

TEST_F(PropertyEdge, AVideoTestWaitsBetweenQuestionAndAnswer) {
    Ready();
    size_t pauses = 0;
    clock().on_sleep([&, self = std::this_thread::get_id()](const SleepCall& sleep) {
        if (sleep.thread == self) {
            EXPECT_EQ(Sent(), (Sequence{Mmp({0x12})}));
            ++pauses;
        }
    });
    EXPECT_TRUE(Get(CAM_PROPERTY_VIDEO_TEST));
    clock().on_sleep(nullptr);
    EXPECT_EQ(pauses, 1u);
}

TEST_F(PropertyEdge, AnOptionWordOfTransfersThatMoveNothing) {
    Ready();
    FailControl({{"value", 0x0E00}}, {{"return", 0}});
    FailControl({{"value", 0x0F00}}, {{"return", 0}});
    unsigned options = 0;
    EXPECT_EQ(object_->GetVideoOption(&options), 0);
    EXPECT_EQ(options, 1u);  // the block as it was sent
    EXPECT_EQ(Sent().size(), 2u);
}

TEST_F(PropertyEdge, PropertySeventyThreeIsNotSupported) {
    Create();
    EXPECT_FALSE(Get(73));
    EXPECT_LOG_COUNT(4, "Not supported camera property 0x49\r\n", 1);
}

}  // namespace
}  // namespace test
