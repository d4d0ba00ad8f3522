// Observer registry and dispatch of records.
#include <algorithm>
#include <new>

#include "AitOrixCamera.h"
#include "aitdbg.h"

namespace {

typedef std::vector<ICameraObserver*> ObserverList;

void LogStreamType(int type, LogAs AitLogName) {
    switch (type) {
        case CAM_STREAM_PCM:
            AIT_LOG(4, "CAM_STREAM_PCM\r\n");
            break;
        case CAM_STREAM_H264_MAIN:
            AIT_LOG(4, "CAM_STREAM_H264_MAIN\r\n");
            break;
        case CAM_STREAM_H264_SUB:
            AIT_LOG(4, "CAM_STREAM_H264_SUB\r\n");
            break;
        case CAM_STREAM_MJPEG:
            AIT_LOG(4, "CAM_STREAM_MJPEG\r\n");
            break;
        case CAM_STREAM_NV12:
            AIT_LOG(4, "CAM_STREAM_NV12\r\n");
            break;
        case CAM_STREAM_GRAY:
            AIT_LOG(4, "CAM_STREAM_GRAY\r\n");
            break;
        case CAM_STREAM_YUYV:
            AIT_LOG(4, "CAM_STREAM_YUYV\r\n");
            break;
        case CAM_STREAM_JPEG:
            AIT_LOG(4, "CAM_STREAM_JPEG\r\n");
            break;
        case CAM_STREAM_NV21:
            AIT_LOG(4, "CAM_STREAM_NV21\r\n");
            break;
        default:
            AIT_LOG(4, "UNKNOWN Stream type. %d\r\n", type);
    }
}

bool IsListed(int type) {
    return type >= 0 && type < MAX_CAM_STREAM_TYPE;
}

/// A delivery under way on this thread, inside which observers may change their list: newcomers,
/// which come behind the end, get the next record.
class Walk {
  public:
    explicit Walk(const ObserverList& list) : m_List(list), m_nEnd(list.size()), m_pOuter(g_pWalk) {
        g_pWalk = this;
    }
    ~Walk() { g_pWalk = m_pOuter; }
    Walk(const Walk&) = delete;
    Walk& operator=(const Walk&) = delete;

    size_t End() const { return m_nEnd; }

    static bool IsUnderWay() { return g_pWalk != nullptr; }
    /// An observer is about to leave its list.
    static void Removed(const ObserverList& list, size_t index) {
        for (Walk* walk = g_pWalk; walk != nullptr; walk = walk->m_pOuter) {
            if (&walk->m_List == &list && index < walk->m_nEnd) {
                --walk->m_nEnd;
            }
        }
    }

  private:
    static thread_local Walk* g_pWalk;  // the innermost one

    const ObserverList& m_List;
    size_t m_nEnd;
    Walk* const m_pOuter;
};

thread_local Walk* Walk::g_pWalk = nullptr;

bool Append(ObserverList& list, ICameraObserver* observer) {
    if (std::find(list.begin(), list.end(), observer) != list.end()) {
        return false;
    }
    try {
        list.push_back(observer);
    } catch (const std::bad_alloc&) {
        AIT_LOG(1, "No memory for an observer.\r\n");
        return false;
    }
    return true;
}

bool Remove(ObserverList& list, ICameraObserver* observer) {
    const auto found = std::find(list.begin(), list.end(), observer);
    if (found == list.end()) {
        return false;
    }
    Walk::Removed(list, static_cast<size_t>(found - list.begin()));
    list.erase(found);
    return true;
}

/// Calls every observer in order and answers the last result, false for an empty list. Walks by
/// index: an observer that removes observers from inside Update must not break the walk.
bool UpdateAll(const ObserverList& list, const CCameraData* data) {
    bool result = false;
    const Walk walk(list);
    for (size_t i = 0; i < walk.End(); ++i) {
        result = list[i]->Update(data);
    }
    return result;
}

}  // namespace

bool CAitOrixCamera::IsInsideUpdate() {
    return Walk::IsUnderWay();
}

bool CAitOrixCamera::RefuseInsideUpdate(LogAs AitLogName) {
    if (!IsInsideUpdate()) {
        return false;
    }
    AIT_LOG(1, "Not possible inside Update.\r\n");
    return true;
}

