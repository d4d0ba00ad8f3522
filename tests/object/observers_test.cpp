// Registry and dispatch.
#include <cstring>
#include <functional>
#include <future>
#include <memory>
#include <thread>
#include <utility>

#include "tests/object/CameraTest.h"

namespace test {
namespace {

class Observers : public CameraTest {
  protected:
    Observers() {
        SetPlatform(kTenchP);  // video modes: no gate
        Create();
        log().reset();
    }
    bool Arrive(int type, void* data = nullptr, unsigned long size = 0, unsigned long cts = 0,
                CCamZoomParameters* zoom = nullptr) {
        CCameraExtData record = {};
        record.m_pData = data;
        record.m_size = size;
        record.m_cts = cts;
        record.m_type = static_cast<CAM_STREAM_TYPE>(type);
        record.m_pExtData = zoom;
        record.m_nExtDataSize = zoom != nullptr ? static_cast<int>(sizeof *zoom) : 0;
        return camera_->OnFrameArrival(&record);
    }
    unsigned char bytes_[4] = {};
};

const char* TypeLine(int type) {
    switch (type) {
        case 0:
            return "CAM_STREAM_PCM\r\n";
        case 1:
            return "CAM_STREAM_H264_MAIN\r\n";
        case 2:
            return "CAM_STREAM_H264_SUB\r\n";
        case 3:
            return "CAM_STREAM_MJPEG\r\n";
        case 5:
            return "CAM_STREAM_NV12\r\n";
        case 7:
            return "CAM_STREAM_GRAY\r\n";
        case 8:
            return "CAM_STREAM_YUYV\r\n";
        case 9:
            return "CAM_STREAM_JPEG\r\n";
        case 12:
            return "CAM_STREAM_NV21\r\n";
        default:
            return nullptr;
    }
}

TEST_F(Observers, EveryTypeOnceWithItsName) {
    for (int type = 0; type < 21; ++type) {
        RecordingObserver observer(type);
        const std::string name = TypeLine(type) != nullptr
                                     ? TypeLine(type)
                                     : "UNKNOWN Stream type. " + std::to_string(type) + "\r\n";
        log().reset();
        EXPECT_TRUE(camera_->RegisterObserver(&observer));
        EXPECT_EQ(log().texts(4),
                  (std::vector<std::string>{"CAitOrixCamera::RegisterObserver : ", name}));
        EXPECT_FALSE(camera_->RegisterObserver(&observer));
        EXPECT_EQ(Arrive(type, bytes_, 4), true);
        EXPECT_EQ(observer.Count(), 1u) << type;
        EXPECT_EQ(observer.type_, type);
        log().reset();
        EXPECT_TRUE(camera_->RemoveObserver(&observer));
        EXPECT_EQ(log().texts(4),
                  (std::vector<std::string>{"CAitOrixCamera::RemoveObserver :", name}));
        EXPECT_FALSE(camera_->RemoveObserver(&observer));
        Arrive(type, bytes_, 4);
        EXPECT_EQ(observer.Count(), 1u);
    }
}

TEST_F(Observers, TypesOutsideTheListAreRefused) {
    for (const int type : {-1, 21, 22, 1000000}) {
        RecordingObserver observer(type);
        log().reset();
        EXPECT_FALSE(camera_->RegisterObserver(&observer));
        EXPECT_LOG(4, "UNKNOWN Stream type. " + std::to_string(type) + "\r\n");
        EXPECT_FALSE(camera_->RemoveObserver(&observer));
        EXPECT_TRUE(Arrive(type));
        EXPECT_EQ(observer.Count(), 0u);
    }
}

TEST_F(Observers, NothingIsNoObserverAndNoRecord) {
    EXPECT_FALSE(camera_->RegisterObserver(nullptr));
    EXPECT_FALSE(camera_->RemoveObserver(nullptr));
    EXPECT_FALSE(camera_->OnFrameArrival(nullptr));
    EXPECT_TRUE(log().lines().empty());
}

/// Does in Update what a test wants.
class ActingObserver : public ICameraObserver {
  public:
    ActingObserver(CAM_STREAM_TYPE type, std::function<void()> act) : act_(std::move(act)) {
        m_StreamType = type;
    }
    bool Update(const CCameraData*) override {
        act_();
        return true;
    }

