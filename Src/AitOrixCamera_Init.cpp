// Initialisation: the firmware loader, and the hand-over of the camera when it has finished.
#include <unistd.h>

#include <new>
#include <utility>

#include "AitOrixCamera.h"
#include "CamDestroyFlag.h"
#include "CameraIdentity.h"
#include "aitdbg.h"

namespace {

constexpr uint16_t kBootCodeInterface = 2;

unsigned int LogNumber(InitDoneCallback callback) {
    return static_cast<unsigned int>(reinterpret_cast<uintptr_t>(callback));
}

}  // namespace

void CAitOrixCamera::Init(InitDoneCallback callback, int arg) {
    AIT_LOG(4, "CAitOrixCamera::Init 0x%X, 0x%X \r\n", LogNumber(callback),
            static_cast<unsigned int>(arg));
    if (RefuseInsideUpdate(LogAs(__func__))) {
        return;
    }
    if (m_State == CAM_STATE_READY) {
        AIT_LOG(1, "Already Initialization started.. \n");
        return;
    }
    if (StartLoader(callback)) {
        return;
    }
    AIT_LOG(1, "No memory or thread for the firmware loader.\r\n");
    // A host that tries again from this answer has it already: it is not told once more, and so on.
    static thread_local bool answering = false;
    if (!answering) {
        answering = true;
        CamInitDoneCallback(CAMERA_CANT_FOUND_DEVICE, this);
        answering = false;
    }
}

/// Puts a new loader in place of the old one, which is waited for outside the control lock: it may
/// want that lock for its last stop of recording. When this thread is itself a loader's, inside the
/// host's callback, the new loader waits in its stead.
bool CAitOrixCamera::StartLoader(InitDoneCallback callback) {
    auto* loader = new (std::nothrow)
        CCameraFwLoader(kBootCodeProductId, kCameraVendorId, kBootCodeInterface, this);
    CCameraFwLoader* old;
    unsigned int turn;
    {
        pMutexLock lock(m_video_ctrl_lock);
        turn = ++m_nInits;
        old = std::exchange(fw_loader, loader);
        if (old != nullptr) {
            old->AskToStop();
        }
        if (CCameraFwLoader::OnLoaderThread()) {
            if (loader != nullptr) {
                loader->TakeOver(old);
            } else {
                fw_loader = old;
            }
            old = nullptr;
        }
    }
    delete old;
    pMutexLock lock(m_video_ctrl_lock);
    if (turn != m_nInits) {
        return true;  // another Init came meanwhile, whose loader is there now
    }
    fpInitDoneCb = callback;
    if (loader == nullptr) {
        return false;
    }
    loader->SetInitDoneCallback(CamInitDoneCallback, this);
    return loader->Start("ait-loader");
}

/// False: there was none.
bool CAitOrixCamera::DeleteLoader() {
    CCameraFwLoader* old;
    {
        pMutexLock lock(m_video_ctrl_lock);
        ++m_nInits;
        old = std::exchange(fw_loader, nullptr);
    }
    delete old;
    return old != nullptr;
}

void CAitOrixCamera::TellHost(bool usable) {
    const InitDoneCallback callback = fpInitDoneCb;
    if (callback != nullptr) {
        callback(usable);
    }
}

void CAitOrixCamera::CamInitDoneCallback(unsigned int status, void* data) {
    if (IsCamDestroy()) {
        return;
    }
    static_cast<CAitOrixCamera*>(data)->HandOver(status);
}

void CAitOrixCamera::HandOver(unsigned int status) {
    AIT_LOG_AS("CamInitDoneCallback");
    if (status != CAMERA_STATUS_OK) {
        m_State = CAM_STATE_DISCONNECTED;
        TellHost(false);
        return;
    }
    AIT_LOG(4, "Create Video, Audio capture class.\r\n");
    sleep(1);  // the re-enumerated device settles
    CreateAdapters();
    AIT_LOG(1, "Skipped audio_capturer ConfigureDev furnc in initialization.\r\n");
    const bool ready = AdaptersReady();
    m_State = ready ? CAM_STATE_READY : CAM_STATE_DISCONNECTED;
    // A second Init that came meanwhile is answered by its own loader alone.
    if (!IsCamDestroy() && !CCameraFwLoader::OnStoppingLoaderThread()) {
        TellHost(ready);
    }
}

/// An adapter that exists is kept, ready or not: it is not opened again in this object's life. One
/// that memory is too short for stays away.
void CAitOrixCamera::CreateAdapters() {
    try {
        if (video_capturer == nullptr) {
            video_capturer = new AitUvcCapture(kCameraVendorId, kRunTimeProductId);
        }
        if (audio_capturer == nullptr) {
            audio_capturer = new CAudioCapture(kCameraVendorId, kRunTimeProductId);
        }
    } catch (const std::bad_alloc&) {
        AIT_LOG(1, "No memory for the adapters.\r\n");
    }
}

bool CAitOrixCamera::AdaptersReady() const {
    return video_capturer != nullptr && audio_capturer != nullptr &&
           video_capturer.load()->IsReady() && audio_capturer.load()->IsReady();
}