bool CAitOrixCamera::RegisterObserver(ICameraObserver* observer) {
    pMutexLock lock(m_observer_lock);
    if (observer == nullptr) {
        return false;
    }
    const int type = observer->m_StreamType;
    AIT_LOG(4, "CAitOrixCamera::RegisterObserver : ");
    LogStreamType(type, LogAs(__func__));
    if (type == CAM_STREAM_PCM) {
        pMutexLock audioLock(m_audio_observer_lock);
        return Append(m_AudioObserver, observer);
    }
    if (!IsListed(type) || !Append(m_pObserverList[type], observer)) {
        return false;
    }
    if (type == CAM_STREAM_H264_MAIN && m_State == CAM_STATE_PLAYING && video_capturer != nullptr) {
        video_capturer.load()->RequestKeyFrame();  // the newcomer's stream starts with one
    }
    return true;
}

bool CAitOrixCamera::RemoveObserver(ICameraObserver* observer) {
    pMutexLock lock(m_observer_lock);
    if (observer == nullptr) {
        return false;
    }
    const int type = observer->m_StreamType;
    AIT_LOG(4, "CAitOrixCamera::RemoveObserver :");
    LogStreamType(type, LogAs(__func__));
    if (type == CAM_STREAM_PCM) {
        pMutexLock audioLock(m_audio_observer_lock);
        return Remove(m_AudioObserver, observer);
    }
    return IsListed(type) && Remove(m_pObserverList[type], observer);
}

bool CAitOrixCamera::OnFrameArrival(const CCameraData* data) {
    if (data == nullptr) {
        return false;
    }
    return data->m_type == CAM_STREAM_PCM ? DeliverAudio(data) : DeliverVideo(data);
}

bool CAitOrixCamera::DeliverAudio(const CCameraData* data) {
    pMutexLock lock(m_audio_observer_lock);
    return UpdateAll(m_AudioObserver, data);
}

bool CAitOrixCamera::DeliverVideo(const CCameraData* data) {
    AIT_LOG_AS("OnFrameArrival");
    pMutexLock lock(m_observer_lock);
    const CAM_STREAM_TYPE type = data->m_type;
    if (!PassesJpegGate(type)) {
        return true;
    }
    if (type == CAM_STREAM_NV12 || type == CAM_STREAM_GRAY) {
        // These records come writable from their maker; the interface passes all as const.
        AttachCropArea(const_cast<CCameraData*>(data));
    }
    AIT_LOG(5, "OnFrameArrival, StreamType=%d\r\n", static_cast<int>(type));
    if (IsListed(type)) {
        UpdateAll(m_pObserverList[type], data);
    }
    return true;
}

/// Where the host selects by signal type, a still passes only when one was asked for.
bool CAitOrixCamera::PassesJpegGate(CAM_STREAM_TYPE type) {
    AIT_LOG_AS("OnFrameArrival");
    if (mCurTvMode != USE_CAM_SIGNAL_TYPE || type != CAM_STREAM_JPEG) {
        return true;
    }
    if (!m_bJpegTriggered.exchange(false)) {
        return false;
    }
    AIT_LOG(4, "Send a JPEG to AP.\r\n");
    return true;
}

/// Fills the crop area of a gray or NV12 record, which carries the frame's crop flag in the place
/// of the time stamp. The position is latched when the flag changes, not when the property does.
void CAitOrixCamera::AttachCropArea(CCameraData* data) {
    AIT_LOG_AS("OnFrameArrival");
    if (data->m_size == 0 || data->m_pData == nullptr) {
        AIT_LOG(1, "Null Gray or NV12 Data is received !!!\r\n");
        return;
    }
    // The flag is compared in 32 bits, so the initial 0xFFFF never equals a real flag of 0.
    const auto flag = static_cast<uint32_t>(data->m_cts);
    if (m_PrevCropFlag != flag) {
        m_PrevCropPos = m_CurCropPos;
        m_PrevCropFlag = static_cast<uint16_t>(flag);
        AIT_LOG(5, "Croped image, PosX=%d, PosY=%d, Flag=%d\r\n", m_PrevCropPos.x, m_PrevCropPos.y,
                m_PrevCropFlag);
    }
    auto* record = static_cast<CCameraExtData*>(data);
    if (record->m_pExtData != nullptr &&
        record->m_nExtDataSize >= static_cast<int>(sizeof(CCamZoomParameters))) {
        auto* zoom = static_cast<CCamZoomParameters*>(record->m_pExtData);
        zoom->m_bUseCropping = m_PrevCropFlag != 0;
        zoom->m_ZoomAreaTop = m_PrevCropPos.y;
        zoom->m_ZoomAreaLeft = m_PrevCropPos.x;
    }
    record->m_cts = 0;
}

bool CAitOrixCamera::SendTerminateFrame() {
    CCameraExtData data = {};
    data.m_type = CAM_STREAM_NV12;
    OnFrameArrival(&data);
    data.m_type = CAM_STREAM_GRAY;
    OnFrameArrival(&data);
    return true;
}