  private:
    std::function<void()> act_;
};

TEST_F(Observers, WhatWouldWaitForUpdateIsRefusedInsideIt) {
    int lines = 0;
    const auto refused = [&](bool result) {
        EXPECT_FALSE(result);
        EXPECT_LOG_COUNT(1, "Not possible inside Update.\r\n", static_cast<size_t>(++lines));
    };
    ActingObserver sub(CAM_STREAM_H264_SUB, [&] {
        refused(camera_->StartRecording());
        refused(camera_->StopRecording());
        for (const int property : {CAM_PROPERTY_DIMENSION, CAM_PROPERTY_SAMPLERATE,
                                   CAM_PROPERTY_SIGNAL_TYPE, CAM_PROPERTY_VIDEO_MODE}) {
            refused(Set(property, 1));
        }
        camera_->Init(InitAnswers::Callback, 0);
        refused(false);
        EXPECT_EQ(log().lines().size(), static_cast<size_t>(lines) + 2);
    });
    camera_->RegisterObserver(&sub);
    log().reset();
    Arrive(CAM_STREAM_H264_SUB, bytes_, 4);
    EXPECT_EQ(lines, 7);
    camera_->RemoveObserver(&sub);
    EXPECT_TRUE(InitAnswers::instance().All().empty());
    EXPECT_TRUE(Get(CAM_PROPERTY_DIMENSION));
    EXPECT_EQ(last_.res[0], 640);
    EXPECT_TRUE(camera_->StartRecording());  // outside: "twice", as ever
}

/// Does something in the record that tells the end.
class EndObserver : public ICameraObserver {
  public:
    EndObserver(CAM_STREAM_TYPE type, std::function<void()> act) : act_(std::move(act)) {
        m_StreamType = type;
    }
    bool Update(const CCameraData* record) override {
        if (record->m_pData == nullptr) {
            ++ends_;
            act_();
        }
        return true;
    }
    int ends() const { return ends_; }

