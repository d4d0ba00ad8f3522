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
    if (m_State == CAM_STATE_READY) {
        AIT_LOG(1, "Already Initialization started.. \n");
        return;
    }
    fpInitDoneCb = callback;
    delete std::exchange(fw_loader, nullptr);  // stops and joins one that is still at work
    fw_loader = new (std::nothrow)
        CCameraFwLoader(kBootCodeProductId, kCameraVendorId, kBootCodeInterface, this);
    if (fw_loader != nullptr) {
        fw_loader->SetInitDoneCallback(CamInitDoneCallback, this);
        if (fw_loader->Start("ait-loader")) {
            return;
        }
    }
    AIT_LOG(1, "No memory or thread for the firmware loader.\r\n");
    delete std::exchange(fw_loader, nullptr);
    CamInitDoneCallback(CAMERA_CANT_FOUND_DEVICE, this);
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
        fpInitDoneCb.load()(false);
        return;
    }
    AIT_LOG(4, "Create Video, Audio capture class.\r\n");
    sleep(1);  // the re-enumerated device settles
    CreateAdapters();
    AIT_LOG(1, "Skipped audio_capturer ConfigureDev furnc in initialization.\r\n");
    const bool ready = AdaptersReady();
    m_State = ready ? CAM_STATE_READY : CAM_STATE_DISCONNECTED;
    if (!IsCamDestroy()) {
        fpInitDoneCb.load()(ready);
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