  private:
    std::function<void()> act_;
    int ends_ = 0;
};

/// It runs on the thread that stops, so a stop from inside it would meet itself, without end.
TEST_F(Observers, AStopInsideTheTerminatingRecordIsRefused) {
    Destroy();
    SetPlatform(kBream);
    Playing();
    const auto stop = [this] {
        EXPECT_FALSE(camera_->StopRecording());
        EXPECT_FALSE(SetPair(CAM_PROPERTY_DIMENSION, 320, 240));
    };
    EndObserver nv12(CAM_STREAM_NV12, stop), gray(CAM_STREAM_GRAY, stop);
    camera_->RegisterObserver(&nv12);
    camera_->RegisterObserver(&gray);
    EXPECT_TRUE(camera_->StopRecording());
    EXPECT_EQ(nv12.ends(), 1);
    EXPECT_EQ(gray.ends(), 1);
    EXPECT_EQ(camera_->GetState(), CAM_STATE_READY);
    camera_->RemoveObserver(&nv12);
    camera_->RemoveObserver(&gray);
}

TEST_F(Observers, DestructionInsideUpdateIsRefused) {
    ActingObserver suicidal(CAM_STREAM_H264_MAIN, [this] { cam_destroy(camera_); });
    camera_->RegisterObserver(&suicidal);
    EXPECT_TRUE(Arrive(CAM_STREAM_H264_MAIN));
    EXPECT_LOG_COUNT(1, "Not possible inside Update or the callback of Init.\r\n", 1);
    EXPECT_TRUE(camera_->RemoveObserver(&suicidal));
    cam_destroy(nullptr);  // beside it, as ever
    EXPECT_LOG_COUNT(1, "Not possible inside Update or the callback of Init.\r\n", 1);
}

TEST_F(Observers, AnyOtherPropertyWorksInsideUpdate) {
    bool set = false, got = false;
    ActingObserver sub(CAM_STREAM_H264_SUB, [&] {
        set = Set(CAM_PROPERTY_AUTO_FOCUS, 1);
        got = Get(CAM_PROPERTY_BITRATE);
    });
    camera_->RegisterObserver(&sub);
    Arrive(CAM_STREAM_H264_SUB, bytes_, 4);
    EXPECT_TRUE(set);
    EXPECT_TRUE(got);
    EXPECT_EQ(last_.value, 2000000);
    camera_->RemoveObserver(&sub);
}

TEST_F(Observers, AQueryInsideUpdateDoesNotWaitForAStop) {
    Destroy();
    Playing();
    std::promise<void> inside;
    std::atomic<int> answer{-1};
    bool first = true;
    ActingObserver main(CAM_STREAM_H264_MAIN, [&] {
        if (!std::exchange(first, false)) {
            return;
        }
        inside.set_value();
        EXPECT_TRUE(log().wait_for(4, "CAitOrixCamera:: stop video capture thread \r\n", kLimit));
        CAM_PROP_VALUE value = {};
        answer = camera_->GetProperty(CAM_PROPERTY_BITRATE, &value) ? 1 : 0;
    });
    camera_->RegisterObserver(&main);
    ASSERT_EQ(inside.get_future().wait_for(kLimit), std::future_status::ready);
    EXPECT_TRUE(camera_->StopRecording());
    EXPECT_EQ(answer, 0);
    EXPECT_LOG_COUNT(1, "Not possible inside Update while recording stops.\r\n", 1);
    camera_->RemoveObserver(&main);
}

TEST_F(Observers, ANewcomerOfAnUpdateGetsTheNextRecord) {
    std::vector<std::unique_ptr<RecordingObserver>> newcomers;
    ActingObserver* self = nullptr;
    ActingObserver sub(CAM_STREAM_H264_SUB, [&] {
        camera_->RemoveObserver(self);  // all behind it move up, and it comes last itself
        newcomers.push_back(std::make_unique<RecordingObserver>(CAM_STREAM_H264_SUB));
        camera_->RegisterObserver(newcomers.back().get());
        camera_->RegisterObserver(self);
    });
    self = &sub;
    camera_->RegisterObserver(&sub);
    Arrive(CAM_STREAM_H264_SUB, bytes_, 4);
    ASSERT_EQ(newcomers.size(), 1u);
    EXPECT_EQ(newcomers[0]->Count(), 0u);
    Arrive(CAM_STREAM_H264_SUB, bytes_, 4);
    ASSERT_EQ(newcomers.size(), 2u);
    EXPECT_EQ(newcomers[0]->Count(), 1u);
    EXPECT_EQ(newcomers[1]->Count(), 0u);
    camera_->RemoveObserver(&sub);
    for (const auto& newcomer : newcomers) {
        camera_->RemoveObserver(newcomer.get());
    }
}

/// A holder of the lock that does not stop recording is waited for.
TEST_F(Observers, AQueryInsideUpdateWaitsForAnotherCall) {
    std::promise<void> held;
    std::thread other([&] {
        const pMutexLock lock(m_video_ctrl_lock);
        held.set_value();
        EXPECT_TRUE(virtcam::bus::wait_until([this] { return clock().count(1ms) > 2; }, kLimit));
    });
    held.get_future().wait();
    bool answer = false;
    ActingObserver sub(CAM_STREAM_H264_SUB, [&] { answer = Get(CAM_PROPERTY_BITRATE); });
    camera_->RegisterObserver(&sub);
    Arrive(CAM_STREAM_H264_SUB, bytes_, 4);
    EXPECT_TRUE(answer);
    camera_->RemoveObserver(&sub);
    other.join();
}

/// Invites another of its kind at each record.
class Inviter : public ICameraObserver {
  public:
    Inviter(ICameraSubject& camera, std::vector<std::unique_ptr<Inviter>>& all)
        : camera_(camera), all_(all) {
        m_StreamType = CAM_STREAM_H264_SUB;
    }
    bool Update(const CCameraData*) override {
        constexpr size_t kTooMany = 1000;
        if (all_.size() < kTooMany) {
            all_.push_back(std::make_unique<Inviter>(camera_, all_));
            camera_.RegisterObserver(all_.back().get());
        }
        return true;
    }

  private:
    ICameraSubject& camera_;
    std::vector<std::unique_ptr<Inviter>>& all_;
};

TEST_F(Observers, ADeliveryEndsThoughEachOfThemInvitesAnother) {
    std::vector<std::unique_ptr<Inviter>> all;
    all.push_back(std::make_unique<Inviter>(*camera_, all));
    camera_->RegisterObserver(all.front().get());
    for (const size_t count : {2u, 4u, 8u}) {
        Arrive(CAM_STREAM_H264_SUB, bytes_, 4);
        EXPECT_EQ(all.size(), count);
    }
    for (const auto& each : all) {
        camera_->RemoveObserver(each.get());
    }
}

TEST_F(Observers, AudioIsApart) {
    RecordingObserver audio(CAM_STREAM_PCM);
    EXPECT_FALSE(Arrive(CAM_STREAM_PCM, bytes_, 4));
    camera_->RegisterObserver(&audio);
    EXPECT_TRUE(camera_->m_pObserverList[0].empty());
    log().reset();
    EXPECT_TRUE(Arrive(CAM_STREAM_PCM, bytes_, 4));
    EXPECT_TRUE(log().lines().empty());
    EXPECT_TRUE(Arrive(CAM_STREAM_H264_MAIN, bytes_, 4));
    EXPECT_EQ(audio.Count(), 1u);
    RecordingObserver last(CAM_STREAM_PCM, false);
    camera_->RegisterObserver(&last);
    EXPECT_FALSE(Arrive(CAM_STREAM_PCM, bytes_, 4));
    EXPECT_EQ(audio.Count(), 2u);
    camera_->RemoveObserver(&last);
    camera_->RemoveObserver(&audio);
}

TEST_F(Observers, VideoAnswersTrueWhateverObserversSay) {
    EXPECT_TRUE(Arrive(CAM_STREAM_H264_MAIN, bytes_, 4));
    RecordingObserver observer(CAM_STREAM_H264_MAIN, false);
    camera_->RegisterObserver(&observer);
    log().reset();
    EXPECT_TRUE(Arrive(CAM_STREAM_H264_MAIN, bytes_, 4, 99));
    EXPECT_EQ(observer.cts_, 99u);
    EXPECT_EQ(observer.data_, bytes_);
    EXPECT_LOG_COUNT(5, "OnFrameArrival, StreamType=1\r\n", 1);
    camera_->RemoveObserver(&observer);
}

TEST_F(Observers, OrderIsThatOfRegistration) {
    std::vector<int> order;
    struct Ordered : ICameraObserver {
        Ordered(int n, std::vector<int>* to) : number(n), list(to) {
            m_StreamType = CAM_STREAM_YUYV;
        }
        bool Update(const CCameraData*) override {
            list->push_back(number);
            return true;
        }
        int number;
        std::vector<int>* list;
    };
    Ordered a(1, &order), b(2, &order), c(3, &order);
    camera_->RegisterObserver(&b);
    camera_->RegisterObserver(&a);
    camera_->RegisterObserver(&c);
    Arrive(CAM_STREAM_YUYV, bytes_, 4);
    camera_->RemoveObserver(&b);
    Arrive(CAM_STREAM_YUYV, bytes_, 4);
    EXPECT_EQ(order, (std::vector<int>{2, 1, 3, 1, 3}));
}

TEST_F(Observers, TheTypeIsReadAtEachCall) {
    RecordingObserver observer(CAM_STREAM_YUYV);
    camera_->RegisterObserver(&observer);
    observer.SetStreamType(CAM_STREAM_JPEG);
    EXPECT_TRUE(camera_->RegisterObserver(&observer));
    EXPECT_EQ(observer.GetStreamType(), CAM_STREAM_JPEG);
    Arrive(CAM_STREAM_YUYV, bytes_, 4);
    Arrive(CAM_STREAM_JPEG, bytes_, 4);
    EXPECT_EQ(observer.Count(), 2u);
    EXPECT_TRUE(camera_->RemoveObserver(&observer));
    EXPECT_FALSE(camera_->RemoveObserver(&observer));
}

TEST_F(Observers, RemovalFromInsideUpdateDoesNotBreakTheWalk) {
    struct Leaving : ICameraObserver {
        explicit Leaving(ICameraSubject* s) {
            m_pSubjectRegistered = s;
            m_StreamType = CAM_STREAM_YUYV;
        }
        bool Update(const CCameraData*) override {
            ++count;
            m_pSubjectRegistered->RemoveObserver(this);
            return true;
        }
        int count = 0;
    };
    Leaving a(camera_), b(camera_), c(camera_);
    camera_->RegisterObserver(&a);
    camera_->RegisterObserver(&b);
    camera_->RegisterObserver(&c);
    Arrive(CAM_STREAM_YUYV, bytes_, 4);
    Arrive(CAM_STREAM_YUYV, bytes_, 4);
    Arrive(CAM_STREAM_YUYV, bytes_, 4);
    EXPECT_EQ(a.count, 1);
    EXPECT_EQ(b.count, 1);
    EXPECT_EQ(c.count, 1);
}

TEST_F(Observers, RegistrationFromInsideUpdateTakesPartInTheNextRecord) {
    struct Inviting : ICameraObserver {
        Inviting(ICameraSubject* s, ICameraObserver* g) : guest(g) {
            m_pSubjectRegistered = s;
            m_StreamType = CAM_STREAM_YUYV;
        }
        bool Update(const CCameraData*) override {
            m_pSubjectRegistered->RegisterObserver(guest);
            return true;
        }
        ICameraObserver* guest;
    };
    RecordingObserver guest(CAM_STREAM_YUYV);
    Inviting host(camera_, &guest);
    camera_->RegisterObserver(&host);
    Arrive(CAM_STREAM_YUYV, bytes_, 4);
    EXPECT_EQ(guest.Count(), 0u);
    Arrive(CAM_STREAM_YUYV, bytes_, 4);
    EXPECT_EQ(guest.Count(), 1u);
}

// --- stills --------------------------------------------------------------------------------------

TEST_F(Observers, InVideoModesEveryStillIsDelivered) {
    RecordingObserver still(CAM_STREAM_JPEG);
    camera_->RegisterObserver(&still);
    Arrive(CAM_STREAM_JPEG, bytes_, 4);
    Arrive(CAM_STREAM_JPEG, bytes_, 4);
    EXPECT_EQ(still.Count(), 2u);
    EXPECT_NO_LOG(4, "Send a JPEG to AP.\r\n");
}

TEST_F(Observers, WithSignalTypesOneStillPerTrigger) {
    Destroy();
    SetPlatform(kBream);
    Create();
    RecordingObserver still(CAM_STREAM_JPEG);
    RecordingObserver mjpeg(CAM_STREAM_MJPEG);
    camera_->RegisterObserver(&still);
    camera_->RegisterObserver(&mjpeg);
    log().reset();
    EXPECT_TRUE(Arrive(CAM_STREAM_JPEG, bytes_, 4));
    EXPECT_EQ(still.Count(), 0u);
    EXPECT_TRUE(log().lines().empty());
    EXPECT_FALSE(Set(CAM_PROPERTY_TRIGGER_JPEG, 0));  // no adapter, but the flag is set
    EXPECT_TRUE(Arrive(CAM_STREAM_JPEG, bytes_, 4));
    EXPECT_TRUE(Arrive(CAM_STREAM_JPEG, bytes_, 4));
    EXPECT_EQ(still.Count(), 1u);
    EXPECT_LOG_COUNT(4, "Send a JPEG to AP.\r\n", 1);
    Arrive(CAM_STREAM_MJPEG, bytes_, 4);  // not a still
    EXPECT_EQ(mjpeg.Count(), 1u);
    Destroy();
}

// --- crop area -----------------------------------------------------------------------------------

TEST_F(Observers, TheCropAreaIsLatchedWhenTheFlagChanges) {
    RecordingObserver gray(CAM_STREAM_GRAY);
    RecordingObserver nv12(CAM_STREAM_NV12);
    camera_->RegisterObserver(&gray);
    camera_->RegisterObserver(&nv12);
    CCamZoomParameters zoom;
    std::memset(&zoom, 0xEE, sizeof zoom);
    log().reset();
    Arrive(CAM_STREAM_GRAY, bytes_, 4, 0, &zoom);  // 0xFFFF differs from 0
    EXPECT_LOG_COUNT(5, "Croped image, PosX=0, PosY=0, Flag=0\r\n", 1);
    EXPECT_FALSE(gray.zoom_.m_bUseCropping);
    EXPECT_EQ(gray.cts_, 0u);

    SetPair(CAM_PROPERTY_CROP_GRAY, 0x1234, -1);
    std::memset(&zoom, 0xEE, sizeof zoom);
    Arrive(CAM_STREAM_GRAY, bytes_, 4, 0, &zoom);
    EXPECT_EQ(gray.zoom_.m_ZoomAreaLeft, 0);
    EXPECT_EQ(gray.zoom_.m_ZoomAreaTop, 0);
    EXPECT_EQ(log().count_containing("Croped image"), 1u);

    Arrive(CAM_STREAM_NV12, bytes_, 4, 1, &zoom);
    EXPECT_LOG_COUNT(5, "Croped image, PosX=4660, PosY=65535, Flag=1\r\n", 1);
    EXPECT_TRUE(nv12.zoom_.m_bUseCropping);
    EXPECT_EQ(nv12.zoom_.m_ZoomAreaLeft, 0x1234);
    EXPECT_EQ(nv12.zoom_.m_ZoomAreaTop, 0xFFFF);
    EXPECT_EQ(nv12.cts_, 0u);

    // The flag is compared in 32 bits and kept in 16.
    Arrive(CAM_STREAM_GRAY, bytes_, 4, 0x10001, &zoom);
    EXPECT_EQ(log().count_containing("Croped image"), 3u);
    Arrive(CAM_STREAM_GRAY, bytes_, 4, 1, &zoom);
    EXPECT_EQ(log().count_containing("Croped image"), 3u);
}

TEST_F(Observers, OtherStreamsKeepTheirStamp) {
    RecordingObserver yuyv(CAM_STREAM_YUYV);
    camera_->RegisterObserver(&yuyv);
    Arrive(CAM_STREAM_YUYV, bytes_, 4, 5);
    EXPECT_EQ(yuyv.cts_, 5u);
    EXPECT_EQ(log().count_containing("Croped image"), 0u);
}

TEST_F(Observers, AnEmptyGrayRecordIsReportedAndDelivered) {
    RecordingObserver gray(CAM_STREAM_GRAY);
    camera_->RegisterObserver(&gray);
    CCamZoomParameters zoom = {};
    Arrive(CAM_STREAM_GRAY, bytes_, 0, 3, &zoom);
    EXPECT_EQ(gray.cts_, 3u);
    Arrive(CAM_STREAM_GRAY, nullptr, 4, 3, &zoom);
    EXPECT_LOG_COUNT(1, "Null Gray or NV12 Data is received !!!\r\n", 2);
    EXPECT_EQ(gray.Count(), 2u);
}

TEST_F(Observers, ARecordWithoutRoomForTheCropAreaIsDelivered) {
    RecordingObserver gray(CAM_STREAM_GRAY);
    camera_->RegisterObserver(&gray);
    Arrive(CAM_STREAM_GRAY, bytes_, 4, 1, nullptr);
    EXPECT_EQ(gray.Count(), 1u);
    CCamZoomParameters zoom;
    std::memset(&zoom, 0xEE, sizeof zoom);
    CCameraExtData record = {};
    record.m_pData = bytes_;
    record.m_size = 4;
    record.m_type = CAM_STREAM_GRAY;
    record.m_pExtData = &zoom;
    record.m_nExtDataSize = 11;
    camera_->OnFrameArrival(&record);
    EXPECT_EQ(gray.Count(), 2u);
    EXPECT_EQ(zoom.m_ZoomAreaTop, static_cast<int>(0xEEEEEEEE));
}

TEST_F(Observers, TheEndIsToldToNv12AndThenToGray) {
    std::vector<int> types;
    struct Ending : ICameraObserver {
        Ending(CAM_STREAM_TYPE type, std::vector<int>* to) : list(to) { m_StreamType = type; }
        bool Update(const CCameraData* data) override {
            EXPECT_EQ(data->m_pData, nullptr);
            EXPECT_EQ(data->m_size, 0u);
            EXPECT_EQ(data->m_cts, 0u);
            list->push_back(data->m_type);
            return true;
        }
        std::vector<int>* list;
    };
    Ending gray(CAM_STREAM_GRAY, &types), nv12(CAM_STREAM_NV12, &types),
        main(CAM_STREAM_H264_MAIN, &types);
    camera_->RegisterObserver(&gray);
    camera_->RegisterObserver(&nv12);
    camera_->RegisterObserver(&main);
    EXPECT_TRUE(object_->SendTerminateFrame());
    EXPECT_EQ(types, (std::vector<int>{CAM_STREAM_NV12, CAM_STREAM_GRAY}));
    EXPECT_LOG_COUNT(1, "Null Gray or NV12 Data is received !!!\r\n", 2);
}

// --- key frame for a newcomer --------------------------------------------------------------------

class Newcomer : public CameraTest {};

TEST_F(Newcomer, OfTheMainStreamGetsAKeyFrameWhilePlaying) {
    Ready();
    RecordingObserver main(CAM_STREAM_H264_MAIN), sub(CAM_STREAM_H264_SUB),
        other(CAM_STREAM_H264_MAIN);
    camera_->RegisterObserver(&main);
    EXPECT_TRUE(Sent().empty());
    ASSERT_TRUE(camera_->StartRecording());
    Forget();
    camera_->RegisterObserver(&sub);
    camera_->RegisterObserver(&main);  // registered already
    EXPECT_TRUE(Sent().empty());
    camera_->RegisterObserver(&other);
    EXPECT_EQ(Sent(), (Sequence{Isp({0x04})}));
    camera_->StopRecording();
}

}  // namespace
}  // namespace test
